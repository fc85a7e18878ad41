#include <csignal>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "support/AgentProcess.h"
#include "support/LogReader.h"
#include "support/WaitFor.h"

namespace {

mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

class Agent : public testing::Test {
protected:
    Agent() { WriteIni(""); }

    /// Writes an agent.ini with these settings of [Agent] and the module Echo.
    void WriteIni(const std::string& settings) const {
        agent_.WriteIni("[Agent]\n" + settings + "[Modules]\nEcho = " + TestModule("Echo") + "\n");
    }

    /// One curl, as an administrator types it: the body, a blank, the HTTP status.
    [[nodiscard]] std::string Curl(const std::string& words) const {
        return RunShell("curl -sS --unix-socket " + agent_.GetSocketPath() + " -w ' %{http_code}' " + words +
                        " 2>&1");
    }

    /// Starts an agent that is to give up for this reason.
    void ExpectRefusal(const std::string& reason) {
        agent_.Start();
        EXPECT_EQ(agent_.Wait(), 1);
        EXPECT_NE(agent_.ReadStandardError().find(" error Agent The agent does not start: " + reason + "\n"),
                  std::string::npos)
            << agent_.ReadStandardError();
    }

    [[nodiscard]] std::size_t CountInLog(std::string_view part) const {
        return CountIn(agent_.ReadLog(), part);
    }

    AgentProcess agent_;
};

TEST_F(Agent, SpeaksWithCurl) {
    ASSERT_TRUE(agent_.StartAndServe()) << agent_.ReadStandardError();
    EXPECT_EQ(Curl("http://agent/health"), R"({"status":"ok"} 200)");
    EXPECT_EQ(Curl("http://agent/modules"),
              R"([{"name":"Echo","file":")" + TestModule("Echo") +
                  R"(","description":"Echo module for tests","version":"1.2.3"}] 200)");
    EXPECT_EQ(
        Curl("http://agent/actions")
            .find(R"-([{"name":"EchoBack","signature":"EchoBack (container Values)","module":"Echo"},)-"),
        0U);
    EXPECT_EQ(Curl(R"(http://agent/actions/EchoBack -d '{"Values":{"Text":"hi","List":[1,null,2.5]}}')"),
              R"({"status":0,"container":{"Values":{"Text":"hi","List":[1,null,2.5]}}} 200)");
    EXPECT_EQ(Curl(R"(http://agent/actions/EchoStatus -d '{"Status":45001}')"),
              R"({"status":45001,"container":{}} 200)");
    EXPECT_EQ(Curl("-X POST http://agent/actions/EchoThrow"), R"({"status":1,"container":{}} 200)");
    EXPECT_EQ(CountInLog(" error Host Action 'EchoThrow' ended with an exception: thrown on purpose\n"), 1U);
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(Agent, SaysWhatIsWrongWithARequest) {
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(Curl("http://agent/nothing"), R"({"error":"There is no path '/nothing'."} 404)");
    EXPECT_EQ(Curl("-X POST http://agent/actions/Nobody"), R"({"error":"There is no action 'Nobody'."} 404)");
    EXPECT_EQ(Curl("http://agent/actions/EchoBack"),
              R"({"error":"The method GET is not allowed here, only POST."} 405)");
    EXPECT_EQ(Curl("-I http://agent/health").find("HTTP/1.1 405 Method Not Allowed\r\n"), 0U);
    EXPECT_NE(Curl("-X OPTIONS http://agent/health").find("} 405"), std::string::npos);
    EXPECT_NE(Curl("http://agent/actions/EchoBack -d 'no json'").find("} 400"), std::string::npos);
    std::string deep = "{}";
    for (int i = 0; i < 32; ++i) {
        deep = R"({"a":)" + deep + "}";
    }
    EXPECT_NE(Curl("http://agent/actions/EchoBack -d '" + deep + "'").find("} 400"), std::string::npos);
}

TEST_F(Agent, RefusesABodyOfSeventeenMebibytes) {
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string body = agent_.GetScratch().Write("body", std::string(17U << 20U, 'x'));
    const std::string refusal = R"({"error":"The body is longer than 16777216 bytes."} 413)";
    const std::string target = " --data-binary @" + body + " http://agent/actions/EchoBack";
    EXPECT_EQ(Curl("-X POST" + target), refusal);
    EXPECT_EQ(Curl("-X POST -H Expect:" + target), refusal);
    EXPECT_EQ(Curl("-X POST -H 'Transfer-Encoding: chunked'" + target), refusal);
    EXPECT_EQ(agent_.Request("GET", "/health").status, 200);
}

