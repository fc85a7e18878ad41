#include "agent/ControlServer.h"

#include <array>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <chrono>
#include <exception>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <unordered_set>
#include <utility>

#include <fcntl.h>

namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace net = boost::asio;
using Protocol = net::local::stream_protocol;
using ErrorCode = boost::system::error_code;

/// After a failed accept, so that a lack of descriptors does not turn into a busy loop.
constexpr std::chrono::milliseconds kAcceptPause(100);

std::string_view AsView(beast::string_view text) {
    return {text.data(), text.size()};
}

bool IsHttpError(const ErrorCode& error) {
    return error.category() == make_error_code(http::error::end_of_stream).category();
}

}  // namespace

class ControlServer::Impl {
public:
    Impl(const ControlServerOptions& options, Handler handler, LumDebug& debug)
        : options_(options), handler_(std::move(handler)), debug_(debug) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() { Stop(); }

    [[nodiscard]] bool Start(FileDescriptor listener);
    void Stop();

private:
    class Connection;

    void Run();
    void Accept();
    void OnAccepted(const ErrorCode& error, Protocol::socket socket);
    void AcceptLater();
    void StopAccepting();
    void Forget(Connection* connection);

    const ControlServerOptions options_;
    const Handler handler_;
    LumDebug& debug_;

    net::io_context io_{1};
    std::optional<net::executor_work_guard<net::io_context::executor_type>> keepRunning_;
    std::optional<net::thread_pool> workers_;
    std::thread thread_;

    // The rest belongs to the thread that runs io_.
    Protocol::acceptor acceptor_{io_};
    net::steady_timer acceptTimer_{io_};
    std::unordered_set<Connection*> connections_;
    bool isAccepting_ = false;
    bool isStopping_ = false;
    bool hasWarnedOfAccept_ = false;
};

/// One client. Lives as long as an operation of it is under way; runs on the server's thread, but for the
/// handler's call.
class ControlServer::Impl::Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(Impl& server, Protocol::socket socket) : server_(server), stream_(std::move(socket)) {}
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { server_.Forget(this); }

    void ReadRequest();
    /// Ends the connection, unless a request of it is being answered: then it ends after the answer.
    void EndSoon();

private:
    using Stream = beast::basic_stream<Protocol>;
    using Response = http::response<http::string_body>;

    void OnHeader(const ErrorCode& error);
    void ReadBody();
    void Refuse(const ErrorCode& error);
    void Handle();
    void Write(HttpAnswer&& answer);
    void WriteMore();
    void OnWritten();
    void Drain();
    void Discard();

    /// The time from now within which the next operation has to get on.
    void SetDeadline() { stream_.expires_after(std::chrono::milliseconds(server_.options_.clientTimeoutMs)); }

    Impl& server_;
    Stream stream_;
    beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::string_body>> parser_;
    std::optional<Response> response_;
    std::optional<http::response_serializer<http::string_body>> serializer_;
    std::array<char, 4096> discarded_{};
    bool isAnswering_ = false;
    bool isLast_ = false;
};

void ControlServer::Impl::Connection::ReadRequest() {
    parser_.emplace();
    parser_->header_limit(kMaxHeader);
    parser_->body_limit(kMaxBody);
    SetDeadline();
    http::async_read_header(
        stream_, buffer_, *parser_,
        [self = this->shared_from_this()](const ErrorCode& error, std::size_t) { self->OnHeader(error); });
}

void ControlServer::Impl::Connection::OnHeader(const ErrorCode& error) {
    if (error) {
        Refuse(error);
        return;
    }
    const bool waitsForContinue = parser_->get().version() >= 11 && !parser_->is_done() &&
                                  buffer_.size() == 0 &&
                                  beast::iequals(parser_->get()[http::field::expect], "100-continue");
    if (!waitsForContinue) {
        ReadBody();
        return;
    }
    static constexpr std::string_view goOn = "HTTP/1.1 100 Continue\r\n\r\n";
    SetDeadline();
    net::async_write(stream_, net::buffer(goOn.data(), goOn.size()),
                     [self = this->shared_from_this()](const ErrorCode& failed, std::size_t) {
                         if (!failed) {
                             self->ReadBody();
                         }
                     });
}

void ControlServer::Impl::Connection::ReadBody() {
    if (parser_->is_done()) {
        Handle();
        return;
    }
    SetDeadline();
    http::async_read_some(stream_, buffer_, *parser_,
                          [self = this->shared_from_this()](const ErrorCode& error, std::size_t) {
                              if (error) {
                                  self->Refuse(error);
                              } else {
                                  self->ReadBody();
                              }
                          });
}

void ControlServer::Impl::Connection::Refuse(const ErrorCode& error) {
    if (error == http::error::end_of_stream || !IsHttpError(error)) {
        return;
    }
    isLast_ = true;
    if (error == http::error::body_limit) {
        Write(MakeErrorAnswer(413, "The body is longer than " + std::to_string(kMaxBody) + " bytes."));
    } else {
        Write(MakeErrorAnswer(400, "The request is not HTTP that can be read: " + error.message() + "."));
    }
}

void ControlServer::Impl::Connection::Handle() {
    isAnswering_ = true;
    isLast_ = !parser_->get().keep_alive();
    stream_.expires_never();
    const auto answer = [this] {
        const auto& request = parser_->get();
        return server_.handler_(AsView(request.method_string()), AsView(request.target()), request.body());
    };
    if (!IsActionRequest(AsView(parser_->get().method_string()))) {
        Write(answer());
        return;
    }
    net::post(*server_.workers_, [self = this->shared_from_this(), answer]() mutable {
        Connection& connection = *self;
        net::post(connection.server_.io_,
                  [self = std::move(self), result = answer()]() mutable { self->Write(std::move(result)); });
    });
}

