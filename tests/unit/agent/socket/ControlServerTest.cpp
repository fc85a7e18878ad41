#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "agent/socket/ControlServer.h"
#include "agent/socket/ControlSocket.h"
#include "support/HttpClient.h"
#include "support/LogReader.h"
#include "support/WaitFor.h"

namespace {

constexpr std::size_t kMaxBody = ControlServer::kMaxBody;

/// Gives the length of every line back; a line that is "throw" runs out of memory.
class LengthLines : public BatchStream {
public:
    void Take(std::string_view bytes, bool isLast) override {
        pending_.append(bytes);
        isLast_ = isLast;
    }
    [[nodiscard]] bool Work(std::string& answers) override {
        for (std::size_t end = 0; (end = pending_.find('\n')) != std::string::npos;) {
            if (pending_.starts_with("throw\n")) {
                throw std::bad_alloc();
            }
            answers += std::to_string(end) + "\n";
            pending_.erase(0, end + 1);
        }
        answers += isLast_ ? "end\n" : "";
        return false;
    }
    [[nodiscard]] std::size_t GetHeld() const override { return pending_.size(); }

private:
    std::string pending_;
    bool isLast_ = false;
};

/// A server in this process whose handler says what it was asked. "/wait" waits until Release; "/big" answers
/// as many bytes as its body says; "/throw" runs out of memory; "/batch" is one.
class ControlServerTest : public testing::Test, public RequestHandler {
protected:
    /// Short enough for a test to wait for, long enough for a client on a busy machine to get on.
    static constexpr uint32_t kShortTimeoutMs = 400;

    /// Not in a destructor: the server calls the handler, which is the test, to its end.
    void TearDown() override {
        Release();
        server_.reset();
    }

    void Start(uint32_t clientTimeoutMs = 30'000, std::size_t maxConnections = 1000, uint32_t threads = 2) {
        debug_.SetContext(&log_.Context());
        server_ = std::make_unique<ControlServer>(
            ControlServerOptions{threads, clientTimeoutMs, maxConnections, maxHeld_, stopTimeoutMs_}, *this,
            debug_);
        LumString error;
        ASSERT_TRUE(socket_.Open(LumString(std::string_view(path_)), {}, error)) << error.GetString();
        ASSERT_TRUE(server_->Start(socket_.ReleaseListener()));
    }