TEST_F(Agent, TakesALongBodyThatCurlAsksLeaveFor) {
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string body =
        agent_.GetScratch().Write("body", R"({"Text":")" + std::string(2U << 20U, 'x') + R"("})");
    EXPECT_EQ(Curl("-o /dev/null --data-binary @" + body + " http://agent/actions/EchoBack"), " 200");
}

TEST_F(Agent, ServesTwoHundredRequestsAtOnce) {
    ASSERT_TRUE(agent_.StartAndServe());
    std::vector<HttpClient> clients;
    for (int i = 0; i < 200; ++i) {
        clients.emplace_back(agent_.GetSocketPath());
        ASSERT_TRUE(clients.back().SendRequest("POST", "/actions/EchoSleep",
                                               R"({"Milliseconds":2,"Number":)" + std::to_string(i) + "}"));
    }
    for (std::size_t i = 0; i < clients.size(); ++i) {
        EXPECT_EQ(clients[i].ReadReply().body,
                  R"({"status":0,"container":{"Milliseconds":2,"Number":)" + std::to_string(i) + "}}");
    }
}

TEST_F(Agent, RunsAsManyActionsAtOnceAsItHasThreads) {
    WriteIni("Threads = 5\n");
    ASSERT_TRUE(agent_.StartAndServe());
    std::vector<HttpClient> clients;
    for (int i = 0; i < 5; ++i) {
        clients.emplace_back(agent_.GetSocketPath());
        ASSERT_TRUE(clients.back().SendRequest("POST", "/actions/EchoMeet", R"({"Count":5})"));
    }
    for (HttpClient& client : clients) {
        EXPECT_EQ(client.ReadReply().body, R"({"status":0,"container":{"Count":5}})");
    }
}

TEST_F(Agent, ServesARequestBesideThreeHundredIdleConnections) {
    ASSERT_TRUE(agent_.StartAndServe());
    std::vector<HttpClient> idle;
    for (int i = 0; i < 300; ++i) {
        idle.emplace_back(agent_.GetSocketPath());
        ASSERT_TRUE(idle.back().IsConnected());
        if (i % 2 == 0) {
            ASSERT_TRUE(idle.back().Send("POST /actions/EchoBack HTTP/1.1\r\nContent-Le"));
        }
    }
    EXPECT_EQ(agent_.Request("POST", "/actions/EchoBack").status, 200);
    EXPECT_EQ(idle[1].Request("GET", "/health").status, 200);
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(Agent, DropsStalledClients) {
    WriteIni("ClientTimeoutMs = 400\n");
    ASSERT_TRUE(agent_.StartAndServe());
    const std::size_t before = agent_.CountDescriptors();
    HttpClient idle(agent_.GetSocketPath());
    HttpClient half(agent_.GetSocketPath());
    ASSERT_TRUE(half.Send("POST /actions/EchoBack HTTP/1.1\r\nContent-Length: 5\r\n\r\n{"));
    const HttpClient deaf(agent_.GetSocketPath());
    ASSERT_TRUE(deaf.SendRequest("POST", "/actions/EchoFill", R"({"Count":20000})"));
    EXPECT_TRUE(idle.WaitForEnd());
    EXPECT_TRUE(half.WaitForEnd());
    EXPECT_TRUE(WaitFor([&] { return agent_.CountDescriptors() <= before; }));
}

TEST_F(Agent, SurvivesALackOfDescriptors) {
    agent_.descriptorLimit = 64;
    ASSERT_TRUE(agent_.StartAndServe());
    HttpClient first(agent_.GetSocketPath());
    EXPECT_EQ(first.Request("POST", "/actions/EchoHoldDescriptors").status, 200);
    HttpClient second(agent_.GetSocketPath());
    ASSERT_TRUE(second.SendRequest("GET", "/health"));
    EXPECT_TRUE(agent_.WaitForLog(
        " warning Agent The control socket cannot accept a client, trying again: Too many open files\n"));
    EXPECT_EQ(first.Request("POST", "/actions/EchoReleaseDescriptors").status, 200);
    EXPECT_EQ(second.ReadReply().status, 200);
    EXPECT_EQ(CountInLog("The control socket cannot accept"), 1U);
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(Agent, SaysThatItHasTooFewDescriptorsToStart) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs descriptors of its own";
#endif
    // For its directories, for its log, and for its connections.
    for (const std::size_t few : {5U, 6U, 7U}) {
        const std::size_t before = agent_.ReadStandardError().size();
        agent_.descriptorLimit = few;
        agent_.Start();
        EXPECT_EQ(agent_.Wait(), 1) << few;
        EXPECT_NE(agent_.ReadStandardError().find(": Too many open files\n", before), std::string::npos)
            << few;
    }
}

TEST_F(Agent, GivesUpWhereItMayNotHaveItsThreads) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs memory of its own";
#endif
    agent_.memoryLimit = std::size_t{256} << 20U;
    WriteIni("Threads = 256\n");
    agent_.Start();
    EXPECT_EQ(agent_.Wait(), 1);
    EXPECT_EQ(CountInLog(" error Agent Cannot serve the control socket: "), 1U);
    EXPECT_EQ(CountInLog(" error Agent The agent stops: the control socket is not served\n"), 1U);
    EXPECT_EQ(CountInLog("Echo library gone\n"), 1U);
}

