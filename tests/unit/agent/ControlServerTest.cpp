#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "agent/ControlServer.h"
#include "agent/ControlSocket.h"
#include "support/HttpClient.h"
#include "support/LogLines.h"
#include "support/WaitFor.h"

namespace {

constexpr std::size_t kMaxBody = ControlServer::kMaxBody;

/// A server in this process whose handler says what it was asked. "/wait" waits until Release; "/big" answers
/// as many bytes as its body says.
class ControlServerTest : public testing::Test {
protected:
    /// Short enough for a test to wait for, long enough for a client on a busy machine to get on.
    static constexpr uint32_t kShortTimeoutMs = 400;

    ~ControlServerTest() override {
        Release();
        server_.reset();
    }

    void Start(uint32_t clientTimeoutMs = 30'000, std::size_t maxConnections = 1000, uint32_t threads = 2) {
        debug_.SetContext(&log_.Context());
        server_ = std::make_unique<ControlServer>(
            ControlServerOptions{threads, clientTimeoutMs, maxConnections},
            [this](std::string_view method, std::string_view target, std::string_view body) {
                return Answer(method, target, body);
            },
            debug_);
        LumString error;
        ASSERT_TRUE(socket_.Open(LumString(std::string_view(path_)), std::nullopt, error))
            << error.GetString();
        ASSERT_TRUE(server_->Start(socket_.ReleaseListener()));
    }

    HttpAnswer Answer(std::string_view method, std::string_view target, std::string_view body) {
        if (target == "/wait") {
            std::unique_lock<std::mutex> guard(mutex_);
            ++waiting_;
            changed_.notify_all();
            changed_.wait(guard, [this] { return isReleased_; });
        }
        if (target == "/big") {
            return {200, std::string(std::stoul(std::string(body)), 'x'), {}};
        }
        if (method == "HEAD") {
            return {405, "{}", "GET, POST"};
        }
        return {200, std::string(method) + " " + std::string(target) + " " + std::to_string(body.size()), {}};
    }

    [[nodiscard]] bool WaitUntilWaiting(int count) {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(30), [&] { return waiting_ >= count; });
    }
    void Release() {
        const std::lock_guard<std::mutex> guard(mutex_);
        isReleased_ = true;
        changed_.notify_all();
    }
    [[nodiscard]] HttpClient Connect() const { return HttpClient(path_); }

    TempDirectory scratch_;
    const std::string path_ = scratch_ / "s";
    HostLogLines log_;
    LumDebug debug_{"Agent", "test"};
    ControlSocket socket_;
    std::unique_ptr<ControlServer> server_;

    std::mutex mutex_;
    std::condition_variable changed_;
    int waiting_ = 0;
    bool isReleased_ = false;
};

TEST_F(ControlServerTest, AnswersInJsonWithItsLength) {
    Start();
    const HttpReply reply = Connect().Request("GET", "/health");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.body, "GET /health 0");
    EXPECT_NE(reply.header.find("HTTP/1.1 200 OK\r\n"), std::string::npos);
    EXPECT_NE(reply.header.find("\r\nContent-Type: application/json\r\n"), std::string::npos);
    EXPECT_NE(reply.header.find("\r\nContent-Length: 13\r\n"), std::string::npos);
}

TEST_F(ControlServerTest, KeepsAConnectionForFurtherRequests) {
    Start();
    HttpClient client = Connect();
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(client.Request("POST", "/a", std::string(static_cast<std::size_t>(i), 'b')).body,
                  "POST /a " + std::to_string(i));
    }
}

