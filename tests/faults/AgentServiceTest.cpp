#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/AgentProcess.h"
#include "support/LogReader.h"
#include "support/NotifySocket.h"
#include "support/WaitFor.h"

namespace {

constexpr uid_t kStranger = 4000;

class AgentService : public testing::Test {
protected:
    AgentService() { WriteIni(""); }

    void WriteIni(const std::string& settings) const {
        agent_.WriteIni("[Agent]\n" + settings + "[Modules]\nEcho = " + TestModule("Echo") + "\n");
    }
    [[nodiscard]] std::string Health() const { return agent_.Request("GET", "/health").body; }
    [[nodiscard]] std::size_t CountInLog(std::string_view part) const {
        return CountIn(agent_.ReadLog(), part);
    }
    /// Starts an agent that is to give up for this reason.
    void ExpectRefusal(const std::string& reason) {
        agent_.Start();
        EXPECT_EQ(agent_.Wait(), 1);
        EXPECT_NE(agent_.ReadStandardError().find(reason), std::string::npos) << agent_.ReadStandardError();
    }
    /// One curl of another user with these groups: the body, a blank, the HTTP status.
    [[nodiscard]] std::string CurlAs(const std::string& groups, const std::string& words) const {
        return RunShell("setpriv --reuid " + std::to_string(kStranger) + " --regid 4000 " + groups +
                        " curl -sS --unix-socket " + agent_.GetScratch() / "s/agent.sock" +
                        " -w ' %{http_code}' " + words + " 2>&1 || true");
    }

    AgentProcess agent_;
};

TEST_F(AgentService, IsDegradedWhileAModuleIsNotLoaded) {
    agent_.WriteIni("[Modules]\nMissing = /nowhere/m.so\n");
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(agent_.Request("GET", "/health").status, 503);
    EXPECT_EQ(Health(), R"({"status":"degraded","reasons":["Module 'Missing' is not loaded from )"
                        R"(/nowhere/m.so: No such file or directory."]})");
}

TEST_F(AgentService, IsDegradedWithoutRoom) {
    WriteIni("MinFreeMB = 1000000000\n");
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(agent_.Request("GET", "/health").status, 503);
    EXPECT_NE(Health().find("MB are free below the data directory " + agent_.GetDataDirectory() +
                            "/, less than the 1000000000 of [Agent] MinFreeMB."),
              std::string::npos)
        << Health();
}

