#include "client/AgentConnection.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <optional>
#include <utility>

#include <poll.h>

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;

/// The only place that knows the HTTP library.
class AgentConnection::Stream {
public:
    using Request = http::request<http::string_body>;

    Stream(std::string path, std::chrono::milliseconds answerTimeout)
        : path_(std::move(path)), answerTimeout_(answerTimeout) {}

    bool Exchange(Request& request, Reply& reply, std::string& error) {
        if (!Connect(error)) {
            return false;
        }
        request.version(11);
        request.set(http::field::host, "localhost");
        request.keep_alive(true);
        request.prepare_payload();
        // A refused request is answered before it was read whole, so a write that fails may still have an
        // answer.
        error_code writeFailure;
        http::write(*socket_, request, writeFailure);
        error_code readFailure = writeFailure;
        if (!IsReadable(answerTimeout_)) {
            error = "the agent at " + path_ + " does not answer in time";
        } else if (Read(reply, readFailure)) {
            return true;
        } else {
            error = "the agent at " + path_ + " closed the connection without an answer (" +
                    readFailure.message() + ")";
        }
        Close();
        return false;
    }

private:
    bool Connect(std::string& error) {
        // Nothing is due on an idle connection: what can be read is the agent's end of it.
        if (socket_ && IsReadable(std::chrono::milliseconds(0))) {
            Close();
        }
        if (socket_) {
            return true;
        }
        // The address type throws for a path that the system's own address cannot hold.
        if (path_.size() >= sizeof(sockaddr_un::sun_path)) {
            error = "the socket's path is too long: " + path_;
            return false;
        }
        error_code failure;
        socket_.emplace(context_);
        socket_->connect(asio::local::stream_protocol::endpoint(path_), failure);
        if (failure) {
            error = "no agent answers at " + path_ + " (" + failure.message() + ")";
            Close();
            return false;
        }
        return true;
    }

    bool Read(Reply& reply, error_code& failure) {
        http::response_parser<http::string_body> parser;
        parser.body_limit(boost::none);
        http::read(*socket_, buffer_, parser, failure);
        if (failure) {
            return false;
        }
        reply.status = parser.get().result_int();
        reply.body = std::move(parser.get().body());
        if (!parser.get().keep_alive()) {
            Close();
        }
        return true;
    }

    bool IsReadable(std::chrono::milliseconds timeout) {
        if (buffer_.size() > 0) {
            return true;
        }
        pollfd waited{socket_->native_handle(), POLLIN, 0};
        return poll(&waited, 1, static_cast<int>(timeout.count())) != 0;
    }

    void Close() {
        socket_.reset();
        buffer_.clear();
    }

    const std::string path_;
    const std::chrono::milliseconds answerTimeout_;
    asio::io_context context_{1};
    std::optional<asio::local::stream_protocol::socket> socket_;
    boost::beast::flat_buffer buffer_;
};

AgentConnection::AgentConnection(std::string socketPath, std::chrono::milliseconds answerTimeout)
    : socketPath_(std::move(socketPath)), stream_(std::make_unique<Stream>(socketPath_, answerTimeout)) {}

AgentConnection::~AgentConnection() = default;

bool AgentConnection::Get(std::string_view target, Reply& reply, std::string& error) {
    Stream::Request request(http::verb::get, {target.data(), target.size()}, 11);
    return stream_->Exchange(request, reply, error);
}

bool AgentConnection::Post(std::string_view target, std::string body, Reply& reply, std::string& error) {
    Stream::Request request(http::verb::post, {target.data(), target.size()}, 11);
    request.set(http::field::content_type, "application/json");
    request.body() = std::move(body);
    return stream_->Exchange(request, reply, error);
}