TEST_F(ControlServerTest, AnswersPipelinedRequestsInTheirOrder) {
    Start();
    HttpClient client = Connect();
    std::string requests;
    for (int i = 0; i < 20; ++i) {
        const std::string body(static_cast<std::size_t>(i), 'b');
        requests += i % 2 == 0 ? "GET /" + std::to_string(i) + " HTTP/1.1\r\nHost: a\r\n\r\n"
                               : "POST /" + std::to_string(i) +
                                     " HTTP/1.1\r\nHost: a\r\nContent-Length: " + std::to_string(i) +
                                     "\r\n\r\n" + body;
    }
    ASSERT_TRUE(client.Send(requests));
    client.EndSending();
    for (int i = 0; i < 20; ++i) {
        const std::string number = std::to_string(i);
        EXPECT_EQ(client.ReadReply().body,
                  i % 2 == 0 ? "GET /" + number + " 0" : "POST /" + number + " " + number);
    }
    EXPECT_TRUE(client.WaitForEnd());
}

TEST_F(ControlServerTest, EndsAConnectionWhenItIsAskedTo) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(client.Send("GET /a HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n"));
    const HttpReply reply = client.ReadReply();
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(reply.header.find("\r\nConnection: close\r\n"), std::string::npos);
    EXPECT_TRUE(client.WaitForEnd());
    HttpClient older = Connect();
    ASSERT_TRUE(older.Send("GET /a HTTP/1.0\r\n\r\n"));
    EXPECT_EQ(older.ReadReply().body, "GET /a 0");
    EXPECT_TRUE(older.WaitForEnd());
}

TEST_F(ControlServerTest, AnswersHeadWithoutABody) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(client.SendRequest("HEAD", "/a"));
    const HttpReply reply = client.ReadReply(false);
    EXPECT_EQ(reply.status, 405);
    EXPECT_NE(reply.header.find("\r\nAllow: GET, POST\r\n"), std::string::npos);
    EXPECT_NE(reply.header.find("\r\nContent-Length: 2\r\n"), std::string::npos);
    EXPECT_EQ(client.Request("GET", "/b").body, "GET /b 0");
}

TEST_F(ControlServerTest, TakesABodyInChunks) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(
        client.Send("POST /a HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n"
                    "3\r\nabc\r\n10;x=y\r\n0123456789abcdef\r\n0\r\n\r\n"));
    EXPECT_EQ(client.ReadReply().body, "POST /a 19");
}

TEST_F(ControlServerTest, TakesABodyOfExactlyTheLimit) {
    Start();
    HttpClient client = Connect();
    EXPECT_EQ(client.Request("POST", "/a", std::string(kMaxBody, 'x')).body,
              "POST /a " + std::to_string(kMaxBody));
}

TEST_F(ControlServerTest, RefusesATooLongBodyAsSoonAsItIsAnnounced) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(client.Send("POST /a HTTP/1.1\r\nHost: a\r\nContent-Length: " + std::to_string(kMaxBody + 1) +
                            "\r\n\r\n"));
    const HttpReply reply = client.ReadReply();
    EXPECT_EQ(reply.status, 413);
    EXPECT_EQ(reply.body, R"({"error":"The body is longer than 16777216 bytes."})");
    EXPECT_TRUE(client.WaitForEnd());
}

TEST_F(ControlServerTest, LetsAClientThatSendsOnSeeTheRefusal) {
    Start();
    HttpClient client = Connect();
    EXPECT_EQ(client.Request("POST", "/a", std::string(kMaxBody + 1, 'x')).status, 413);
}

TEST_F(ControlServerTest, CountsABodyInChunks) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(client.Send("POST /a HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n"));
    const std::string chunk = "100000\r\n" + std::string(0x100000, 'x') + "\r\n";
    for (int i = 0; i < 16; ++i) {
        ASSERT_TRUE(client.Send(chunk));
    }
    ASSERT_TRUE(client.Send("1\r\nx\r\n0\r\n\r\n"));
    EXPECT_EQ(client.ReadReply().status, 413);
}