TEST_F(AgentService, ShowsItsStatus) {
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string status = agent_.Request("GET", "/status").body;
    EXPECT_EQ(status.find(R"({"version":")"), 0U) << status;
    for (const char* const part : {R"("uptime":)", R"("health":[])", R"("memory":)",
                                   R"("modules":[{"name":"Echo","version":"1.2.3"}])"}) {
        EXPECT_NE(status.find(part), std::string::npos) << part << status;
    }
}

TEST_F(AgentService, ShowsWhatItsModulesHold) {
    const std::string modules = BinaryDirectory() + "/../modules/";
    agent_.WriteIni("[Modules]\nFileStore = " + modules + "FileStore.so\nEventLogManager = " + modules +
                    "EventLogManager.so\n");
    std::filesystem::copy(LUM_SOURCE_DIR "/etc/EventLogManager.ini",
                          agent_.GetConfigDirectory() + "/EventLogManager.ini");
    agent_.GetScratch().Write("data/EventLogManager/models/Logon.xml",
                              ReadWholeFile(LUM_SOURCE_DIR "/etc/models/Logon.xml"));
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string first = agent_.Request("GET", "/metrics").body;
    for (const char* const part : {"\nlum_events_stored_total{model=\"Logon\"} 0\n",
                                   "\nlum_events_deleted_total{model=\"Logon\"} 0\n"}) {
        EXPECT_NE(first.find(part), std::string::npos) << part << first;
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(agent_
                      .Request("POST", "/actions/EventLogManagerCreateEvent",
                               R"({"Values":{"ModelName":"Logon","EventParams":{"Time":1,"User":"a"}}})")
                      .body,
                  R"({"status":0,"container":{}})");
    }
    const std::string status = agent_.Request("GET", "/status").body;
    for (const char* const part :
         {R"("models":[{"name":"Logon","enabled":true,"events":3,"oldest":)", R"("sizes":{"database":)",
          R"("queue":0)", R"("alerts":{"sent":0,"heldBack":0})",
          R"("outbox":{"files":0,"bytes":0,"oldestAge":0})"}) {
        EXPECT_NE(status.find(part), std::string::npos) << part << status;
    }
    const std::string metrics = agent_.Request("GET", "/metrics").body;
    for (const char* const part :
         {"\nlum_events_stored_total{model=\"Logon\"} 3\n", "\nlum_outbox_files 0\n", "\nlum_queue_tasks 0\n",
          "\nlum_action_calls_total{action=\"EventLogManagerCreateEvent\",status=\"0\"} 3\n"}) {
        EXPECT_NE(metrics.find(part), std::string::npos) << part << metrics;
    }
    EXPECT_EQ(agent_.Request("GET", "/health").status, 200);
    const std::string outbox = agent_.GetDataDirectory() + "/FileStore/outbox";
    std::filesystem::rename(outbox, outbox + "-away");
    EXPECT_EQ(Health(), R"({"status":"degraded","reasons":["The outbox )" + outbox +
                            R"( cannot be written: No such file or directory."]})");
    std::filesystem::rename(outbox + "-away", outbox);
    EXPECT_EQ(agent_.Request("GET", "/health").status, 200) << "by itself";
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(AgentService, ShowsMetricsThatPrometheusTakes) {
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(agent_.Request("POST", "/actions/EchoStatus", R"({"Status":13})").status, 200);
    EXPECT_EQ(RunShell("curl -sS --unix-socket " + agent_.GetSocketPath() +
                       " http://agent/metrics | promtool check metrics 2>&1"),
              "");
    const std::string metrics = agent_.Request("GET", "/metrics").body;
    EXPECT_NE(metrics.find("\nlum_action_calls_total{action=\"EchoStatus\",status=\"13\"} 1\n"),
              std::string::npos)
        << metrics;
    EXPECT_NE(metrics.find("\nlum_action_seconds_count{action=\"EchoStatus\"} 1\n"), std::string::npos);
    EXPECT_NE(metrics.find("\nlum_healthy 1\n"), std::string::npos);
}

TEST_F(AgentService, ServesMetricsToTheNetworkWhereItIsToldTo) {
    WriteIni("MetricsListen = 127.0.0.1:29641\n");
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string curl = "curl -sS -o /dev/null -w '%{http_code}' http://127.0.0.1:29641";
    EXPECT_EQ(RunShell(curl + "/metrics"), "200");
    EXPECT_EQ(RunShell(curl + "/status"), "403");
    EXPECT_EQ(RunShell(curl + "/actions/EchoBack -X POST"), "403");
    EXPECT_EQ(agent_.Stop(), 0);
    WriteIni("MetricsListen = everywhere\n");
    ASSERT_TRUE(agent_.StartAndServe()) << "metrics are not what it is for";
    EXPECT_EQ(CountInLog(" error Agent [Agent] MetricsListen is PORT or ADDRESS:PORT in numbers, not "
                         "'everywhere'\n"),
              1U);
}

