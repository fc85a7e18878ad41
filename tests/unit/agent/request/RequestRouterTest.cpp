#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "agent/request/RequestRouter.h"
#include "host/core/ActionDb.h"
#include "support/LogReader.h"

namespace {

uint32_t Back(LumContainer* container) {
    int32_t status = 0;
    static_cast<void>(container->GetInt32("Status", status));
    return static_cast<uint32_t>(status);
}

class RequestRouterTest : public testing::Test {
protected:
    RequestRouterTest() {
        ActionDbRegisterAction("Back (container Values)", Back, &handle_);
        ActionDbRegisterAction("A+b/c ()", Back, &handle_);
    }
    ~RequestRouterTest() override { ActionDbUnregisterModule(&handle_); }

    [[nodiscard]] HttpAnswer Route(std::string_view method, std::string_view target,
                                   std::string_view body = {}) const {
        RequestRouter router = MakeRouter();
        return router.Answer({method, target, body, client_});
    }
    [[nodiscard]] RequestRouter MakeRouter() const {
        return RequestRouter({modules_, access_, [this] { return reasons_; }, [this] { return GetStatus(); },
                              [] { return "metric 1\n"; }},
                             debug_);
    }
    [[nodiscard]] std::string GetStatus() const {
        if (!hasStatus_) {
            throw std::runtime_error("no status today");
        }
        return "{}";
    }

    /// Expects an error with this status and sentence.
    void ExpectError(const HttpAnswer& answer, unsigned status, const std::string& sentence) {
        EXPECT_EQ(answer.status, status);
        EXPECT_EQ(answer.body, "{\"error\":\"" + sentence + "\"}");
    }

    HostLogLines log_;
    mutable LumDebug debug_{"Agent", "test"};
    LumAgentHandle handle_{"Tester"};
    AccessRules access_;
    Client client_{true, ::geteuid(), {::getegid()}};
    std::vector<LumString> reasons_;
    bool hasStatus_ = true;
    std::vector<ModuleInfo> modules_{{"Tester", "/m/Tester.so", "A \"tester\"", "1.0"},
                                     {"Other", "/m/O.so", "", ""}};
};

TEST_F(RequestRouterTest, SaysThatItIsHealthy) {
    const HttpAnswer answer = Route("GET", "/health");
    EXPECT_EQ(answer.status, 200U);
    EXPECT_EQ(answer.body, R"({"status":"ok"})");
    EXPECT_EQ(answer.allow, "");
}

TEST_F(RequestRouterTest, ListsModulesInOrder) {
    const HttpAnswer answer = Route("GET", "/modules");
    EXPECT_EQ(answer.status, 200U);
    EXPECT_EQ(answer.body,
              R"([{"name":"Tester","file":"/m/Tester.so","description":"A \"tester\"","version":"1.0"},)"
              R"({"name":"Other","file":"/m/O.so","description":"","version":""}])");
}

TEST_F(RequestRouterTest, ListsNoModulesAsAnEmptyArray) {
    modules_.clear();
    EXPECT_EQ(Route("GET", "/modules").body, "[]");
}

TEST_F(RequestRouterTest, ListsActionsInOrderOfRegistration) {
    const HttpAnswer answer = Route("GET", "/actions");
    EXPECT_EQ(answer.status, 200U);
    const std::string back = R"-({"name":"Back","signature":"Back (container Values)","module":"Tester"})-";
    const std::string odd = R"-({"name":"A+b/c","signature":"A+b/c ()","module":"Tester"})-";
    EXPECT_EQ(answer.body, "[" + back + "," + odd + "]");
}

TEST_F(RequestRouterTest, AnswersAnActionWithItsStatusAndContainer) {
    const HttpAnswer answer =
        Route("POST", "/actions/Back", R"({"Status":-1,"List":["a",null,"b"],"Zero":0.0})");
    EXPECT_EQ(answer.status, 200U);
    EXPECT_EQ(answer.body,
              R"({"status":4294967295,"container":{"Status":-1,"List":["a",null,"b"],"Zero":0.0}})");
}

TEST_F(RequestRouterTest, TakesAnEmptyBodyForTheEmptyContainer) {
    EXPECT_EQ(Route("POST", "/actions/Back").body, R"({"status":0,"container":{}})");
}

