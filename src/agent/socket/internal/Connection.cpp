#include "agent/socket/internal/Connection.h"

#include <algorithm>
#include <boost/asio/write.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace net = boost::asio;

/// The longest line of a chunked body's framing: extensions of a chunk, the trailer.
constexpr std::size_t kMaxBuffer = 2 * ControlServer::kMaxHeader;
/// A buffer above it is given back when its connection idles.
constexpr std::size_t kIdleBuffer = 4096;
constexpr std::size_t kFirstBody = std::size_t{64} << 10U;
/// Whoever sends or reads, in bytes a second and on the whole, more slowly than this is dropped.
constexpr std::size_t kSlowest = std::size_t{16} << 10U;

std::string_view AsView(beast::string_view text) {
    return {text.data(), text.size()};
}

bool IsHttpError(const boost::system::error_code& error) {
    return error.category() == make_error_code(http::error::end_of_stream).category();
}

/// The answer where not even an answer could be made; its text comes when there is memory again.
constexpr unsigned kNoMemory = 500;

}  // namespace

Connection::Connection(ConnectionHost& host, Protocol::socket socket)
    : host_(host),
      stream_(std::move(socket)),
      client_(ReadClient(stream_.socket().native_handle())),
      share_(host.held),
      buffer_(kMaxBuffer) {}

Connection::~Connection() {
    host_.OnGone(this);
}

void Connection::Enter(Phase phase) {
    phase_ = phase;
    phaseStart_ = Clock::now();
}

void Connection::SetDeadline(std::size_t moved) {
    const std::chrono::milliseconds timeout(host_.options.clientTimeoutMs);
    const auto all = timeout + std::chrono::milliseconds(moved * 1000 / kSlowest);
    Clock::time_point deadline = std::min(Clock::now() + timeout, phaseStart_ + all);
    if (host_.isStopping) {
        deadline = std::min(deadline, phaseStart_ + std::chrono::milliseconds(host_.options.stopTimeoutMs));
    }
    stream_.expires_at(deadline);
}

bool Connection::Hold(std::size_t further) {
    return share_.Set(buffer_.capacity() + body_.capacity() + further);
}

void Connection::ReadRequest() {
    Enter(Phase::kReading);
    if (buffer_.size() == 0 && buffer_.capacity() > kIdleBuffer) {
        buffer_.shrink_to_fit();
    }
    static_cast<void>(Hold(0));  // less than before
    header_.emplace();
    header_->header_limit(ControlServer::kMaxHeader);
    header_->body_limit(std::numeric_limits<uint64_t>::max());  // the path decides, once it is known
    SetDeadline(0);
    http::async_read_header(
        stream_, buffer_, *header_,
        [self = shared_from_this()](const ErrorCode& error, std::size_t) { self->OnHeader(error); });
}

ClientRequest Connection::GetRequest() const {
    const auto& request = parser_->get();
    return {AsView(request.method_string()), AsView(request.target()),
            std::string_view(body_).substr(0, bodySize_), client_};
}

void Connection::OnHeader(const ErrorCode& error) {
    if (error) {
        parser_.emplace(std::move(*header_));
        Refuse(error);
        return;
    }
    parser_.emplace(std::move(*header_));
    header_.reset();
    bodySize_ = 0;
    isLast_ = !parser_->get().keep_alive();
    if (host_.handler.Classify(GetRequest()) == RequestKind::kBatch) {
        BeginBatch();
        return;
    }
    if (parser_->content_length().value_or(0) > ControlServer::kMaxBody) {
        Refuse(http::error::body_limit);
        return;
    }
    parser_->body_limit(ControlServer::kMaxBody);
    GoOnToBody();
}

void Connection::GoOnToBody() {
    const bool waitsForContinue = parser_->get().version() >= 11 && !parser_->is_done() &&
                                  buffer_.size() == 0 &&
                                  beast::iequals(parser_->get()[http::field::expect], "100-continue");
    if (!waitsForContinue) {
        BeginBody();
        return;
    }
    static constexpr std::string_view goOn = "HTTP/1.1 100 Continue\r\n\r\n";
    SetDeadline(0);
    net::async_write(stream_, net::buffer(goOn.data(), goOn.size()),
                     [self = shared_from_this()](const ErrorCode& failed, std::size_t) {
                         if (!failed) {
                             self->BeginBody();
                         }
                     });
}

void Connection::BeginBody() {
    if (batch_ != nullptr) {
        ReadBatch();
    } else {
        ReadBody();
    }
}

/// The body grows with what comes, not with what was announced.
bool Connection::MakeRoom() {
    if (bodySize_ < body_.size()) {
        return true;
    }
    const std::size_t announced = parser_->content_length().value_or(ControlServer::kMaxBody) + 1;
    const std::size_t size =
        std::min({announced, ControlServer::kMaxBody + 1, std::max(kFirstBody, 2 * bodySize_)});
    if (!Hold(size - body_.capacity())) {
        return false;
    }
    body_.resize(std::max(size, bodySize_ + 1));
    return true;
}