TEST_F(AgentService, LetsGroupsDoWhatTheyMay) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can take on another user's rights";
    }
    WriteIni("Socket = " + agent_.GetScratch() / "s/agent.sock" +
             "\nSocketGroup = 4100\nReadGroup = 4200\nCreateGroup = 4300\n");
    agent_.GetScratch().Write("s/here", "");
    ASSERT_EQ(::chmod((agent_.GetScratch() / "s").c_str(), 0755), 0);
    ASSERT_EQ(::chmod((agent_.GetScratch() / ".").c_str(), 0755), 0);
    agent_.Start();
    ASSERT_TRUE(agent_.WaitForLog("The control socket is open"));
    EXPECT_EQ(CurlAs("--groups 4100", "-X POST http://a/actions/EchoBack"),
              R"({"status":0,"container":{}} 200)");
    EXPECT_EQ(
        CurlAs("--groups 4200", "-X POST http://a/actions/EchoBack"),
        R"({"error":"User 4000 may not administer the agent: [Agent] SocketGroup in agent.ini names the )"
        R"(group that may."} 403)");
    EXPECT_NE(CurlAs("--groups 4200", "http://a/status").find(" 200"), std::string::npos);
    EXPECT_EQ(CurlAs("--groups 4300", "http://a/health"), R"({"status":"ok"} 200)");
    EXPECT_NE(CurlAs("--groups 4300", "http://a/metrics").find(" 403"), std::string::npos);
    EXPECT_NE(CurlAs("--clear-groups", "http://a/health").find(" 000"), std::string::npos);
    EXPECT_EQ(CountInLog(" print Agent User 4000 (4000) called EchoBack with {}: status 0\n"), 1U);
}

TEST_F(AgentService, AnswersABatchThatCurlSends) {
    ASSERT_TRUE(agent_.StartAndServe());
    std::string lines;
    for (int i = 0; i < 2000; ++i) {
        lines += R"({"Status":)" + std::to_string(i % 7) + "}\n";
    }
    const std::string file = agent_.GetScratch().Write("lines", lines + "no json\n");
    const std::string answers = RunShell("curl -sS --unix-socket " + agent_.GetSocketPath() +
                                         " --data-binary @" + file + " http://agent/batch/EchoStatus");
    EXPECT_EQ(CountIn(answers, "\n"), 2001U);
    EXPECT_EQ(answers.find("{\"line\":1,\"status\":0,\"container\":{}}\n{\"line\":2,\"status\":1,"), 0U);
    EXPECT_NE(answers.find("\n{\"line\":2001,\"error\":\"The line is not a container: "), std::string::npos);
}