TEST_F(RequestRouterTest, RefusesABodyThatIsNoContainer) {
    std::string deep = "{}";
    for (int i = 0; i < 32; ++i) {
        deep = R"({"a":)" + deep + "}";
    }
    const std::string bodies[] = {"[1]", "7", "{", "no json", R"({"a":[[1]]})", R"({"a":4294967296})", deep};
    for (const std::string& body : bodies) {
        const HttpAnswer answer = Route("POST", "/actions/Back", body);
        EXPECT_EQ(answer.status, 400U) << body;
        EXPECT_EQ(answer.body.find(R"({"error":"The body is not a container: )"), 0U) << answer.body;
    }
    const std::string withinLimit = deep.substr(5, deep.size() - 6);
    EXPECT_EQ(Route("POST", "/actions/Back", withinLimit).status, 200U);
}

TEST_F(RequestRouterTest, DecodesPercentSignsInThePath) {
    EXPECT_EQ(Route("POST", "/actions/%42ac%6B").status, 200U);
    EXPECT_EQ(Route("POST", "/actions/A%2Bb%2fc").status, 200U);
    EXPECT_EQ(Route("POST", "/actions/A+b/c").status, 200U) << "a plus is a plus in a path";
    EXPECT_EQ(Route("GET", "/%68ealth").status, 200U);
}

TEST_F(RequestRouterTest, RefusesBrokenPercentEncoding) {
    for (const char* const target : {"/actions/%", "/actions/%4", "/actions/%4g", "/actions/%g4", "/%zz"}) {
        ExpectError(Route("POST", target), 400, "The path is not properly percent-encoded.");
    }
}

TEST_F(RequestRouterTest, IgnoresAQueryAndTakesATargetWithHost) {
    EXPECT_EQ(Route("GET", "/health?verbose=1&x=%").status, 200U);
    EXPECT_EQ(Route("GET", "http://agent/health").status, 200U);
    EXPECT_EQ(Route("GET", "http://agent").status, 404U);
}

TEST_F(RequestRouterTest, SaysWhatIsNotThere) {
    ExpectError(Route("GET", "/nothing"), 404, "There is no path '/nothing'.");
    ExpectError(Route("GET", "/"), 404, "There is no path '/'.");
    ExpectError(Route("GET", "/health/"), 404, "There is no path '/health/'.");
    ExpectError(Route("POST", "/actions/Nobody"), 404, "There is no action 'Nobody'.");
    ExpectError(Route("POST", "/actions/"), 404, "There is no action ''.");
    ExpectError(Route("POST", "/actions/Nobody", "no json"), 404, "There is no action 'Nobody'.");
    ExpectError(Route("POST", "/actions/%22%0a%ff"), 404, "There is no action '\\\"\\n\xEF\xBF\xBD'.");
}

TEST_F(RequestRouterTest, SaysWhichMethodsAPathTakes) {
    const struct {
        const char* method;
        const char* target;
        const char* allow;
    } cases[] = {{"POST", "/health", "GET"},
                 {"POST", "/modules", "GET"},
                 {"POST", "/actions", "GET"},
                 {"GET", "/actions/Back", "POST"},
                 {"PUT", "/actions/Back", "GET, POST"},
                 {"HEAD", "/health", "GET, POST"},
                 {"OPTIONS", "*", "GET, POST"},
                 {"DELETE", "/nothing", "GET, POST"}};
    for (const auto& test : cases) {
        const HttpAnswer answer = Route(test.method, test.target);
        ExpectError(
            answer, 405,
            "The method " + std::string(test.method) + " is not allowed here, only " + test.allow + ".");
        EXPECT_EQ(answer.allow, test.allow) << test.method << test.target;
    }
}

TEST_F(RequestRouterTest, AnswersAnActionThatThrowsWithStatusOne) {
    ActionDbRegisterAction(
        "Throw ()", [](LumContainer*) -> uint32_t { throw 1; }, &handle_);
    EXPECT_EQ(Route("POST", "/actions/Throw", R"({"a":true})").body,
              R"({"status":1,"container":{"a":true}})");
}

TEST_F(RequestRouterTest, TellsWhereARequestIsAnswered) {
    RequestRouter router = MakeRouter();
    const auto classify = [&](const char* method, const char* target) {
        return router.Classify({method, target, "", client_});
    };
    EXPECT_EQ(classify("POST", "/actions/Back"), RequestKind::kAction);
    EXPECT_EQ(classify("POST", "/batch/Back"), RequestKind::kBatch);
    EXPECT_EQ(classify("GET", "/health?x"), RequestKind::kObserving);
    EXPECT_EQ(classify("GET", "/metrics"), RequestKind::kObserving);
    EXPECT_EQ(classify("GET", "/actions"), RequestKind::kImmediate);
    EXPECT_EQ(classify("GET", "/batch/Back"), RequestKind::kImmediate);
    EXPECT_EQ(classify("GET", "/%zz"), RequestKind::kImmediate);
}

TEST_F(RequestRouterTest, SaysWhatSpeaksAgainstItsHealth) {
    reasons_ = {"The disk is \"full\".", "No module."};
    const HttpAnswer answer = Route("GET", "/health");
    EXPECT_EQ(answer.status, 503U);
    EXPECT_EQ(answer.body, R"({"status":"degraded","reasons":["The disk is \"full\".","No module."]})");
}

TEST_F(RequestRouterTest, ShowsStatusAndMetrics) {
    EXPECT_EQ(Route("GET", "/status").body, "{}");
    const HttpAnswer metrics = Route("GET", "/metrics");
    EXPECT_EQ(metrics.body, "metric 1\n");
    EXPECT_EQ(metrics.contentType, "text/plain; version=0.0.4; charset=utf-8");
}

TEST_F(RequestRouterTest, SaysThatARequestFailed) {
    hasStatus_ = false;
    ExpectError(Route("GET", "/status"), 500, "The request failed: no status today.");
}

