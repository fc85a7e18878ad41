#include "fleet/service/StatusServer.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <charconv>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using Tcp = asio::ip::tcp;

constexpr std::chrono::seconds kStall{10};
/// After a failed accept, so that a lack of descriptors does not turn into a busy loop.
constexpr std::chrono::milliseconds kAcceptPause{100};
constexpr int kMaxClients = 16;
constexpr uint32_t kMaxHeaderBytes = 8192;
constexpr uint64_t kMaxBodyBytes = 1024;

/// Takes HOST:PORT apart; false where the host is not a loopback address.
bool ParseAddress(const std::string& text, Tcp::endpoint& endpoint) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return false;
    }
    boost::system::error_code failure;
    const asio::ip::address host = asio::ip::make_address(text.substr(0, colon), failure);
    uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, wrong] = std::from_chars(text.data() + colon + 1, end, port);
    if (failure || wrong != std::errc() || stop != end || !host.is_loopback()) {
        return false;
    }
    endpoint = Tcp::endpoint(host, port);
    return true;
}

http::response<http::string_body> Answer(const http::request<http::string_body>& request,
                                         const StatusServer::Sources& sources) {
    http::response<http::string_body> reply(http::status::ok, request.version());
    reply.set(http::field::content_type, "application/json");
    if (request.method() != http::verb::get) {
        reply.result(http::status::method_not_allowed);
        reply.body() = R"({"error":"Only GET is served here"})";
    } else if (request.target() == "/health") {
        const HealthReport report = sources.health();
        nlohmann::ordered_json body;
        body["status"] = report.reasons.empty() ? "ok" : "degraded";
        if (!report.reasons.empty()) {
            body["reasons"] = report.reasons;
            reply.result(http::status::service_unavailable);
        }
        reply.body() = body.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    } else if (request.target() == "/metrics") {
        reply.set(http::field::content_type, "text/plain; version=0.0.4");
        reply.body() = sources.metrics();
    } else {
        reply.result(http::status::not_found);
        reply.body() = R"({"error":"There are /health and /metrics"})";
    }
    reply.keep_alive(false);
    reply.prepare_payload();
    return reply;
}

/// One client: reads one request, answers it, and is gone. Keeps itself alive while it waits.
class Session : public std::enable_shared_from_this<Session> {
public:
    Session(Tcp::socket&& socket, const StatusServer::Sources& sources, int& count)
        : stream_(std::move(socket)), sources_(sources), count_(count) {
        ++count_;
        parser_.header_limit(kMaxHeaderBytes);
        parser_.body_limit(kMaxBodyBytes);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { --count_; }

    void Run() {
        stream_.expires_after(kStall);
        http::async_read(stream_, buffer_, parser_,
                         [self = shared_from_this()](beast::error_code failure, std::size_t) {
                             if (!failure) {
                                 self->Reply();
                             }
                         });
    }

private:
    void Reply() {
        reply_ = Answer(parser_.get(), sources_);
        http::async_write(stream_, reply_, [self = shared_from_this()](beast::error_code, std::size_t) {
            beast::error_code ignored;  // the client may be gone already
            self->stream_.socket().shutdown(Tcp::socket::shutdown_both, ignored);
        });
    }

    beast::tcp_stream stream_;
    const StatusServer::Sources& sources_;
    int& count_;
    beast::flat_buffer buffer_{kMaxHeaderBytes};
    http::request_parser<http::string_body> parser_;
    http::response<http::string_body> reply_;
};

}  // namespace

struct StatusServer::Impl {
    asio::io_context context{1};
    Tcp::acceptor acceptor{context};
    asio::steady_timer acceptTimer{context};
    Sources sources;
    int clients = 0;  // touched on the server's thread alone
    std::thread thread;

    void Accept() {
        acceptor.async_accept([this](beast::error_code failure, Tcp::socket socket) {
            if (failure) {
                AcceptLater();
                return;
            }
            if (clients < kMaxClients) {
                std::make_shared<Session>(std::move(socket), sources, clients)->Run();
            }
            Accept();
        });
    }

    void AcceptLater() {
        acceptTimer.expires_after(kAcceptPause);
        acceptTimer.async_wait([this](beast::error_code /*none*/) { Accept(); });
    }
};

StatusServer::StatusServer() : impl_(std::make_unique<Impl>()) {}

StatusServer::~StatusServer() {
    impl_->context.stop();
    if (impl_->thread.joinable()) {
        impl_->thread.join();
    }
}

bool StatusServer::Start(const std::string& address, Sources sources, std::string& error) {
    Tcp::endpoint endpoint;
    if (!ParseAddress(address, endpoint)) {
        error = "'" + address + "' is not a loopback address with a port, such as 127.0.0.1:9464";
        return false;
    }
    try {
        impl_->acceptor = Tcp::acceptor(impl_->context, endpoint);
    } catch (const boost::system::system_error& failure) {
        error = "Cannot serve " + address + ": " + failure.code().message();
        return false;
    }
    impl_->sources = std::move(sources);
    impl_->Accept();
    impl_->thread = std::thread([this] { impl_->context.run(); });
    return true;
}

int StatusServer::GetPort() const {
    boost::system::error_code ignored;  // an acceptor that is not open has port 0
    return impl_->acceptor.local_endpoint(ignored).port();
}