    RequestKind Classify(const ClientRequest& request) override {
        return request.target == "/batch" ? RequestKind::kBatch
               : request.method == "POST" ? RequestKind::kAction
                                          : RequestKind::kImmediate;
    }
    std::unique_ptr<BatchStream> OpenBatch(const ClientRequest& /*request*/, HttpAnswer& refusal) override {
        refusal = MakeErrorAnswer(403, "No.");
        return mayBatch_ ? std::make_unique<LengthLines>() : nullptr;
    }
    HttpAnswer Answer(const ClientRequest& request) override {
        const auto& [method, target, body, client] = request;
        if (target == "/throw") {
            throw std::bad_alloc();
        }
        if (target == "/who") {
            return {200, std::to_string(client.user) + " " + std::to_string(client.groups.at(0)), {}};
        }
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

    std::size_t maxHeld_ = ControlServerOptions().maxHeld;
    uint32_t stopTimeoutMs_ = 10'000;
    bool mayBatch_ = true;
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
    const ControlServer never({}, *this, debug_);
}

TEST_F(ControlServerTest, RefusesADescriptorThatIsNoSocket) {
    debug_.SetContext(&log_.Context());
    ControlServer server({}, *this, debug_);
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

TEST_F(ControlServerTest, KnowsWhoAsks) {
    Start();
    EXPECT_EQ(Connect().Request("GET", "/who").body,
              std::to_string(::geteuid()) + " " + std::to_string(::getegid()));
}

TEST_F(ControlServerTest, AnswersWhenTheMemoryRanOut) {
    Start();
    HttpClient client = Connect();
    const HttpReply reply = client.Request("POST", "/throw");
    EXPECT_EQ(reply.status, 500);
    EXPECT_EQ(reply.body, R"({"error":"The request failed: there is no memory."})");
    EXPECT_EQ(client.Request("POST", "/a").status, 200);
}

TEST_F(ControlServerTest, LosesNoOtherClientWhereOneFails) {
    Start();
    HttpClient other = Connect();
    EXPECT_EQ(Connect().Request("GET", "/throw").status, 0);
    EXPECT_TRUE(WaitFor([this] {
        return log_.Count("error Agent A connection of the control socket failed: std::bad_alloc") == 1;
    }));
    EXPECT_EQ(other.Request("GET", "/a").status, 200);
}

TEST_F(ControlServerTest, SaysThatACallOfTheAgentsOwnFailed) {
    Start();
    server_->RunInPool([] { throw std::bad_alloc(); });
    EXPECT_TRUE(
        WaitFor([this] { return log_.Count("A call of the agent's own failed: std::bad_alloc") == 1; }));
    EXPECT_EQ(Connect().Request("POST", "/a").status, 200);
}

TEST_F(ControlServerTest, RefusesFramingThatHasNoEnd) {
    Start();
    const std::string head = "POST /a HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (const std::string& start : {std::string("1;"), std::string("0"), std::string("0\r\nTrailer: ")}) {
        HttpClient client = Connect();
        ASSERT_TRUE(client.Send(head + start));
        const std::string endless(16384, start == "0" ? '0' : 'x');
        int sent = 0;
        while (sent < 1000 && client.Send(endless)) {
            ++sent;
        }
        EXPECT_EQ(client.ReadReply().status, 400) << start;
        EXPECT_LT(server_->GetFigures().heldBytes, 100'000U);
    }
}

TEST_F(ControlServerTest, HoldsNoMoreForAllClientsThanItsLimit) {
    maxHeld_ = 4'000'000;
    Start();
    std::vector<HttpClient> clients;
    int refused = 0;
    for (int i = 0; i < 12; ++i) {
        clients.push_back(Connect());
        clients.back().Send("POST /a HTTP/1.1\r\nHost: a\r\nContent-Length: 1000000\r\n\r\n" +
                            std::string(999'999, 'x'));
        EXPECT_LE(server_->GetFigures().heldBytes, maxHeld_);
    }
    EXPECT_EQ(Connect().Request("POST", "/a", "small").body, "POST /a 5") << "what is small is served";
    for (HttpClient& client : clients) {
        client.Send("x");
        const HttpReply reply = client.ReadReply();
        refused += reply.status == 503 ? 1 : 0;
        EXPECT_TRUE(reply.status == 200 || reply.status == 503) << reply.status;
    }
    EXPECT_GT(refused, 0);
    EXPECT_LT(refused, 12);
    EXPECT_EQ(Connect().Request("POST", "/a", std::string(1'000'000, 'x')).status, 200);
}

TEST_F(ControlServerTest, HoldsNoMemoryForABodyThatIsOnlyAnnounced) {
    Start();
    std::vector<HttpClient> clients;
    for (int i = 0; i < 50; ++i) {
        clients.push_back(Connect());
        ASSERT_TRUE(clients.back().Send("POST /a HTTP/1.1\r\nHost: a\r\nContent-Length: 16000000\r\n\r\nab"));
    }
    EXPECT_EQ(Connect().Request("GET", "/a").status, 200);
    EXPECT_LT(server_->GetFigures().heldBytes, 50U * 100'000U);
}

TEST_F(ControlServerTest, RefusesAnAnswerThatItCannotHold) {
    maxHeld_ = 1'000'000;
    Start();
    HttpClient deaf = Connect();
    ASSERT_TRUE(deaf.SendRequest("POST", "/big", "900000"));
    ASSERT_TRUE(WaitFor([&] { return server_->GetFigures().heldBytes > 800'000; }));
    const HttpReply reply = Connect().Request("POST", "/big", "900000");
    EXPECT_EQ(reply.status, 503);
    EXPECT_EQ(reply.body.find(R"({"error":"The answer has 900000 bytes)"), 0U) << reply.body;
    EXPECT_EQ(deaf.ReadReply().body.size(), 900'000U);
    EXPECT_EQ(Connect().Request("POST", "/big", "900000").status, 200);
}

TEST_F(ControlServerTest, DropsAClientThatSendsAByteNowAndThen) {
    Start(kShortTimeoutMs);
    HttpClient client = Connect();
    ASSERT_TRUE(client.Send("POST /a HTTP/1.1\r\nHost: a\r\nContent-Length: 100000\r\n\r\n"));
    EXPECT_TRUE(WaitFor([&] { return !client.Send("x"); }));
}

TEST_F(ControlServerTest, GivesThePlaceOfOneThatOnlyHoldsItToANewClient) {
    Start(30'000, 5);
    std::vector<HttpClient> slow;
    for (int i = 0; i < 5; ++i) {
        slow.push_back(Connect());
        ASSERT_TRUE(slow.back().Send("POST /a HTTP/1.1\r\nHost: a\r\nContent-Length: 100000\r\n\r\nx"));
    }
    HttpClient busy = Connect();
    EXPECT_EQ(busy.Request("GET", "/a").status, 200) << "long before a client is dropped for being slow";
}

TEST_F(ControlServerTest, KeepsThePlaceOfOneWhoseActionRuns) {
    Start(30'000, 1);
    HttpClient running = Connect();
    ASSERT_TRUE(running.SendRequest("POST", "/wait"));
    ASSERT_TRUE(WaitUntilWaiting(1));
    HttpClient next = Connect();
    ASSERT_TRUE(next.SendRequest("GET", "/a"));
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    Release();
    EXPECT_EQ(running.ReadReply().status, 200);
    EXPECT_EQ(next.ReadReply().status, 200);
}

TEST_F(ControlServerTest, DoesNotWaitLongForASlowReaderWhenItStops) {
    stopTimeoutMs_ = 300;
    Start();
    HttpClient slow = Connect();
    ASSERT_TRUE(slow.SendRequest("POST", "/big", "20000000"));
    ASSERT_TRUE(WaitFor([&] { return server_->GetFigures().heldBytes > 10'000'000; }));
    const auto before = std::chrono::steady_clock::now();
    server_->Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(20));
    EXPECT_EQ(slow.ReadReply().status, 0);
}

TEST_F(ControlServerTest, SaysWhenCallsWaitInVain) {
    Start(30'000, 1000, 1);
    EXPECT_EQ(server_->GetStuckTime().count(), 0);
    HttpClient running = Connect();
    HttpClient waiting = Connect();
    ASSERT_TRUE(running.SendRequest("POST", "/wait"));
    ASSERT_TRUE(WaitUntilWaiting(1));
    ASSERT_TRUE(waiting.SendRequest("POST", "/a"));
    EXPECT_TRUE(WaitFor([&] { return server_->GetStuckTime().count() > 50; }));
    EXPECT_EQ(server_->GetFigures().running, 1U);
    EXPECT_EQ(server_->GetFigures().waiting, 1U);
    Release();
    EXPECT_EQ(waiting.ReadReply().status, 200);
    EXPECT_TRUE(WaitFor([&] { return server_->GetStuckTime().count() == 0; }));
}

TEST_F(ControlServerTest, AnswersABatchWhileItIsSent) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(client.Send("POST /batch HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n"));
    const HttpReply head = client.ReadReply(false);
    EXPECT_EQ(head.status, 200);
    EXPECT_NE(head.header.find("\r\nTransfer-Encoding: chunked\r\n"), std::string::npos);
    ASSERT_TRUE(client.Send("4\r\nab\nc\r\n"));
    EXPECT_EQ(client.ReadChunk(), "2\n");
    ASSERT_TRUE(client.Send("2\r\n\n\n\r\n"));
    EXPECT_EQ(client.ReadChunk(), "1\n0\n");
    ASSERT_TRUE(client.Send("0\r\n\r\n"));
    EXPECT_EQ(client.ReadChunk(), "end\n");
    EXPECT_EQ(client.ReadChunk(), "");
    EXPECT_EQ(client.Request("GET", "/a").status, 200) << "the connection goes on";
}

TEST_F(ControlServerTest, TakesABatchFromAClientThatReadsLater) {
    Start();
    HttpClient client = Connect();
    std::string body;
    for (int i = 0; i < 400'000; ++i) {
        body += "x\n";
    }
    for (int i = 0; i < 40; ++i) {
        body += std::string(100'000, 'y') + "\n";
    }
    ASSERT_TRUE(client.SendRequest("POST", "/batch", body));
    EXPECT_EQ(client.ReadReply(false).status, 200);
    std::string answers;
    for (std::string chunk; !(chunk = client.ReadChunk()).empty();) {
        answers += chunk;
    }
    EXPECT_EQ(CountIn(answers, "1\n"), 400'000U);
    EXPECT_EQ(CountIn(answers, "100000\n"), 40U);
    EXPECT_EQ(answers.substr(answers.size() - 4), "end\n");
}

TEST_F(ControlServerTest, RefusesABatchThatCannotBegin) {
    Start();
    mayBatch_ = false;
    EXPECT_EQ(Connect().Request("POST", "/batch", "x\n").status, 403);
    mayBatch_ = true;
    HttpClient older = Connect();
    ASSERT_TRUE(older.Send("POST /batch HTTP/1.0\r\nContent-Length: 2\r\n\r\nx\n"));
    EXPECT_EQ(older.ReadReply().status, 400);
}

TEST_F(ControlServerTest, EndsABatchThatIsCutOffWithoutItsLastChunk) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(
        client.Send("POST /batch HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nab\nc\r\n"));
    EXPECT_EQ(client.ReadReply(false).status, 200);
    EXPECT_EQ(client.ReadChunk(), "2\n");
    client.EndSending();
    EXPECT_TRUE(client.WaitForEnd());
}

TEST_F(ControlServerTest, EndsABatchWhoseCallFails) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(client.SendRequest("POST", "/batch", "throw\n"));
    EXPECT_EQ(client.ReadReply(false).status, 200);
    EXPECT_EQ(client.ReadChunk(), "") << "without the last chunk";
    EXPECT_TRUE(client.WaitForEnd());
}

TEST_F(ControlServerTest, EndsABatchWhenItStops) {
    Start();
    HttpClient client = Connect();
    ASSERT_TRUE(
        client.Send("POST /batch HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nab\nc\r\n"));
    EXPECT_EQ(client.ReadReply(false).status, 200);
    EXPECT_EQ(client.ReadChunk(), "2\n");
    server_->Stop();
    EXPECT_TRUE(client.WaitForEnd());
}

TEST_F(ControlServerTest, EndsABatchWhoseLineItCannotHold) {
    maxHeld_ = 200'000;
    Start();
    HttpClient client = Connect();
    static_cast<void>(client.SendRequest("POST", "/batch", std::string(1'000'000, 'x')));
    EXPECT_EQ(client.ReadReply(false).status, 200);
    EXPECT_EQ(client.ReadChunk(), "");
    EXPECT_TRUE(WaitFor([this] { return server_->GetFigures().heldBytes == 0; }));
    EXPECT_EQ(Connect().Request("GET", "/a").status, 200);
}

TEST_F(ControlServerTest, EndsABatchWhoseClientReadsNoAnswerAndGoes) {
    Start();
    {
        const HttpClient client = Connect();
        std::string body;
        for (int i = 0; i < 400'000; ++i) {
            body += "x\n";
        }
        ASSERT_TRUE(client.SendRequest("POST", "/batch", body));
    }
    EXPECT_TRUE(WaitFor([this] { return server_->GetFigures().connections == 0; }));
    EXPECT_EQ(Connect().Request("GET", "/a").status, 200);
}

}  // namespace
