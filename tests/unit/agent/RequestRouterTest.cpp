#include <string>

#include <gtest/gtest.h>

#include "agent/RequestRouter.h"
#include "host/core/ActionDb.h"
#include "support/LogLines.h"

namespace {

uint32_t Back(LumContainer* container) {
    int32_t status = 0;
    static_cast<void>(container->GetInt32("Status", status));
    return static_cast<uint32_t>(status);
}

class RequestRouter : public testing::Test {
protected:
    RequestRouter() {
        ActionDbRegisterAction("Back (container Values)", Back, &handle_);
        ActionDbRegisterAction("A+b/c ()", Back, &handle_);
    }
    ~RequestRouter() override { ActionDbUnregisterModule(&handle_); }

    [[nodiscard]] HttpAnswer Route(std::string_view method, std::string_view target,
                                   std::string_view body = {}) const {
        return RouteRequest(modules_, method, target, body);
    }

    /// Expects an error with this status and sentence.
    void ExpectError(const HttpAnswer& answer, unsigned status, const std::string& sentence) {
        EXPECT_EQ(answer.status, status);
        EXPECT_EQ(answer.body, "{\"error\":\"" + sentence + "\"}");
    }

    HostLogLines log_;
    LumAgentHandle handle_{"Tester"};
    std::vector<ModuleInfo> modules_{{"Tester", "/m/Tester.so", "A \"tester\"", "1.0"},
                                     {"Other", "/m/O.so", "", ""}};
};

TEST_F(RequestRouter, SaysThatItIsHealthy) {
    const HttpAnswer answer = Route("GET", "/health");
    EXPECT_EQ(answer.status, 200U);
    EXPECT_EQ(answer.body, R"({"status":"ok"})");
    EXPECT_EQ(answer.allow, "");
}

TEST_F(RequestRouter, ListsModulesInOrder) {
    const HttpAnswer answer = Route("GET", "/modules");
    EXPECT_EQ(answer.status, 200U);
    EXPECT_EQ(answer.body,
              R"([{"name":"Tester","file":"/m/Tester.so","description":"A \"tester\"","version":"1.0"},)"
              R"({"name":"Other","file":"/m/O.so","description":"","version":""}])");
}

TEST_F(RequestRouter, ListsNoModulesAsAnEmptyArray) {
    modules_.clear();
    EXPECT_EQ(Route("GET", "/modules").body, "[]");
}

TEST_F(RequestRouter, ListsActionsInOrderOfRegistration) {
    const HttpAnswer answer = Route("GET", "/actions");
    EXPECT_EQ(answer.status, 200U);
    const std::string back = R"-({"name":"Back","signature":"Back (container Values)","module":"Tester"})-";
    const std::string odd = R"-({"name":"A+b/c","signature":"A+b/c ()","module":"Tester"})-";
    EXPECT_EQ(answer.body, "[" + back + "," + odd + "]");
}

TEST_F(RequestRouter, AnswersAnActionWithItsStatusAndContainer) {
    const HttpAnswer answer =
        Route("POST", "/actions/Back", R"({"Status":-1,"List":["a",null,"b"],"Zero":0.0})");
    EXPECT_EQ(answer.status, 200U);
    EXPECT_EQ(answer.body,
              R"({"status":4294967295,"container":{"Status":-1,"List":["a",null,"b"],"Zero":0.0}})");
}

TEST_F(RequestRouter, TakesAnEmptyBodyForTheEmptyContainer) {
    EXPECT_EQ(Route("POST", "/actions/Back").body, R"({"status":0,"container":{}})");
}

TEST_F(RequestRouter, RefusesABodyThatIsNoContainer) {
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

TEST_F(RequestRouter, DecodesPercentSignsInThePath) {
    EXPECT_EQ(Route("POST", "/actions/%42ac%6B").status, 200U);
    EXPECT_EQ(Route("POST", "/actions/A%2Bb%2fc").status, 200U);
    EXPECT_EQ(Route("POST", "/actions/A+b/c").status, 200U) << "a plus is a plus in a path";
    EXPECT_EQ(Route("GET", "/%68ealth").status, 200U);
}

TEST_F(RequestRouter, RefusesBrokenPercentEncoding) {
    for (const char* const target : {"/actions/%", "/actions/%4", "/actions/%4g", "/actions/%g4", "/%zz"}) {
        ExpectError(Route("POST", target), 400, "The path is not properly percent-encoded.");
    }
}

TEST_F(RequestRouter, IgnoresAQueryAndTakesATargetWithHost) {
    EXPECT_EQ(Route("GET", "/health?verbose=1&x=%").status, 200U);
    EXPECT_EQ(Route("GET", "http://agent/health").status, 200U);
    EXPECT_EQ(Route("GET", "http://agent").status, 404U);
}

TEST_F(RequestRouter, SaysWhatIsNotThere) {
    ExpectError(Route("GET", "/nothing"), 404, "There is no path '/nothing'.");
    ExpectError(Route("GET", "/"), 404, "There is no path '/'.");
    ExpectError(Route("GET", "/health/"), 404, "There is no path '/health/'.");
    ExpectError(Route("POST", "/actions/Nobody"), 404, "There is no action 'Nobody'.");
    ExpectError(Route("POST", "/actions/"), 404, "There is no action ''.");
    ExpectError(Route("POST", "/actions/Nobody", "no json"), 404, "There is no action 'Nobody'.");
    ExpectError(Route("POST", "/actions/%22%0a%ff"), 404, "There is no action '\\\"\\n\xEF\xBF\xBD'.");
}

TEST_F(RequestRouter, SaysWhichMethodsAPathTakes) {
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

TEST_F(RequestRouter, AnswersAnActionThatThrowsWithStatusOne) {
    ActionDbRegisterAction(
        "Throw ()", [](LumContainer*) -> uint32_t { throw 1; }, &handle_);
    EXPECT_EQ(Route("POST", "/actions/Throw", R"({"a":true})").body,
              R"({"status":1,"container":{"a":true}})");
}

TEST_F(RequestRouter, TellsRequestsThatRunActions) {
    EXPECT_TRUE(IsActionRequest("POST"));
    EXPECT_FALSE(IsActionRequest("GET"));
}

}  // namespace
