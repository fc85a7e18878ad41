#include <chrono>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fleet/service/StatusServer.h"
#include "host/file/FileDescriptor.h"
#include "support/ResourceLimit.h"

namespace {

class StatusServerTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server_.Start("127.0.0.1:0",
                                  {[this] { return health_; }, [] { return std::string("some_metric 1\n"); }},
                                  error_))
            << error_;
    }

    [[nodiscard]] static FileDescriptor MakeClient() {
        return FileDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    }
    [[nodiscard]] FileDescriptor Connect(FileDescriptor client = MakeClient(),
                                         int patienceMs = 60'000) const {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(server_.GetPort()));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval patience{patienceMs / 1'000, patienceMs % 1'000 * 1'000};
        EXPECT_EQ(setsockopt(client.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)), 0);
        EXPECT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        return client;
    }
    /// Everything that comes until the server ends the connection.
    [[nodiscard]] static std::string ReadAll(const FileDescriptor& client) {
        std::string all;
        char buffer[1024];
        for (ssize_t count = 0; (count = recv(client.Get(), buffer, sizeof(buffer), 0)) > 0;) {
            all.append(buffer, static_cast<std::size_t>(count));
        }
        return all;
    }
    [[nodiscard]] std::string Ask(const std::string& request) const {
        const FileDescriptor client = Connect();
        EXPECT_GT(send(client.Get(), request.data(), request.size(), MSG_NOSIGNAL), 0);
        return ReadAll(client);
    }
    [[nodiscard]] std::string Get(const std::string& path) const {
        return Ask("GET " + path + " HTTP/1.1\r\nHost: x\r\n\r\n");
    }

    HealthReport health_;
    StatusServer server_;
    std::string error_;
};

TEST_F(StatusServerTest, SaysThatAllIsWellOrWhatIsNot) {
    std::string reply = Get("/health");
    EXPECT_EQ(reply.find("HTTP/1.1 200"), 0U) << reply;
    EXPECT_NE(reply.find("\r\n\r\n{\"status\":\"ok\"}"), std::string::npos) << reply;
    health_.reasons = {"The broker \"x\" is away"};
    reply = Get("/health");
    EXPECT_EQ(reply.find("HTTP/1.1 503"), 0U) << reply;
    EXPECT_NE(reply.find(R"({"status":"degraded","reasons":["The broker \"x\" is away"]})"),
              std::string::npos)
        << reply;
}

TEST_F(StatusServerTest, ServesMetricsAsPrometheusText) {
    const std::string reply = Get("/metrics");
    EXPECT_NE(reply.find("Content-Type: text/plain; version=0.0.4"), std::string::npos) << reply;
    EXPECT_NE(reply.find("\r\n\r\nsome_metric 1\n"), std::string::npos) << reply;
}

TEST_F(StatusServerTest, RefusesWhatItDoesNotServe) {
    EXPECT_EQ(Get("/other").find("HTTP/1.1 404"), 0U);
    EXPECT_EQ(Ask("POST /health HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n").find("HTTP/1.1 405"), 0U);
    EXPECT_EQ(Ask("nonsense\r\n\r\n"), "");
    EXPECT_EQ(Get("/" + std::string(9'000, 'x')), "");
}

TEST_F(StatusServerTest, ServesNoMoreThanSoManyAtOnceAndGoesOnAfterwards) {
    {
        std::vector<FileDescriptor> idle;
        for (int i = 0; i < 40; ++i) {
            idle.push_back(Connect());
        }
        // Those above the number are turned away at once, while the first of them are still waited for.
        EXPECT_EQ(ReadAll(idle.back()), "");
    }
    std::string reply;
    for (int attempt = 0; attempt < 1'000 && reply.empty(); ++attempt) {
        reply = Get("/health");
    }
    EXPECT_EQ(reply.find("HTTP/1.1 200"), 0U) << reply;
}

TEST_F(StatusServerTest, ServesAgainOnceThereAreDescriptors) {
    FileDescriptor early = MakeClient();
    std::string reply;
    {
        const ResourceLimit noFiles(RLIMIT_NOFILE, 0);
        early = Connect(std::move(early), 300);
        const std::string request = "GET /health HTTP/1.1\r\nHost: x\r\n\r\n";
        EXPECT_GT(send(early.Get(), request.data(), request.size(), MSG_NOSIGNAL), 0);
        reply = ReadAll(early);
    }
    EXPECT_EQ(reply, "") << "nobody can be let in";
    EXPECT_EQ(Get("/health").find("HTTP/1.1 200"), 0U);
    EXPECT_EQ(ReadAll(early).find("HTTP/1.1 200"), 0U);
}

TEST_F(StatusServerTest, ServesTheLoopbackAlone) {
    for (const char* const address : {"0.0.0.0:0", "192.0.2.1:0", "localhost", "127.0.0.1", "127.0.0.1:x",
                                      "127.0.0.1:99999", "localhost:0"}) {
        StatusServer other;
        std::string error;
        EXPECT_FALSE(other.Start(address, {}, error)) << address;
        EXPECT_NE(error.find(address), std::string::npos) << error;
        EXPECT_EQ(other.GetPort(), 0);
    }
}

TEST_F(StatusServerTest, SaysThatAPortIsTaken) {
    StatusServer other;
    std::string error;
    const std::string address = "127.0.0.1:" + std::to_string(server_.GetPort());
    EXPECT_FALSE(other.Start(address, {}, error));
    EXPECT_EQ(error, "Cannot serve " + address + ": Address already in use");
}

}  // namespace