TEST_F(Agent, LeavesDescriptorsToItsModules) {
    WriteIni("ClientTimeoutMs = 300\n");
    agent_.descriptorLimit = 64;
    ASSERT_TRUE(agent_.StartAndServe());
    std::vector<HttpClient> idle;
    for (int i = 0; i < 100; ++i) {
        idle.emplace_back(agent_.GetSocketPath());
    }
    EXPECT_EQ(agent_.Request("GET", "/health").status, 200);
    EXPECT_EQ(CountInLog("cannot accept"), 0U);
}

TEST_F(Agent, TakesAsManyDescriptorsAsItMayHave) {
    agent_.softDescriptorLimit = 40;
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string limits = ReadWholeFile("/proc/" + std::to_string(agent_.GetId()) + "/limits");
    std::istringstream line(limits.substr(limits.find("Max open files") + 14));
    std::string soft;
    std::string hard;
    line >> soft >> hard;
    EXPECT_EQ(soft, hard);
    EXPECT_NE(soft, "40");
}

TEST_F(Agent, KeepsEverythingForTheOwnerAlone) {
    const mode_t before = ::umask(0);
    const bool isServing = agent_.StartAndServe();
    ::umask(before);
    ASSERT_TRUE(isServing);
    EXPECT_EQ(ModeOf(agent_.GetDataDirectory()), 0700U);
    EXPECT_EQ(ModeOf(agent_.GetDataDirectory() + "/tmp"), 0700U);
    EXPECT_EQ(ModeOf(agent_.GetDataDirectory() + "/log"), 0700U);
    EXPECT_EQ(ModeOf(agent_.GetDataDirectory() + "/log/agent.log"), 0600U);
    EXPECT_EQ(ModeOf(agent_.GetDataDirectory() + "/agent.lock"), 0600U);
    EXPECT_EQ(ModeOf(agent_.GetSocketPath()), 0600U);
}

TEST_F(Agent, NeverOpensItsSocketToOthersWhileItStarts) {
    const gid_t group = ::geteuid() == 0 ? 1 : ::getegid();
    WriteIni("SocketGroup = " + std::to_string(group) + "\n");
    for (int i = 0; i < 3; ++i) {
        agent_.Start();
        bool isOpenToGroup = false;
        // Without a pause, so that no mode is missed.
        while (!isOpenToGroup) {
            struct stat status = {};
            if (::lstat(agent_.GetSocketPath().c_str(), &status) != 0) {
                ASSERT_FALSE(!agent_.IsRunning()) << agent_.ReadStandardError();
                continue;
            }
            const mode_t mode = status.st_mode & 07777U;
            isOpenToGroup = mode == 0660 && status.st_gid == group;
            ASSERT_TRUE(isOpenToGroup || mode == 0600) << std::oct << mode << " of group " << status.st_gid;
        }
        ASSERT_TRUE(agent_.WaitUntilServing());
        ASSERT_EQ(agent_.Stop(), 0);
    }
}

