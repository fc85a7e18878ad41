#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "client/status/StatusText.h"
#include "support/TimeZone.h"

namespace {

using Json = nlohmann::ordered_json;

Json Healthy() {
    return Json::parse(R"({
        "version": "1.2.3", "uptime": 3660, "process": 42, "health": [], "memory": 11534336, "threads": 14,
        "freeBytes": 78383153152, "clients": 1, "calls": {"running": 0, "waiting": 2},
        "modules": [{"name": "FileStore", "version": "1.0.0"}, {"name": "Other", "version": "2.0"}],
        "outbox": {"files": 0, "bytes": 0, "oldestAge": 0}, "uploads": {},
        "models": [{"name": "Logon", "enabled": true, "events": 1234, "oldest": 1795288343,
                    "newest": 1795288344, "lastUpload": 1795288340},
                   {"name": "Off", "enabled": false, "events": 0}],
        "sizes": {"database": 32768, "log": 4144752}, "queue": 3, "alerts": {"sent": 1, "heldBack": 2}})");
}

TEST(StatusText, HasALineForEachThingAndTheModelsAsATable) {
    const TimeZone zone("UTC");
    EXPECT_EQ(StatusAsText(Healthy(), false),
              "Health     ok\n"
              "Agent      version 1.2.3, up for 1 h 1 min, process 42\n"
              "Modules    FileStore 1.0.0\n"
              "           Other 2.0\n"
              "Memory     11 MiB, 14 threads\n"
              "Disk       database 32 KiB, its log 4.0 MiB, 73 GiB free\n"
              "Calls      1 connection, 0 running, 2 waiting\n"
              "Tasks      3 waiting\n"
              "Outbox     nothing waits to be sent\n"
              "Alerts     1 sent, 2 held back\n"
              "\n"
              "Model  Enabled  Events  Oldest                     Newest                     Last upload"
              "                Last aggregation\n"
              "-----  -------  ------  -------------------------  -------------------------  "
              "-------------------------  ----------------\n"
              "Logon  yes       1,234  2026-11-21T19:12:23+00:00  2026-11-21T19:12:24+00:00  "
              "2026-11-21T19:12:20+00:00\n"
              "Off    no            0\n");
}

TEST(StatusText, SaysWhatIsWrongAndWhatWaits) {
    Json status = Healthy();
    status["health"] = {"The first reason.", "The second."};
    status["outbox"] = {{"files", 3}, {"bytes", 2048}, {"oldestAge", 61}};
    status["uploads"] = Json::parse(
        R"({"Model": ["A", "B"], "HandedOver": [200, 0], "Left": [100, null], "Reason": ["", "no room"]})");
    const std::string text = StatusAsText(status, false);
    EXPECT_NE(text.find("Health     The first reason.\n           The second.\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Outbox     3 files, 2.0 KiB, the oldest waits for 1 min\n"), std::string::npos)
        << text;
    EXPECT_NE(text.find("Uploads    model A goes on where it stopped: 200 handed over, 100 left\n"
                        "           model B goes on where it stopped: 0 handed over; no room\n"),
              std::string::npos)
        << text;
}

TEST(StatusText, LeavesOutWhatIsNotToldAndTrustsNothing) {
    EXPECT_EQ(StatusAsText(Json::object(), false), "");
    EXPECT_EQ(
        StatusAsText(Json::parse(R"({"health": 1, "modules": {}, "models": "x", "outbox": []})"), false), "");
    EXPECT_EQ(StatusAsText(Json::parse(R"({"version": "1\u001b[2J", "later": 7})"), false),
              "Agent      version 1\\x1b[2J\n"
              "later      7\n");
}

TEST(StatusText, MakesNothingOfFiguresThatAreNone) {
    const Json status = Json::parse(R"({"health": [5], "threads": "many", "outbox": {"files": -1, "bytes": 1},
        "models": [{"name": "A", "enabled": "no", "events": -1}]})");
    EXPECT_EQ(StatusAsText(status, true),
              "Outbox     1 B\n"
              "\n"
              "\x1b[1mModel  Enabled  Events  Oldest  Newest  Last upload  Last aggregation\n"
              "\x1b[0m-----  -------  ------  ------  ------  -----------  ----------------\n"
              "A      yes\n");
    EXPECT_EQ(
        OutboxAsText(Json::parse(R"({"forwarder": {"device": "", "connected": 1, "updatedAt": "now"}})"), 0),
        "Forwarder  heard of at now\n"
        "\n"
        "The forwarder has no connection to the broker.\n");
}

TEST(StatusText, ShowsOfAnOutboxWhatWaitsAndHowTheForwarderGetsOn) {
    const TimeZone zone("UTC");
    const Json outbox = Json::parse(R"({"files": 3, "bytes": 2048, "oldestAge": 61, "forwarder":
        {"device": "alpha", "connected": true, "unconfirmed": 3, "confirmed": 41, "setAside": 1,
         "lastReceipt": 1795288343, "updatedAt": 1795288344}})");
    EXPECT_EQ(OutboxAsText(outbox, 1795288344),
              "Outbox     3 files, 2.0 KiB, the oldest waits for 1 min\n"
              "Forwarder  device alpha, connected, heard of at 2026-11-21T19:12:24+00:00\n"
              "Sent       3 not confirmed yet, 41 confirmed, 1 set aside, last receipt "
              "2026-11-21T19:12:23+00:00\n");
}

TEST(StatusText, EndsAnOutboxWithWhatKeepsFilesFromLeaving) {
    const auto advice = [](const char* forwarder, int64_t now) {
        Json outbox{{"files", 0}};
        if (forwarder != nullptr) {
            outbox["forwarder"] = Json::parse(forwarder);
        }
        const std::string text = OutboxAsText(outbox, now);
        const std::size_t at = text.find("\n\n");
        return at == std::string::npos ? std::string() : text.substr(at + 2);
    };
    EXPECT_EQ(advice(nullptr, 0),
              "No forwarder has run here: files stay until lumforward, or somebody else, takes them.\n");
    const char* const connected = R"({"connected": true, "updatedAt": 1000})";
    EXPECT_EQ(advice(connected, 1180), "");
    EXPECT_EQ(advice(connected, 1181),
              "The forwarder has not been heard of for 3 min; does it run? "
              "(systemctl status lumforward)\n");
    EXPECT_EQ(advice(R"({"connected": false})", 0), "The forwarder has no connection to the broker.\n");
    EXPECT_EQ(advice(R"({"connected": false, "lastError": "no\u001broute"})", 0),
              "The forwarder has no connection to the broker: no\\x1broute\n");
}

}  // namespace