TEST_F(AgentService, OpensItsLogAnewAndGoesOnWhenItHangsUp) {
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string log = agent_.GetDataDirectory() + "/log/agent.log";
    std::filesystem::rename(log, log + ".moved");
    agent_.Signal(SIGHUP);
    EXPECT_TRUE(
        agent_.WaitForLog(" print Agent SIGHUP: the log is opened anew, dropped definitions are taken in\n"));
    EXPECT_EQ(agent_.Request("GET", "/health").status, 200);
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(AgentService, TakesNoNoticeOfSignalsThatMeanNothing) {
    ASSERT_TRUE(agent_.StartAndServe());
    agent_.Signal(SIGUSR1);
    agent_.Signal(SIGUSR2);
    EXPECT_EQ(agent_.Request("GET", "/health").status, 200);
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(AgentService, KeepsASecondAgentOutWithoutItsLockFile) {
    ASSERT_TRUE(agent_.StartAndServe());
    std::filesystem::remove(agent_.GetDataDirectory() + "/agent.lock");
    const std::string said = agent_.GetScratch() / "said";
    EXPECT_EQ(RunShell(BinaryDirectory() + "/lumagent --config-dir " + agent_.GetConfigDirectory() +
                       " --data-dir " + agent_.GetDataDirectory() + " --socket " + said + ".sock 2>" + said),
              "status 1");
    EXPECT_NE(ReadWholeFile(said).find("is running on the data directory"), std::string::npos);
}

TEST_F(AgentService, MakesItsLogAnewWhenItWasRemoved) {
    ASSERT_TRUE(agent_.StartAndServe());
    std::filesystem::remove_all(agent_.GetDataDirectory() + "/log");
    EXPECT_EQ(agent_.Request("POST", "/actions/EchoLog", R"({"Text":"after all"})").status, 200);
    EXPECT_EQ(CountInLog(" print Echo after all\n"), 1U);
}

TEST_F(AgentService, GoesOnWhereItsLogCannotBeOpenedAnew) {
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string directory = agent_.GetDataDirectory() + "/log";
    std::filesystem::rename(directory, directory + "-away");
    agent_.GetScratch().Write("data/log", "a file in the way");
    agent_.Signal(SIGHUP);
    EXPECT_TRUE(WaitFor([this] {
        return CountIn(agent_.ReadStandardError(), " error Agent The log cannot be opened anew: ") == 1;
    })) << agent_.ReadStandardError();
    EXPECT_EQ(agent_.Request("POST", "/actions/EchoBack").status, 200);
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(AgentService, TakesDroppedDefinitionsInWhenItHangsUp) {
    agent_.WriteShippedSettings();
    ASSERT_TRUE(agent_.StartAndServe());
    agent_.Drop(ModelText{.name = "Late", .params = {{.name = "Text"}}});
    agent_.Signal(SIGHUP);
    EXPECT_TRUE(WaitFor([this] {
        return agent_.Request("GET", "/status").body.find(R"("name":"Late")") != std::string::npos;
    }));
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(AgentService, DoesNotFollowALinkInPlaceOfItsLog) {
    const std::string victim = agent_.GetScratch().Write("victim", "precious");
    std::filesystem::create_directories(agent_.GetDataDirectory() + "/log");
    const std::string log = agent_.GetDataDirectory() + "/log/agent.log";
    std::filesystem::create_symlink(victim, log);
    ExpectRefusal("Cannot open the log " + log + ": ");
    std::filesystem::remove(log);
    std::filesystem::create_hard_link(victim, log);
    ExpectRefusal("Cannot open the log " + log + ": Too many links");
    EXPECT_EQ(ReadWholeFile(victim), "precious");
}

TEST_F(AgentService, RefusesWhatOthersMayWrite) {
    const auto expect = [this](const std::string& path) {
        ASSERT_EQ(::chmod(path.c_str(), 0777), 0);
        ExpectRefusal("The agent does not start: " + path +
                      " may be written by every user: take that away (chmod o-w '" + path + "')\n");
        ASSERT_EQ(::chmod(path.c_str(), 0700), 0);
    };
    std::filesystem::create_directories(agent_.GetDataDirectory());
    expect(agent_.GetConfigDirectory());
    expect(agent_.GetConfigDirectory() + "/agent.ini");
    expect(agent_.GetDataDirectory());
}

TEST_F(AgentService, RefusesAModuleThatOthersMayWrite) {
    const std::string copy = agent_.GetScratch() / "config/Echo.so";
    std::filesystem::copy_file(TestModule("Echo"), copy);
    ASSERT_EQ(::chmod(copy.c_str(), 0777), 0);
    agent_.WriteIni("[Modules]\nEcho = " + copy + "\n");
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(CountInLog(" error Agent Module 'Echo' is not loaded from " + copy + ": " + copy +
                         " may be written by every user: take that away (chmod o-w '" + copy + "')\n"),
              1U);
}

TEST_F(AgentService, FeedsTheWatchdogWhileItGetsOn) {
    NotifySocket manager(agent_.GetScratch() / "notify");
    WriteIni("Threads = 1\nStuckSeconds = 1\n");
    agent_.arguments = {"--log-level", "print"};
    ::setenv("WATCHDOG_USEC", "150000", 1);
    agent_.environment = "NOTIFY_SOCKET=" + agent_.GetScratch() / "notify";
    const bool isServing = agent_.StartAndServe();
    ::unsetenv("WATCHDOG_USEC");
    ASSERT_TRUE(isServing);
    EXPECT_TRUE(manager.WaitFor("WATCHDOG=1\nWATCHDOG=1\n"));
    HttpClient hanging(agent_.GetSocketPath());
    HttpClient waiting(agent_.GetSocketPath());
    ASSERT_TRUE(hanging.SendRequest("POST", "/actions/EchoSleep", R"({"Milliseconds":4000})"));
    ASSERT_TRUE(WaitFor([&] {
        return agent_.Request("GET", "/status").body.find(R"("calls":{"running":1,)") != std::string::npos;
    }));
    ASSERT_TRUE(waiting.SendRequest("POST", "/actions/EchoBack"));
    EXPECT_TRUE(agent_.WaitForLog(" error Agent The agent hangs: calls have waited "));
    static_cast<void>(manager.Take());
    EXPECT_EQ(waiting.ReadReply().status, 200);
    manager.Forget();
    EXPECT_TRUE(manager.WaitFor("WATCHDOG=1\n")) << "it gets on again";
}

TEST_F(AgentService, WritesPrioritiesForTheJournal) {
    agent_.GetScratch().Write("stderr", "");
    struct stat status = {};
    ASSERT_EQ(::stat((agent_.GetScratch() / "stderr").c_str(), &status), 0);
    agent_.environment =
        "JOURNAL_STREAM=" + std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    agent_.WriteIni("[Agent]\nLogLevel = loud\n[Modules]\nMissing = /nowhere/m.so\n");
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string said = agent_.ReadStandardError();
    EXPECT_EQ(said.find("<6>20"), 0U) << said;
    EXPECT_NE(said.find("\n<4>20"), std::string::npos) << said;
    EXPECT_NE(said.find("\n<3>20"), std::string::npos) << said;
    EXPECT_EQ(agent_.ReadLog().find("20"), 0U) << "the file has none";
}

TEST_F(AgentService, StaysWithinItsMemoryWhateverClientsHoldOfIt) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs memory of its own";
#endif
    agent_.memoryLimit = std::size_t{640} << 20U;
    ASSERT_TRUE(agent_.StartAndServe());
    std::vector<HttpClient> clients;
    const std::string part(1U << 20U, 'x');
    for (int i = 0; i < 400; ++i) {
        clients.emplace_back(agent_.GetSocketPath());
        if (i % 2 == 0) {
            clients.back().Send(
                "POST /actions/EchoBack HTTP/1.1\r\nHost: a\r\nContent-Length: 16000000\r\n\r\n" + part);
            clients.back().Send(part);
        } else {
            clients.back().SendRequest("POST", "/actions/EchoFill", R"({"Count":1500})");
        }
    }
    EXPECT_EQ(agent_.Request("POST", "/actions/EchoBack").status, 200);
    const std::string status = agent_.Request("GET", "/metrics").body;
    const std::size_t at = status.find("\nlum_client_held_bytes ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_LE(std::strtod(status.c_str() + at + 23, nullptr), 256.0 * (1U << 20U));
    clients.clear();
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(AgentService, SurvivesALackOfMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs memory of its own";
#endif
    agent_.memoryLimit = std::size_t{256} << 20U;
    ASSERT_TRUE(agent_.StartAndServe());
    std::vector<HttpClient> clients;
    HttpClient holder(agent_.GetSocketPath());
    ASSERT_TRUE(holder.SendRequest("POST", "/actions/EchoHoldMemory", R"({"Milliseconds":500})"));
    for (int i = 0; i < 20; ++i) {
        clients.emplace_back(agent_.GetSocketPath());
        clients.back().SendRequest("POST", "/actions/EchoFill", R"({"Count":3000})");
    }
    static_cast<void>(holder.ReadReply());
    for (HttpClient& client : clients) {
        static_cast<void>(client.ReadReply());  // an answer, an error, or the end of the connection
    }
    EXPECT_TRUE(WaitFor([&] { return agent_.Request("POST", "/actions/EchoBack").status == 200; }));
    EXPECT_EQ(agent_.Stop(), 0);
}

}  // namespace
