#pragma once

#include <array>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "agent/socket/Client.h"
#include "agent/socket/ControlServer.h"
#include "agent/socket/Http.h"
#include "agent/socket/internal/HeldBytes.h"
#include "agent/socket/internal/WorkerPool.h"

class Connection;

/// What the connections of a server share.
struct ConnectionHost {
    ConnectionHost(const ControlServerOptions& serverOptions, RequestHandler& requestHandler)
        : options(serverOptions), handler(requestHandler), held(serverOptions.maxHeld) {}
    virtual ~ConnectionHost() = default;

    /// A connection is gone. On the server's thread.
    virtual void OnGone(Connection* connection) = 0;

    const ControlServerOptions options;
    RequestHandler& handler;
    boost::asio::io_context io{1};
    std::optional<WorkerPool> actions;
    std::optional<WorkerPool> observers;
    HeldBytes held;

    // Belongs to the thread that runs io.
    bool isStopping = false;
};

/// One client. Lives as long as an operation of it is under way; runs on the server's thread, but for the
/// handler's call.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    using Protocol = boost::asio::generic::stream_protocol;
    using ErrorCode = boost::system::error_code;
    using Clock = std::chrono::steady_clock;

    Connection(ConnectionHost& host, Protocol::socket socket);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    void ReadRequest();
    /// Ends the connection, unless a request of it is being answered: then it ends after the answer.
    void EndSoon();
    /// Ends it at once. A call that runs goes on, and its answer is dropped.
    void Close() { stream_.close(); }

    /// True while it waits for its client, in either direction, rather than for an action.
    [[nodiscard]] bool WaitsForClient() const { return phase_ != Phase::kWorking; }
    [[nodiscard]] bool IsAnswering() const { return phase_ != Phase::kReading; }
    /// When its present phase began.
    [[nodiscard]] Clock::time_point GetPhaseStart() const { return phaseStart_; }

private:
    enum class Phase : uint8_t { kReading, kWorking, kWriting };

    void OnHeader(const ErrorCode& error);
    [[nodiscard]] ClientRequest GetRequest() const;
    /// Asks for the body where the client waits for that, then goes on.
    void GoOnToBody();
    void BeginBody();
    void ReadBody();
    void OnBody(ErrorCode error);
    [[nodiscard]] bool MakeRoom();
    void Refuse(const ErrorCode& error);
    void RefuseForLackOfRoom();
    void Handle();
    /// Calls `work` on a thread of the pool, then `then` on the server's own. The worker has no reference of
    /// its own: whoever gives up the last one destroys the connection, and that is for the server's thread.
    void WorkIn(WorkerPool& pool, void (Connection::*work)(), void (Connection::*then)());
    /// Has the handler answer in the pool.
    void AnswerIn(WorkerPool& pool);
    void MakeAnswer();
    void WriteAnswer();

    // ConnectionBatch.cpp: lines are read and worked on while answers are written.
    void BeginBatch();
    void ReadBatch();
    void OnBatchRead(const ErrorCode& error);
    void WorkBatch();
    void WorkOnLines();
    void OnBatchWorked();
    /// Reads, works or waits for room, whichever is next.
    void GoOnWithBatch();
    void WriteBatch();
    void OnBatchWritten(const ErrorCode& error);
    void EndBatch();

    void Write(HttpAnswer&& answer);
    void WriteMore();
    void OnWritten();
    void Drain();
    void Discard();

    void Enter(Phase phase);
    /// The time from now within which the next operation has to get on; `moved` bytes of this phase did so
    /// far.
    void SetDeadline(std::size_t moved);
    void SetBatchDeadline();
    /// True where the connection may hold `further` bytes more within the limit for all clients.
    [[nodiscard]] bool Hold(std::size_t further);

    ConnectionHost& host_;
    boost::beast::basic_stream<Protocol> stream_;
    const Client client_;
    HeldBytes::Share share_;
    boost::beast::flat_buffer buffer_;
    std::optional<boost::beast::http::request_parser<boost::beast::http::empty_body>> header_;
    std::optional<boost::beast::http::request_parser<boost::beast::http::buffer_body>> parser_;
    std::string body_;
    std::size_t bodySize_ = 0;

    HttpAnswer answer_;
    std::optional<boost::beast::http::response<boost::beast::http::string_body>> response_;
    std::optional<boost::beast::http::response_serializer<boost::beast::http::string_body>> serializer_;
    std::size_t written_ = 0;

    /// What a batch needs.
    struct Batch {
        std::unique_ptr<BatchStream> stream;
        std::optional<boost::beast::http::response<boost::beast::http::empty_body>> head;
        std::optional<boost::beast::http::response_serializer<boost::beast::http::empty_body>> headSerializer;
        std::string answers;    ///< wait to be written
        std::string chunk;      ///< is being written
        bool hasLines = false;  ///< whole lines wait for their calls
        bool isBusy = false;    ///< a read or a call is under way
        bool isWriting = false;
        bool isRead = false;    ///< the body has come to its end
        bool isBroken = false;  ///< it ends before its end
        bool isEnding = false;  ///< the last chunk is being written
        // What a call leaves behind; belongs to it while it runs.
        std::string worked;
        bool leftLines = false;
        bool hasFailed = false;
    };
    std::unique_ptr<Batch> batch_;

    std::shared_ptr<Connection> inWork_;  ///< itself, for as long as a worker has it
    std::array<char, 4096> discarded_{};
    Phase phase_ = Phase::kReading;
    Clock::time_point phaseStart_ = Clock::now();
    bool isLast_ = false;
};