TEST_F(ControlServerTest, AsksForABodyThatWaitsForIt) {
    Start();
    HttpClient client = Connect();
    const std::string header =
        "POST /a HTTP/1.1\r\nHost: a\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\n";
    ASSERT_TRUE(client.Send(header));
    EXPECT_EQ(client.ReadReply(false).status, 100);
    ASSERT_TRUE(client.Send("abc"));
    EXPECT_EQ(client.ReadReply().body, "POST /a 3");
    ASSERT_TRUE(client.Send(header + "abc"));
    HttpReply reply = client.ReadReply(false);
    if (reply.status == 100) {
        reply = client.ReadReply();
    }
    EXPECT_EQ(reply.status, 200) << "a client that does not wait is served as well";
}

TEST_F(ControlServerTest, RefusesATooLongBodyInsteadOfAskingForIt) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(client.Send(
        "POST /a HTTP/1.1\r\nHost: a\r\nExpect: 100-continue\r\nContent-Length: 99999999\r\n\r\n"));
    EXPECT_EQ(client.ReadReply().status, 413);
}

TEST_F(ControlServerTest, RefusesWhatIsNoHttp) {
    Start();
    for (const std::string& request :
         {std::string("hello\r\n\r\n"), std::string("\x16\x03\x01\x02\x00\x01\r\n\r\n", 10),
          std::string("GET / HTTP/3.7\r\n\r\n"), "GET /" + std::string(40'000, 'x') + " HTTP/1.1\r\n\r\n",
          std::string("POST /a HTTP/1.1\r\nContent-Length: many\r\n\r\n"),
          std::string("POST /a HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nab"),
          std::string("POST /a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n")}) {
        HttpClient client = Connect();
        client.Send(request);
        const HttpReply reply = client.ReadReply();
        EXPECT_EQ(reply.status, 400) << request.substr(0, 60);
        EXPECT_EQ(reply.body.find(R"({"error":"The request is not HTTP that can be read: )"), 0U)
            << reply.body;
        EXPECT_TRUE(client.WaitForEnd());
    }
}

TEST_F(ControlServerTest, DropsAClientThatIsIdle) {
    Start(kShortTimeoutMs);
    HttpClient client = Connect();
    EXPECT_TRUE(client.WaitForEnd());
    HttpClient served = Connect();
    EXPECT_EQ(served.Request("GET", "/a").status, 200);
    EXPECT_TRUE(served.WaitForEnd());
}

TEST_F(ControlServerTest, DropsAClientThatStopsInTheMiddle) {
    Start(kShortTimeoutMs);
    HttpClient inHeader = Connect();
    ASSERT_TRUE(inHeader.Send("POST /a HTTP/1.1\r\nHo"));
    HttpClient inBody = Connect();
    ASSERT_TRUE(inBody.Send("POST /a HTTP/1.1\r\nHost: a\r\nContent-Length: 10\r\n\r\nabc"));
    HttpClient beforeBody = Connect();
    ASSERT_TRUE(beforeBody.Send("POST /a HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 10\r\n\r\n"));
    EXPECT_EQ(beforeBody.ReadReply(false).status, 100);
    EXPECT_TRUE(inHeader.WaitForEnd());
    EXPECT_TRUE(inBody.WaitForEnd());
    EXPECT_TRUE(beforeBody.WaitForEnd());
}

TEST_F(ControlServerTest, DropsAClientThatDoesNotReadItsAnswer) {
    Start(kShortTimeoutMs, 1);
    HttpClient client = Connect();
    ASSERT_TRUE(client.SendRequest("POST", "/big", "20000000"));
    // The only place is taken by the first client until it is dropped.
    HttpClient next = Connect();
    EXPECT_EQ(next.Request("GET", "/a").status, 200);
    EXPECT_EQ(client.ReadReply().status, 0) << "the rest of the answer was given up";
}

TEST_F(ControlServerTest, SendsALongAnswerInPieces) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(client.SendRequest("POST", "/big", "20000000"));
    const HttpReply reply = client.ReadReply();
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.body.size(), 20'000'000U);
}

TEST_F(ControlServerTest, DropsAClientThatNeverStopsSendingAfterARefusal) {
    Start(kShortTimeoutMs);
    HttpClient client = Connect();
    ASSERT_TRUE(client.Send("hello\r\n\r\n"));
    EXPECT_TRUE(WaitFor([&] { return !client.Send("more"); }));
}