TEST_F(Agent, RefusesAGroupThatIsNotThere) {
    WriteIni("SocketGroup = nobody we know\n");
    ExpectRefusal("There is no group 'nobody we know' for the control socket");
    EXPECT_EQ(CountInLog("Echo command"), 0U) << "the modules have not begun";
}

TEST_F(Agent, ReplacesTheSocketOfAKilledAgent) {
    ASSERT_TRUE(agent_.StartAndServe());
    agent_.Signal(SIGKILL);
    EXPECT_EQ(agent_.Wait(), -SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(agent_.GetSocketPath()));
    EXPECT_TRUE(agent_.StartAndServe()) << agent_.ReadStandardError();
    EXPECT_EQ(agent_.Stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(agent_.GetSocketPath()));
}

TEST_F(Agent, RefusesASocketThatAnotherOneServes) {
    ASSERT_TRUE(agent_.StartAndServe());
    AgentProcess other;
    other.arguments = {"--socket", agent_.GetSocketPath()};
    other.Start();
    EXPECT_EQ(other.Wait(), 1);
    EXPECT_NE(other.ReadLog().find("Cannot make the control socket " + agent_.GetSocketPath() +
                                   ": another process serves it\n"),
              std::string::npos);
    EXPECT_EQ(agent_.Request("GET", "/health").status, 200);
}

TEST_F(Agent, RefusesASocketPathThatItCannotUse) {
    agent_.GetScratch().Write("data/agent.sock", "precious");
    ExpectRefusal("Cannot make the control socket " + agent_.GetSocketPath() +
                  ": something that is not a socket is in the way");
    EXPECT_EQ(ReadWholeFile(agent_.GetSocketPath()), "precious");
    const std::string tooLong = "/tmp/" + std::string(120, 'x');
    agent_.arguments = {"--socket", tooLong};
    ExpectRefusal("The path of the control socket has 125 bytes, it must have 1 to 107: " + tooLong);
    EXPECT_EQ(CountInLog("Echo command"), 0U) << "the modules have not begun";
}

TEST_F(Agent, StopsItsModulesWhenTheSocketCannotBeMade) {
    agent_.arguments = {"--socket", agent_.GetScratch() / "missing/agent.sock"};
    agent_.Start();
    EXPECT_EQ(agent_.Wait(), 1);
    EXPECT_EQ(CountInLog("Echo library gone\n"), 1U);
    EXPECT_EQ(CountInLog(" error Agent The agent stops: Cannot make the control socket "), 1U);
}

TEST_F(Agent, KeepsASecondAgentFromItsDataDirectory) {
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string said = agent_.GetScratch() / "said";
    EXPECT_EQ(RunShell(BinaryDirectory() + "/lumagent --config-dir " + agent_.GetConfigDirectory() +
                       " --data-dir " + agent_.GetDataDirectory() + " --socket " + said + ".sock 2>" + said),
              "status 1");
    EXPECT_NE(ReadWholeFile(said).find(
                  "The agent does not start: Another agent (process " + std::to_string(agent_.GetId()) +
                  ") is running on the data directory " + agent_.GetDataDirectory() + "/\n"),
              std::string::npos);
    EXPECT_EQ(CountInLog("Another agent"), 0U) << "the log belongs to the first";
    EXPECT_EQ(agent_.Request("GET", "/health").status, 200);
}

TEST_F(Agent, LoadsTheOthersWhenAModuleFails) {
    const std::string broken = agent_.GetScratch().Write("broken.so", "no library");
    agent_.WriteIni("[Modules]\nMissing = missing.so\nEcho = Echo.so\nBroken = " + broken +
                    "\nThrowing = Throwing.so\nRelay = " + TestModule("Relay") + "\n");
    const std::string directory = BinaryDirectory() + "/../test_modules";
    agent_.arguments = {"--module-dir", directory};
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string modules = agent_.Request("GET", "/modules").body;
    EXPECT_LT(modules.find(R"({"name":"Echo",)"), modules.find(R"({"name":"Relay",)"));
    EXPECT_EQ(CountIn(modules, R"("name")"), 2U);
    EXPECT_EQ(CountInLog(" error Agent Module 'Missing' is not loaded from " + directory +
                         "/missing.so: No such file or directory\n"),
              1U);
    EXPECT_EQ(CountInLog(" error Agent Module 'Broken' is not loaded from " + broken + ": "), 1U);
    EXPECT_EQ(CountInLog(" error Agent Module 'Throwing' is not loaded from "), 1U);
    EXPECT_EQ(CountInLog(" error "), 3U);
}

