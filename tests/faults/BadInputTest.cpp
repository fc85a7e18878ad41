#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/AgentProcess.h"
#include "support/LogReader.h"
#include "support/TestAgent.h"

namespace {

constexpr const char* kCreate = "/actions/EventLogManagerCreateEvent";

/// An agent as it is shipped, with one model, that is to bear what comes.
class BadInput : public testing::Test {
protected:
    BadInput() {
        agent_.WriteShippedSettings();
        agent_.Drop(
            {.name = "Note", .params = {{.name = "Number", .type = ParamType::kInteger}, {.name = "Text"}}});
    }

    [[nodiscard]] std::string ModuleIni() const {
        return agent_.GetConfigDirectory() + "/EventLogManager.ini";
    }
    void WriteModuleIni(const std::string& content) const {
        agent_.GetScratch().Write("config/EventLogManager.ini", content);
    }

    /// Expects an agent whose module found no statements to make its tables with: it says so, answers what it
    /// can, leaves the dropped definition alone, and stops in order.
    void ExpectToRunWithoutTables() {
        ASSERT_TRUE(agent_.StartAndServe());
        EXPECT_EQ(Call("GetModelNames", "{}"), R"({"status":0,"container":{"Result":{}}})");
        EXPECT_TRUE(Create(R"({"Text":"x","Number":1})").starts_with(R"({"status":13,)"));
        // Once at the start, and again with each turn of the processor.
        EXPECT_GE(
            CountInLog(" error EventLogManager LoadRegisteredModels: Failed to load registered models\n"),
            1U);
        EXPECT_TRUE(agent_.GetScratch().Has("data/EventLogManager/models/Note.xml"))
            << "it waits for a registry";
        EXPECT_EQ(agent_.Stop(), 0);
    }

    [[nodiscard]] static std::string Event(const std::string& params) {
        return R"({"Values":{"ModelName":"Note","EventParams":)" + params + "}}";
    }
    [[nodiscard]] std::string Call(const std::string& action, const std::string& body) const {
        return agent_.Request("POST", "/actions/EventLogManager" + action, body).body;
    }
    [[nodiscard]] std::string Create(const std::string& params) const {
        return Call("CreateEvent", Event(params));
    }
    /// The answer to a query of all events.
    [[nodiscard]] std::string Events() const {
        return Call("GetEvents", R"({"Values":{"ModelName":"Note","PageSize":1000}})");
    }
    [[nodiscard]] std::size_t CountInLog(std::string_view part) const {
        return CountIn(agent_.ReadLog(), part);
    }

