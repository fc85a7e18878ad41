#include "client/connection/AgentConnection.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <optional>
#include <utility>

#include <poll.h>

#include "client/connection/SocketSearch.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;

namespace {

std::string InSeconds(std::chrono::milliseconds time) {
    const auto tenths = time.count() / 100;
    return std::to_string(tenths / 10) + (tenths % 10 == 0 ? "" : "." + std::to_string(tenths % 10)) + " s";
}

}  // namespace

/// The only place that knows the HTTP library.
class AgentConnection::Stream {
public:
    using Request = http::request<http::string_body>;

    Stream(std::vector<std::string> paths, std::chrono::milliseconds answerTimeout)
        : paths_(std::move(paths)), answerTimeout_(answerTimeout) {}

    [[nodiscard]] const std::string& GetPath() const { return paths_.at(used_); }

    bool Write(Request& request, std::string& error) {
        if (!Connect(error)) {
            return false;
        }
        request.version(11);
        request.set(http::field::host, "localhost");
        request.keep_alive(true);
        request.prepare_payload();
        // A refused request is answered before it was read whole, so a write that fails may still have an
        // answer.
        error_code ignored;
        http::write(*socket_, request, ignored);
        return true;
    }

    bool Read(Reply& reply, std::string& error) {
        error_code readFailure;
        if (ReadAnswer(reply, readFailure)) {
            return true;
        }
        if (readFailure == asio::error::timed_out) {
            error = "the agent at " + GetPath() + " did not answer within " + InSeconds(answerTimeout_) +
                    "; --timeout SECONDS waits longer";
        } else {
            error = "the agent at " + GetPath() + " closed the connection without an answer (" +
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
        std::string reasons;
        for (std::size_t i = 0; !socket_ && i < paths_.size(); ++i) {
            used_ = i;
            std::string reason;
            if (!ConnectTo(paths_[i], reason)) {
                reasons += (reasons.empty() ? "" : "; ") + reason;
            }
        }
        if (!socket_) {
            error = reasons + (paths_.size() > 1 ? "; is lumagent running? (systemctl status lumagent)" : "");
        }
        return socket_.has_value();
    }

    bool ConnectTo(const std::string& path, std::string& reason) {
        // The address type throws for a path that the system's own address cannot hold.
        if (path.size() >= sizeof(sockaddr_un::sun_path)) {
            reason = "the socket's path is too long: " + path;
            return false;
        }
        error_code failure;
        socket_.emplace(context_);
        socket_->connect(asio::local::stream_protocol::endpoint(path), failure);
        if (!failure) {
            return true;
        }
        reason = failure == asio::error::access_denied
                     ? DescribeMissingPermission(path)
                     : "no agent answers at " + path + " (" + failure.message() + ")";
        Close();
        return false;
    }

    bool ReadAnswer(Reply& reply, error_code& failure) {
        http::response_parser<http::string_body> parser;
        parser.body_limit(boost::none);
        parser.eager(true);
        while (!parser.is_done() && !failure) {
            if (!TakeRead(parser, failure) && !failure) {
                ReadSome(parser.got_some(), failure);
            }
        }
        reply.body = std::move(parser.get().body());
        if (failure) {
            return false;
        }
        reply.status = parser.get().result_int();
        if (!parser.get().keep_alive()) {
            Close();
        }
        return true;
    }

    /// Has the parser take what was read; false where it needs more, and on failure.
    bool TakeRead(http::response_parser<http::string_body>& parser, error_code& failure) {
        const std::size_t taken = buffer_.size() > 0 ? parser.put(buffer_.data(), failure) : 0;
        buffer_.consume(taken);
        if (failure == http::error::need_more) {
            failure = {};
        }
        return taken > 0;
    }

    /// Each part of an answer may take its time.
    void ReadSome(bool isBegun, error_code& failure) {
        constexpr std::size_t kPart = std::size_t{64} << 10U;
        pollfd waited{socket_->native_handle(), POLLIN, 0};
        if (poll(&waited, 1, static_cast<int>(answerTimeout_.count())) == 0) {
            failure = asio::error::timed_out;
            return;
        }
        buffer_.commit(socket_->read_some(buffer_.prepare(kPart), failure));
        if (failure == asio::error::eof) {
            failure = isBegun ? http::error::partial_message : http::error::end_of_stream;
        }
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

    const std::vector<std::string> paths_;
    const std::chrono::milliseconds answerTimeout_;
    std::size_t used_ = 0;
    asio::io_context context_{1};
    std::optional<asio::local::stream_protocol::socket> socket_;
    boost::beast::flat_buffer buffer_;
};

AgentConnection::AgentConnection(std::vector<std::string> socketPaths,
                                 std::chrono::milliseconds answerTimeout)
    : stream_(std::make_unique<Stream>(std::move(socketPaths), answerTimeout)) {}

AgentConnection::~AgentConnection() = default;

const std::string& AgentConnection::GetSocketPath() const {
    return stream_->GetPath();
}

bool AgentConnection::Get(std::string_view target, Reply& reply, std::string& error) {
    Stream::Request request(http::verb::get, {target.data(), target.size()}, 11);
    return stream_->Write(request, error) && stream_->Read(reply, error);
}

bool AgentConnection::Send(std::string_view target, std::string body, std::string& error) {
    Stream::Request request(http::verb::post, {target.data(), target.size()}, 11);
    request.set(http::field::content_type, "application/json");
    request.body() = std::move(body);
    return stream_->Write(request, error);
}

bool AgentConnection::Receive(Reply& reply, std::string& error) {
    return stream_->Read(reply, error);
}