TEST_F(Agent, StartsModulesInOrderAndEndsThemInReverse) {
    agent_.WriteIni("[Modules]\nRelay = " + TestModule("Relay") + "\nEcho = " + TestModule("Echo") + "\n");
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(agent_.Stop(), 0);
    const std::string log = agent_.ReadLog();
    std::size_t at = 0;
    for (const char* const line :
         {"Relay command 1\n", "Relay command 3\n", "Relay command 4\n", "Echo command 1\n",
          "Echo command 3\n", "Echo command 4\n", "The control socket is open",
          "The agent stops on SIGTERM\n", "Echo command 5\n", "Echo command 2\n", "Echo library gone\n",
          "Relay command 5\n", "Relay command 2\n", "Relay library gone\n", "The agent has stopped\n"}) {
        const std::size_t next = log.find(line, at);
        ASSERT_NE(next, std::string::npos) << line << log;
        at = next;
    }
}

TEST_F(Agent, RunsWithoutModulesWhereThereIsNoIni) {
    std::filesystem::remove_all(agent_.GetConfigDirectory());
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(agent_.Request("GET", "/modules").body, "[]");
    EXPECT_EQ(agent_.Request("GET", "/actions").body, "[]");
    EXPECT_EQ(CountInLog(" warning Agent There is no " + agent_.GetConfigDirectory() +
                         "/agent.ini, so no modules are loaded\n"),
              1U);
    EXPECT_EQ(CountInLog(" warning "), 1U);
    EXPECT_EQ(ModeOf(agent_.GetConfigDirectory()), 0700U);
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(Agent, WarnsOfWrongSettingsInItsLog) {
    WriteIni("Threads = many\n[Database]\nSynchronous = perhaps\n");
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(CountInLog("[Agent] Threads is a number from 1 to 256, not 'many': taken as 8\n"), 1U);
    EXPECT_EQ(CountInLog("[Database] Synchronous is 'full' or 'normal', not 'perhaps': taken as full\n"), 1U);
}

TEST_F(Agent, TakesItsSocketAndItsLevelFromTheCommandLineFirst) {
    WriteIni("Socket = other.sock\nLogLevel = trace\n");
    agent_.arguments = {"--socket", agent_.GetSocketPath(), "--log-level", "error"};
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(agent_.ReadLog(), "");
    EXPECT_FALSE(std::filesystem::exists(agent_.GetDataDirectory() + "/other.sock"));
}

TEST_F(Agent, SaysThatItsDataDirectoryCannotBeUsed) {
    const std::string data = agent_.GetScratch().Write("data", "a file in the way");
    agent_.Start();
    EXPECT_EQ(agent_.Wait(), 1);
    EXPECT_NE(agent_.ReadStandardError().find("Cannot make the directory '" + data + "': "),
              std::string::npos);
    std::filesystem::remove(data);
    for (const char* const name : {"/log", "/tmp"}) {
        agent_.GetScratch().Write("data" + std::string(name), "a file in the way");
        agent_.Start();
        EXPECT_EQ(agent_.Wait(), 1);
        EXPECT_NE(agent_.ReadStandardError().find("Cannot make the directory '" + data + name + "': "),
                  std::string::npos);
        std::filesystem::remove(data + name);
    }
    std::filesystem::remove_all(data + "/log");
    std::filesystem::create_directories(data + "/log/agent.log");
    ExpectRefusal("Cannot open the log " + data + "/log/agent.log: Is a directory");
}

TEST_F(Agent, SaysThatItsDataDirectoryIsReadOnly) {
    const std::string said = agent_.GetScratch() / "said";
    EXPECT_EQ(RunShell(BinaryDirectory() + "/lumagent --config-dir " + agent_.GetConfigDirectory() +
                       " --data-dir /proc/self 2>" + said),
              "status 1");
    EXPECT_NE(ReadWholeFile(said).find("The agent does not start: Cannot open /proc/self/agent.lock: "),
              std::string::npos);
}

TEST_F(Agent, SetsItsLogAsideUnderNumberedNames) {
    WriteIni("LogMaxBytes = 1000\nLogMaxFiles = 2\n");
    ASSERT_TRUE(agent_.StartAndServe());
    HttpClient client(agent_.GetSocketPath());
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(client.Request("POST", "/actions/EchoLog", R"({"Text":"a line of some length"})").status,
                  200);
    }
    const std::string log = agent_.GetDataDirectory() + "/log/agent.log";
    EXPECT_TRUE(std::filesystem::exists(log));
    EXPECT_TRUE(std::filesystem::exists(log + ".1"));
    EXPECT_TRUE(std::filesystem::exists(log + ".2"));
    EXPECT_FALSE(std::filesystem::exists(log + ".3"));
    EXPECT_LE(std::filesystem::file_size(log + ".1"), 1000U);
    EXPECT_EQ(ModeOf(log + ".1"), 0600U);
}