void Connection::ReadBody() {
    if (parser_->is_done()) {
        Handle();
        return;
    }
    if (!MakeRoom()) {
        RefuseForLackOfRoom();
        return;
    }
    auto& space = parser_->get().body();
    space.data = body_.data() + bodySize_;
    space.size = body_.size() - bodySize_;
    SetDeadline(bodySize_);
    http::async_read_some(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](const ErrorCode& error, std::size_t) { self->OnBody(error); });
}

void Connection::OnBody(ErrorCode error) {
    bodySize_ = body_.size() - parser_->get().body().size;
    if (error == http::error::need_buffer) {
        error = {};
    }
    if (error) {
        Refuse(error);
    } else if (!Hold(0)) {
        RefuseForLackOfRoom();
    } else {
        ReadBody();
    }
}

void Connection::Refuse(const ErrorCode& error) {
    if (error == http::error::end_of_stream || !IsHttpError(error)) {
        return;
    }
    isLast_ = true;
    if (error == http::error::body_limit) {
        Write(MakeErrorAnswer(
            413, "The body is longer than " + std::to_string(ControlServer::kMaxBody) + " bytes."));
    } else {
        Write(MakeErrorAnswer(400, "The request is not HTTP that can be read: " + error.message() + "."));
    }
}

void Connection::RefuseForLackOfRoom() {
    isLast_ = true;
    Write(MakeErrorAnswer(503, "The agent holds " + std::to_string(host_.held.Get()) +
                                   " bytes for its clients and takes no more now: try again later."));
}

void Connection::WorkIn(WorkerPool& pool, void (Connection::*work)(), void (Connection::*then)()) {
    inWork_ = shared_from_this();
    pool.Run([this, work, then] {
        (this->*work)();
        PostPatiently(host_.io, [this, then] {
            const std::shared_ptr<Connection> self = std::move(inWork_);
            (this->*then)();
        });
    });
}

void Connection::AnswerIn(WorkerPool& pool) {
    Enter(Phase::kWorking);
    WorkIn(pool, &Connection::MakeAnswer, &Connection::WriteAnswer);
}

/// What throws leaves an answer that says so.
void Connection::MakeAnswer() {
    try {
        answer_ = host_.handler.Answer(GetRequest());
    } catch (...) {
        answer_ = HttpAnswer{kNoMemory, {}, {}};
    }
}

void Connection::WriteAnswer() {
    Write(std::move(answer_));
}

void Connection::Handle() {
    switch (host_.handler.Classify(GetRequest())) {
        case RequestKind::kImmediate:
            Enter(Phase::kWorking);
            Write(host_.handler.Answer(GetRequest()));
            break;
        case RequestKind::kObserving:
            AnswerIn(*host_.observers);
            break;
        default:
            AnswerIn(*host_.actions);
    }
}

void Connection::Write(HttpAnswer&& answer) {
    Enter(Phase::kWriting);
    written_ = 0;
    isLast_ = isLast_ || host_.isStopping;
    const bool isHead = parser_->get().method() == http::verb::head;
    const unsigned version = parser_->is_header_done() ? parser_->get().version() : 11;
    std::string().swap(body_);  // an assignment would keep the memory
    if (answer.status == kNoMemory && answer.body.empty()) {
        answer = MakeErrorAnswer(kNoMemory, "The request failed: there is no memory.");
    }
    if (!Hold(answer.body.capacity())) {
        answer = MakeErrorAnswer(503, "The answer has " + std::to_string(answer.body.size()) +
                                          " bytes, more than the agent can hold for its clients now: ask for "
                                          "less at once, or try again later.");
    }
    response_.emplace(static_cast<http::status>(answer.status), version);
    response_->set(http::field::content_type,
                   beast::string_view(answer.contentType.data(), answer.contentType.size()));
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

void Connection::WriteMore() {
    SetDeadline(written_);
    http::async_write_some(stream_, *serializer_,
                           [self = shared_from_this()](const ErrorCode& error, std::size_t bytes) {
                               self->written_ += bytes;
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

void Connection::OnWritten() {
    // What idles holds no memory of its last request.
    serializer_.reset();
    response_.reset();
    parser_.reset();
    if (host_.isStopping) {
        return;
    }
    if (isLast_) {
        Drain();
    } else {
        ReadRequest();
    }
}

/// Closing with unread bytes would make the client's next write or read fail before it has seen the answer.
void Connection::Drain() {
    Enter(Phase::kReading);
    static_cast<void>(Hold(0));  // less than before
    ErrorCode ignored;
    stream_.socket().shutdown(Protocol::socket::shutdown_send, ignored);
    SetDeadline(0);
    Discard();
}

void Connection::Discard() {
    stream_.async_read_some(net::buffer(discarded_),
                            [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                                if (!error) {
                                    self->Discard();
                                }
                            });
}

void Connection::EndSoon() {
    if (batch_ != nullptr) {
        // A read that is under way ends; what has been answered is still written.
        ErrorCode ignored;
        stream_.socket().shutdown(Protocol::socket::shutdown_receive, ignored);
    } else if (phase_ == Phase::kReading) {
        Close();
    }
}
