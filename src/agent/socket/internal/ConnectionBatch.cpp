#include <algorithm>
#include <boost/asio/write.hpp>
#include <boost/beast/http/chunk_encode.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <memory>
#include <utility>

#include "agent/socket/internal/Connection.h"

namespace {

namespace http = boost::beast::http;
namespace net = boost::asio;

/// How many bytes are read at once; the lines among them are one window.
constexpr std::size_t kWindow = std::size_t{64} << 10U;
/// Answers that may wait for a client which sends first and reads later.
constexpr std::size_t kMaxWaiting = std::size_t{16} << 20U;
constexpr std::size_t kMaxChunk = std::size_t{256} << 10U;

}  // namespace

void Connection::BeginBatch() {
    HttpAnswer refusal;
    std::unique_ptr<BatchStream> stream;
    if (parser_->get().version() < 11) {
        refusal = MakeErrorAnswer(400, "A batch is answered in chunks, so it needs HTTP/1.1.");
    } else {
        stream = host_.handler.OpenBatch(GetRequest(), refusal);
    }
    if (stream == nullptr) {
        isLast_ = isLast_ || !parser_->is_done();
        Write(std::move(refusal));
        return;
    }
    batch_ = std::make_unique<Batch>();
    batch_->stream = std::move(stream);
    batch_->head.emplace(http::status::ok, parser_->get().version());
    batch_->head->set(http::field::content_type, "application/x-ndjson");
    batch_->head->keep_alive(!isLast_);
    batch_->head->chunked(true);
    batch_->headSerializer.emplace(*batch_->head);
    body_.resize(kWindow);
    // A read takes what the buffer has room for, and the window is what was read: its changes share a sync.
    buffer_.max_size(kWindow);
    buffer_.reserve(kWindow);
    GoOnToBody();
}

void Connection::ReadBatch() {
    WriteBatch();
    Enter(Phase::kReading);
    batch_->isBusy = true;
    auto& space = parser_->get().body();
    space.data = body_.data();
    space.size = body_.size();
    if (parser_->is_done()) {
        OnBatchRead({});
        return;
    }
    SetBatchDeadline();
    http::async_read_some(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](const ErrorCode& error, std::size_t) { self->OnBatchRead(error); });
}

void Connection::OnBatchRead(const ErrorCode& error) {
    batch_->isBusy = false;
    const std::size_t bytes = body_.size() - parser_->get().body().size;
    batch_->isBroken = batch_->isBroken || (error && error != http::error::need_buffer);
    batch_->isRead = parser_->is_done();
    batch_->stream->Take(std::string_view(body_).substr(0, bytes), batch_->isRead);
    batch_->hasLines = true;
    GoOnWithBatch();
}

void Connection::WorkBatch() {
    Enter(Phase::kWorking);
    batch_->isBusy = true;
    WorkIn(*host_.actions, &Connection::WorkOnLines, &Connection::OnBatchWorked);
}

void Connection::WorkOnLines() {
    try {
        batch_->leftLines = batch_->stream->Work(batch_->worked);
    } catch (...) {
        batch_->hasFailed = true;  // there is no memory
    }
}

void Connection::OnBatchWorked() {
    batch_->isBusy = false;
    batch_->hasLines = batch_->leftLines;
    batch_->isBroken = batch_->isBroken || batch_->hasFailed;
    batch_->answers += batch_->worked;
    batch_->worked.clear();
    GoOnWithBatch();
}

void Connection::GoOnWithBatch() {
    WriteBatch();
    if (batch_->isBusy) {
        return;
    }
    const bool isAtEnd = batch_->isBroken || host_.isStopping || (batch_->isRead && !batch_->hasLines);
    const bool hasRoom = batch_->answers.size() < kMaxWaiting &&
                         Hold(batch_->answers.size() + batch_->chunk.size() + batch_->stream->GetHeld());
    if (isAtEnd) {
        EndBatch();
    } else if (!hasRoom && batch_->isWriting) {
        Enter(Phase::kWriting);  // until the client has read some
    } else if (!hasRoom) {
        Close();
    } else if (batch_->hasLines) {
        WorkBatch();
    } else {
        ReadBatch();
    }
}

void Connection::WriteBatch() {
    if (batch_->isWriting || (batch_->answers.empty() && !batch_->headSerializer.has_value())) {
        return;
    }
    batch_->isWriting = true;
    SetBatchDeadline();
    const auto written = [self = shared_from_this()](const ErrorCode& error, std::size_t) {
        self->OnBatchWritten(error);
    };
    if (batch_->headSerializer.has_value()) {
        http::async_write_header(stream_, *batch_->headSerializer, written);
        return;
    }
    if (batch_->answers.size() <= kMaxChunk) {
        batch_->chunk = std::move(batch_->answers);
        batch_->answers.clear();
    } else {
        batch_->chunk = batch_->answers.substr(0, kMaxChunk);
        batch_->answers.erase(0, kMaxChunk);
    }
    net::async_write(stream_, http::make_chunk(net::buffer(batch_->chunk)), written);
}

void Connection::OnBatchWritten(const ErrorCode& error) {
    batch_->isWriting = false;
    batch_->headSerializer.reset();
    batch_->chunk.clear();
    if (error) {
        batch_->isBroken = true;
        batch_->answers.clear();
        Close();  // a read that is under way ends; a call goes on
        return;
    }
    GoOnWithBatch();
}

/// A batch may go on for ever, so the limit of time is one for each read and write.
void Connection::SetBatchDeadline() {
    const std::chrono::milliseconds timeout(host_.isStopping ? host_.options.stopTimeoutMs
                                                             : host_.options.clientTimeoutMs);
    const bool isEnding = host_.isStopping && phase_ == Phase::kWriting;
    stream_.expires_at((isEnding ? phaseStart_ : Clock::now()) + timeout);
}

/// No more answers follow: once the last one is written, the connection goes on or ends. Only a batch that
/// came to its end gets the last chunk, so that a client can tell.
void Connection::EndBatch() {
    if (phase_ != Phase::kWriting) {
        Enter(Phase::kWriting);
    }
    if (batch_->isWriting) {
        return;
    }
    if (!batch_->isRead || batch_->isBroken || batch_->hasLines) {
        Close();
        return;
    }
    if (!batch_->isEnding) {
        batch_->isEnding = true;
        batch_->isWriting = true;
        SetBatchDeadline();
        net::async_write(stream_, http::make_chunk_last(),
                         [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                             self->OnBatchWritten(error);
                         });
        return;
    }
    batch_.reset();
    std::string().swap(body_);  // an assignment would keep the memory
    OnWritten();
}