TEST_F(Agent, LogsTheSameToStandardErrorAndToItsFile) {
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(agent_.Stop(), 0);
    EXPECT_EQ(agent_.ReadLog(), agent_.ReadStandardError());
    EXPECT_EQ(CountInLog(" print Echo command 1\n"), 1U);
}

TEST_F(Agent, AnswersARunningActionWhenItIsToldToStop) {
    for (const int signal : {SIGTERM, SIGINT}) {
        ASSERT_TRUE(agent_.StartAndServe());
        HttpClient client(agent_.GetSocketPath());
        ASSERT_TRUE(client.SendRequest("POST", "/actions/EchoSleep", R"({"Milliseconds":300})"));
        // One thread reads all requests in turn: once this one is answered, the first has been taken in.
        EXPECT_EQ(agent_.Request("GET", "/health").status, 200);
        agent_.Signal(signal);
        EXPECT_EQ(client.ReadReply().body, R"({"status":0,"container":{"Milliseconds":300}})");
        EXPECT_EQ(agent_.Wait(), 0);
        EXPECT_FALSE(std::filesystem::exists(agent_.GetSocketPath()));
    }
    EXPECT_EQ(CountInLog("The agent stops on SIGTERM\n"), 1U);
    EXPECT_EQ(CountInLog("The agent stops on SIGINT\n"), 1U);
}

TEST_F(Agent, StopsInOrderWhenItIsToldToWhileItStarts) {
    agent_.WriteIni("[Modules]\nSlow = " + TestModule("Slow") + "\nEcho = " + TestModule("Echo") + "\n");
    agent_.Start();
    ASSERT_TRUE(agent_.WaitForLog("Slow command 3\n"));
    agent_.Signal(SIGTERM);
    agent_.GetScratch().Write("config/go", "");
    EXPECT_EQ(agent_.Wait(), 0);
    EXPECT_EQ(CountInLog("Slow command 4\n"), 1U);
    EXPECT_EQ(CountInLog("Slow command 5\n"), 1U);
    EXPECT_EQ(CountInLog("Slow library gone\n"), 1U);
    EXPECT_EQ(CountInLog("Echo command"), 0U);
    EXPECT_EQ(CountInLog("The control socket is open"), 0U);
}

TEST_F(Agent, HasNoSocketUntilItsModulesAreActive) {
    agent_.WriteIni("[Modules]\nSlow = " + TestModule("Slow") + "\n");
    agent_.Start();
    ASSERT_TRUE(agent_.WaitForLog("Slow command 3\n"));
    EXPECT_FALSE(std::filesystem::exists(agent_.GetSocketPath()));
    agent_.GetScratch().Write("config/go", "");
    EXPECT_TRUE(agent_.WaitUntilServing());
}

TEST_F(Agent, TellsTheServiceManagerWhenItIsReady) {
    const std::string path = agent_.GetScratch() / "notify";
    const int notified = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(notified, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    agent_.environment = "NOTIFY_SOCKET=" + path;
    agent_.Start();
    char buffer[64] = {};
    ASSERT_GT(::recv(notified, buffer, sizeof(buffer) - 1, 0), 0);
    EXPECT_STREQ(buffer, "READY=1");
    EXPECT_EQ(agent_.Request("GET", "/health").status, 200);
    EXPECT_EQ(agent_.Stop(), 0);
    ::close(notified);
}

TEST_F(Agent, EndsWithStatusTwoForAWrongCommandLine) {
    agent_.arguments = {"--log-level", "loud"};
    agent_.Start();
    EXPECT_EQ(agent_.Wait(), 2);
    agent_.arguments = {"--help"};
    agent_.Start();
    EXPECT_EQ(agent_.Wait(), 0);
}

}  // namespace