TEST_F(RequestRouterTest, ExplainsACallWithItsWarningsAndErrors) {
    ActionDbRegisterAction(
        "Complain ()",
        [](LumContainer*) -> uint32_t {
            LumHostDebug().WarningWithNL("first \"one\"");
            LumHostDebug().PrintWithNL("not this");
            LumHostDebug().ErrorWithNL("second");
            return 13;
        },
        &handle_);
    EXPECT_EQ(
        Route("POST", "/actions/Complain?explain=1").body,
        R"({"status":13,"container":{},"messages":["warning Host first \"one\"","error Host second"]})");
    EXPECT_EQ(Route("POST", "/actions/Back?explain=1").body, R"({"status":0,"container":{},"messages":[]})");
    EXPECT_EQ(Route("POST", "/actions/Complain?explain=0").body, R"({"status":13,"container":{}})");
}

TEST_F(RequestRouterTest, WritesDownWhoCalledWhatChangesSomething) {
    debug_.SetContext(&log_.Context());
    ActionDbRegisterAction("EventLogManagerCreateEvent ()", Back, &handle_);
    ActionDbRegisterAction("EventLogManagerDeleteEvents ()", Back, &handle_);
    static_cast<void>(Route("POST", "/actions/EventLogManagerCreateEvent"));
    EXPECT_EQ(log_.Count(" called "), 0U);
    static_cast<void>(Route("POST", "/actions/EventLogManagerDeleteEvents", R"({"Status":13})"));
    EXPECT_EQ(log_.Count("print Agent User " + std::to_string(::geteuid()) + " (" +
                         UserName(::geteuid()).GetString() +
                         R"() called EventLogManagerDeleteEvents with {"Status":13}: status 13)" + "\n"),
              1U);
}

TEST_F(RequestRouterTest, WritesDownTheBeginningOfLongArguments) {
    debug_.SetContext(&log_.Context());
    ActionDbRegisterAction("EventLogManagerDeleteEvents ()", Back, &handle_);
    static_cast<void>(Route("POST", "/actions/EventLogManagerDeleteEvents",
                            R"({"Text":")" + std::string(400, 'x') + "\"}"));
    EXPECT_EQ(log_.Count(R"( with {"Text":")" + std::string(291, 'x') + "...: status 0\n"), 1U);
}

TEST_F(RequestRouterTest, RefusesWhatTheClientsGroupsDoNotAllow) {
    ActionDbRegisterAction("EventLogManagerGetEvents ()", Back, &handle_);
    client_ = {true, 4'000'000'001U, {5}};
    access_.administer = 7;
    access_.read = 8;
    const HttpAnswer answer = Route("POST", "/actions/EventLogManagerGetEvents");
    ExpectError(answer, 403,
                "User 4000000001 may not read: [Agent] ReadGroup in agent.ini names the group that may.");
    EXPECT_EQ(Route("GET", "/metrics").status, 403U);
    EXPECT_EQ(Route("GET", "/health").status, 200U);
    EXPECT_EQ(Route("POST", "/actions/Back").status, 403U);
    client_.groups.push_back(8);
    EXPECT_EQ(Route("POST", "/actions/EventLogManagerGetEvents").status, 200U);
    EXPECT_EQ(Route("GET", "/status").status, 200U);
    EXPECT_EQ(Route("POST", "/actions/Back").status, 403U);
    HttpAnswer refusal;
    RequestRouter router = MakeRouter();
    EXPECT_EQ(router.OpenBatch({"POST", "/batch/Back", "", client_}, refusal), nullptr);
    EXPECT_EQ(refusal.status, 403U);
}

TEST_F(RequestRouterTest, ShowsClientsOfTheNetworkMetricsAndHealthAlone) {
    client_ = {};
    EXPECT_EQ(Route("GET", "/metrics").status, 200U);
    EXPECT_EQ(Route("GET", "/health").status, 200U);
    for (const char* const target : {"/status", "/modules", "/actions"}) {
        ExpectError(Route("GET", target), 403,
                    "This address serves /metrics alone; the rest is on the control socket.");
    }
    EXPECT_EQ(Route("POST", "/actions/Back").status, 403U);
}

TEST_F(RequestRouterTest, OpensABatchForAnActionThatIsThere) {
    HttpAnswer refusal;
    RequestRouter router = MakeRouter();
    EXPECT_EQ(router.OpenBatch({"POST", "/batch/Nobody", "", client_}, refusal), nullptr);
    ExpectError(refusal, 404, "There is no action 'Nobody'.");
    const std::unique_ptr<BatchStream> batch =
        router.OpenBatch({"POST", "/batch/Back", "", client_}, refusal);
    ASSERT_NE(batch, nullptr);
    batch->Take(R"({"Status":3})", true);
    std::string answers;
    EXPECT_FALSE(batch->Work(answers));
    EXPECT_EQ(answers, "{\"line\":1,\"status\":3,\"container\":{\"Status\":3}}\n");
    ExpectError(Route("GET", "/batch/Back"), 405, "The method GET is not allowed here, only POST.");
}

}  // namespace