TEST_F(ControlServerTest, DoesNotDropAClientWhileItsActionRuns) {
    Start(kShortTimeoutMs);
    HttpClient client = Connect();
    ASSERT_TRUE(client.SendRequest("POST", "/wait"));
    ASSERT_TRUE(WaitUntilWaiting(1));
    HttpClient idle = Connect();
    EXPECT_TRUE(idle.WaitForEnd()) << "the time of the others has passed";
    Release();
    EXPECT_EQ(client.ReadReply().body, "POST /wait 0");
}

TEST_F(ControlServerTest, RunsSeveralActionsAtOnceAndAnswersOthersMeanwhile) {
    Start();
    HttpClient first = Connect();
    HttpClient second = Connect();
    HttpClient queued = Connect();
    ASSERT_TRUE(first.SendRequest("POST", "/wait"));
    ASSERT_TRUE(second.SendRequest("POST", "/wait"));
    ASSERT_TRUE(WaitUntilWaiting(2));
    ASSERT_TRUE(queued.SendRequest("POST", "/a"));
    EXPECT_EQ(Connect().Request("GET", "/health").status, 200) << "although every action thread is busy";
    Release();
    EXPECT_EQ(first.ReadReply().status, 200);
    EXPECT_EQ(second.ReadReply().status, 200);
    EXPECT_EQ(queued.ReadReply().status, 200);
}

TEST_F(ControlServerTest, LetsFurtherClientsWaitWhenEveryPlaceIsTaken) {
    Start(kShortTimeoutMs / 2, 5);
    std::vector<HttpClient> idle;
    for (int i = 0; i < 20; ++i) {
        idle.push_back(Connect());
    }
    HttpClient client = Connect();
    EXPECT_EQ(client.Request("GET", "/a").status, 200);
}

TEST_F(ControlServerTest, AnswersARequestThatIsRunningWhenItStops) {
    Start();
    HttpClient running = Connect();
    HttpClient idle = Connect();
    ASSERT_TRUE(running.SendRequest("POST", "/wait"));
    ASSERT_TRUE(WaitUntilWaiting(1));
    std::atomic<bool> hasStopped = false;
    std::thread stopper([&] {
        server_->Stop();
        hasStopped = true;
    });
    EXPECT_TRUE(idle.WaitForEnd());
    EXPECT_FALSE(hasStopped);
    Release();
    const HttpReply reply = running.ReadReply();
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(reply.header.find("\r\nConnection: close\r\n"), std::string::npos);
    EXPECT_TRUE(running.WaitForEnd());
    stopper.join();
    EXPECT_FALSE(Connect().IsConnected());
}

TEST_F(ControlServerTest, StopsTwiceAndWithoutStartInPeace) {
    Start();
    server_->Stop();
    server_->Stop();
    const ControlServer never({}, nullptr, debug_);
}

TEST_F(ControlServerTest, RefusesADescriptorThatIsNoSocket) {
    debug_.SetContext(&log_.Context());
    ControlServer server({}, nullptr, debug_);
    EXPECT_FALSE(server.Start(FileDescriptor()));
    EXPECT_EQ(log_.Count("error Agent Cannot serve the control socket: "), 1U);
}

TEST_F(ControlServerTest, SurvivesClientsThatVanish) {
    Start();
    for (int i = 0; i < 100; ++i) {
        const HttpClient client = Connect();
        if (i % 4 == 1) {
            client.Send("POST /a HTTP/1.1\r\nConte");
        } else if (i % 4 == 2) {
            client.SendRequest("POST", "/big", "3000000");
        } else if (i % 4 == 3) {
            client.Send("POST /a HTTP/1.1\r\nContent-Length: 5\r\n\r\nab");
        }
    }
    EXPECT_EQ(Connect().Request("GET", "/a").status, 200);
}

}  // namespace