void ControlServer::Impl::Connection::Write(HttpAnswer&& answer) {
    isAnswering_ = true;
    isLast_ = isLast_ || server_.isStopping_;
    const bool isHead = parser_->get().method() == http::verb::head;
    const unsigned version = parser_->is_header_done() ? parser_->get().version() : 11;
    response_.emplace(static_cast<http::status>(answer.status), version);
    response_->set(http::field::content_type, "application/json");
    if (!answer.allow.empty()) {
        response_->set(http::field::allow, beast::string_view(answer.allow.data(), answer.allow.size()));
    }
    response_->keep_alive(!isLast_);
    response_->content_length(answer.body.size());
    if (!isHead) {
        response_->body() = std::move(answer.body);
    }
    serializer_.emplace(*response_);
    WriteMore();
}

void ControlServer::Impl::Connection::WriteMore() {
    SetDeadline();
    http::async_write_some(stream_, *serializer_,
                           [self = this->shared_from_this()](const ErrorCode& error, std::size_t) {
                               if (error) {
                                   return;
                               }
                               if (self->serializer_->is_done()) {
                                   self->OnWritten();
                               } else {
                                   self->WriteMore();
                               }
                           });
}

void ControlServer::Impl::Connection::OnWritten() {
    isAnswering_ = false;
    // What idles holds no memory of its last request.
    serializer_.reset();
    response_.reset();
    parser_.reset();
    if (server_.isStopping_) {
        return;
    }
    if (isLast_) {
        Drain();
    } else {
        ReadRequest();
    }
}

/// Closing with unread bytes would make the client's next write or read fail before it has seen the answer.
void ControlServer::Impl::Connection::Drain() {
    ErrorCode ignored;
    stream_.socket().shutdown(Protocol::socket::shutdown_send, ignored);
    SetDeadline();
    Discard();
}

void ControlServer::Impl::Connection::Discard() {
    stream_.async_read_some(net::buffer(discarded_),
                            [self = this->shared_from_this()](const ErrorCode& error, std::size_t) {
                                if (!error) {
                                    self->Discard();
                                }
                            });
}

void ControlServer::Impl::Connection::EndSoon() {
    if (!isAnswering_) {
        stream_.close();
    }
}

bool ControlServer::Impl::Start(FileDescriptor listener) {
    try {
        acceptor_.assign(Protocol(), listener.Get());
        static_cast<void>(listener.Release());  // the acceptor owns it now
        keepRunning_.emplace(io_.get_executor());
        workers_.emplace(options_.threads);
        net::post(io_, [this] { Accept(); });
        thread_ = std::thread([this] { Run(); });
    } catch (const std::exception& error) {
        debug_.ErrorWithNL("Cannot serve the control socket: %s", error.what());
        return false;
    }
    return true;
}

void ControlServer::Impl::Run() {
    for (;;) {
        try {
            io_.run();
            return;
        } catch (const std::exception& error) {
            // The operation that threw has dropped its connection; the others go on.
            debug_.ErrorWithNL("A connection of the control socket failed: %s", error.what());
        }
    }
}

void ControlServer::Impl::Accept() {
    if (isStopping_ || isAccepting_ || connections_.size() >= options_.maxConnections) {
        return;
    }
    isAccepting_ = true;
    acceptor_.async_accept([this](const ErrorCode& error, Protocol::socket socket) {
        isAccepting_ = false;
        OnAccepted(error, std::move(socket));
    });
}

void ControlServer::Impl::OnAccepted(const ErrorCode& error, Protocol::socket socket) {
    if (isStopping_) {
        return;
    }
    if (error) {
        if (!hasWarnedOfAccept_) {
            debug_.WarningWithNL("The control socket cannot accept a client, trying again: %S",
                                 LumString(error.message()));
        }
        hasWarnedOfAccept_ = true;
        AcceptLater();
        return;
    }
    hasWarnedOfAccept_ = false;
    static_cast<void>(::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC));  // cannot fail on an open one
    const auto connection = std::make_shared<Connection>(*this, std::move(socket));
    connections_.insert(connection.get());
    connection->ReadRequest();
    Accept();
}

void ControlServer::Impl::AcceptLater() {
    acceptTimer_.expires_after(kAcceptPause);
    acceptTimer_.async_wait([this](const ErrorCode&) { Accept(); });
}

void ControlServer::Impl::Forget(Connection* connection) {
    connections_.erase(connection);
    if (isStopping_ && connections_.empty()) {
        keepRunning_.reset();
    }
    Accept();
}

void ControlServer::Impl::StopAccepting() {
    isStopping_ = true;
    ErrorCode ignored;
    acceptor_.close(ignored);
    acceptTimer_.cancel();
    for (Connection* connection : connections_) {
        connection->EndSoon();
    }
    if (connections_.empty()) {
        keepRunning_.reset();
    }
}

void ControlServer::Impl::Stop() {
    if (!thread_.joinable()) {
        return;
    }
    net::post(io_, [this] { StopAccepting(); });
    thread_.join();
    workers_->join();
}

ControlServer::ControlServer(const ControlServerOptions& options, Handler handler, LumDebug& debug)
    : impl_(std::make_unique<Impl>(options, std::move(handler), debug)) {}

ControlServer::~ControlServer() = default;

bool ControlServer::Start(FileDescriptor listener) {
    return impl_->Start(std::move(listener));
}

void ControlServer::Stop() {
    impl_->Stop();
}