    AgentProcess agent_;
};

constexpr std::string_view kDone = R"({"status":0,)";

TEST_F(BadInput, RefusesWhatIsNoContainerAndServesTheNextCall) {
    ASSERT_TRUE(agent_.StartAndServe()) << agent_.ReadStandardError();
    std::string deep = "{}";
    for (int i = 0; i < 32; ++i) {
        deep = R"({"a":)" + deep + "}";
    }
    const std::string bodies[] = {"no json",
                                  "{",
                                  "[]",
                                  "7",
                                  deep,
                                  std::string(1U << 20U, '['),
                                  Event(R"({"Number":4294967296})"),
                                  Event(R"({"Number":-2147483649})"),
                                  Event(R"({"Number":1e999})"),
                                  Event("{\"Text\":\"\xC3(\"}"),
                                  Event(R"({"Text":[["a"]]})")};
    HttpClient client(agent_.GetSocketPath());
    for (const std::string& body : bodies) {
        const HttpReply reply = client.Request("POST", kCreate, body);
        EXPECT_EQ(reply.status, 400) << body.substr(0, 80);
        EXPECT_TRUE(reply.body.starts_with(R"({"error":"The body is not a container: )")) << reply.body;
    }
    EXPECT_TRUE(
        client.Request("POST", kCreate, Event(R"({"Number":1,"Text":"good"})")).body.starts_with(kDone));
    EXPECT_NE(Events().find(R"("EventCount":1,)"), std::string::npos);
}

TEST_F(BadInput, StoresOddTextsAsTheyAre) {
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string texts[] = {R"("it's \"quoted\"''")", R"("'); DROP TABLE Event_Note; --")",
                                 R"("%s%n%d %S")",         R"("\u0001\u001f\n\r\t")",
                                 "\"\xF0\x9F\x98\x80\"",   '"' + std::string(1'000'000, 'x') + '"'};
    std::string list;
    for (const std::string& text : texts) {
        EXPECT_TRUE(Create(R"({"Number":1,"Text":)" + text + "}").starts_with(kDone)) << text.substr(0, 80);
        list.append(list.empty() ? "" : ",").append(text);
    }
    EXPECT_TRUE(Create(R"({"Number":1,"Text":"null \u0000 byte"})").starts_with(R"({"status":1,)"));
    EXPECT_EQ(CountInLog("DBConnection: null byte in statement: INSERT INTO Event_Note"), 1U);
    EXPECT_TRUE(Events().ends_with(R"("Text":[)" + list + "]}}}"));
}

TEST_F(BadInput, CreatesTwoHundredEventsThatComeAtOnce) {
    constexpr std::size_t kClients = 200;
    ASSERT_TRUE(agent_.StartAndServe());
    std::vector<HttpClient> clients;
    for (std::size_t i = 0; i < kClients; ++i) {
        clients.emplace_back(agent_.GetSocketPath());
        ASSERT_TRUE(clients.back().SendRequest(
            "POST", kCreate, Event(R"({"Text":"at once","Number":)" + std::to_string(i) + "}")));
    }
    for (HttpClient& client : clients) {
        EXPECT_TRUE(client.ReadReply().body.starts_with(kDone));
    }
    EXPECT_NE(Events().find(R"("EventCount":200)"), std::string::npos);
}

TEST_F(BadInput, RunsWithoutTheModulesIni) {
    std::filesystem::remove(ModuleIni());
    ExpectToRunWithoutTables();
}

TEST_F(BadInput, SaysThatTheModulesIniCannotBeRead) {
    std::filesystem::remove(ModuleIni());
    std::filesystem::create_directory(ModuleIni());
    ExpectToRunWithoutTables();
    EXPECT_GE(CountInLog(" warning Host IniFile::Load: " + ModuleIni() + ": Is a directory\n"), 1U);
}

TEST_F(BadInput, SaysThatTheModulesIniIsHuge) {
    WriteModuleIni(Shipped("EventLogManager.ini") + std::string(4U << 20U, ';'));
    ExpectToRunWithoutTables();
    EXPECT_GE(CountInLog(" warning Host IniFile::Load: " + ModuleIni() + ": Larger than 4194304 bytes\n"),
              1U);
}

TEST_F(BadInput, GoesOnBehindAStatementThatFails) {
    std::string ini = Shipped("EventLogManager.ini");
    const std::string heading = "[SqlRun]\n";
    const std::size_t at = ini.find(heading);
    ASSERT_NE(at, std::string::npos);
    WriteModuleIni(ini.insert(at + heading.size(), "Broken = CREATE TABEL x (a)\n"));
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_TRUE(Create(R"({"Text":"x","Number":1})").starts_with(kDone));
    EXPECT_EQ(CountInLog(" error EventLogManager DBConnection: near \"TABEL\": syntax error in statement: "
                         "CREATE TABEL x (a)\n"),
              1U);
}

TEST_F(BadInput, MovesNothingButTemporaryFilesIntoTheOutbox) {
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string database = agent_.GetDataDirectory() + "/EventLogManager/EventLogManager.sqlite3";
    const std::string link = agent_.GetDataDirectory() + "/tmp/link";
    std::filesystem::create_symlink(database, link);
    for (const std::string& path : {database, link, agent_.GetDataDirectory() + "/tmp/../agent.lock"}) {
        const std::string request = R"({"FileType":"t","FileLabel":"t","MovePath":")" + path + "\"}";
        EXPECT_TRUE(agent_.Request("POST", "/actions/FileStoreReceiveFile", request)
                        .body.starts_with(R"({"status":13,)"))
            << path;
        EXPECT_TRUE(std::filesystem::exists(path)) << path;
    }
    EXPECT_TRUE(std::filesystem::is_empty(agent_.GetDataDirectory() + "/FileStore/outbox"));
    EXPECT_EQ(agent_.Stop(), 0);
}

}  // namespace
