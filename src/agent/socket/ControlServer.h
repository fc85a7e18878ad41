#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "agent/socket/Http.h"
#include "host/file/FileDescriptor.h"
#include "host/log/LumDebug.h"

struct ControlServerOptions {
    uint32_t threads = 8;               ///< how many actions may run at once
    uint32_t clientTimeoutMs = 30'000;  ///< how long a client may neither send nor take a byte
    std::size_t maxConnections = 1024;  ///< when they are taken, a new client takes the place of an idle one
    std::size_t maxHeld = std::size_t{256} << 20U;  ///< bytes held for all clients together
    uint32_t stopTimeoutMs = 10'000;                ///< how long an answer may still be read after Stop
};

/// What a server has to do at the moment.
struct ControlServerFigures {
    std::size_t connections = 0;
    std::size_t heldBytes = 0;  ///< for all clients together, beyond the first few of each
    std::size_t running = 0;    ///< calls that hold a thread
    std::size_t waiting = 0;    ///< calls that wait for one
};

/// What answers the requests of a server.
class RequestHandler {
public:
    virtual ~RequestHandler() = default;

    /// Says where the request is to be answered; quick. The body is not there yet.
    [[nodiscard]] virtual RequestKind Classify(const ClientRequest& request) = 0;
    /// Answers one request; called from several threads at once.
    [[nodiscard]] virtual HttpAnswer Answer(const ClientRequest& request) = 0;
    /// Begins a batch. Null, with the answer in `refusal`, where it cannot. `client` outlives the stream.
    [[nodiscard]] virtual std::unique_ptr<BatchStream> OpenBatch(const ClientRequest& request,
                                                                 HttpAnswer& refusal) = 0;
};

/// HTTP/1.1 on listening stream sockets: one thread for all connections, a fixed number of threads for the
/// actions. What is idle or stalled holds no thread, only its descriptor, and that not for long. What is held
/// for clients is bounded, for each and for all together.
class ControlServer {
public:
    /// The most bytes of a body, which is refused with 413 where it has more, and of a line of a batch.
    static constexpr std::size_t kMaxBody = std::size_t{16} << 20U;
    static constexpr std::size_t kMaxHeader = std::size_t{16} << 10U;

    /// `handler` and `debug` must outlive the server.
    ControlServer(const ControlServerOptions& options, RequestHandler& handler, LumDebug& debug);
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;
    ~ControlServer();

    /// Serves the listening socket from now on. False where the system refuses a thread. To be called once.
    [[nodiscard]] bool Start(FileDescriptor listener);

    /// Also serves this one, for clients of the network. To be called before Start.
    void AddNetworkListener(FileDescriptor listener);

    /// Runs `task` on a thread of the pool, when its turn comes. To be called between Start and Stop.
    void RunInPool(std::function<void()> task);

    /// Accepts and reads no more, waits until each request that was read whole has its answer, and ends the
    /// connections; a client has `stopTimeoutMs` to read its answer. Does nothing where the server does not
    /// run.
    void Stop();

    /// For how long nothing has moved: the connections' thread has not come round, or calls wait while none
    /// of those that hold all threads of the pool has ended. 0 while all is well. From any thread.
    [[nodiscard]] std::chrono::milliseconds GetStuckTime();

    /// From any thread.
    [[nodiscard]] ControlServerFigures GetFigures() const;

private:
    class Impl;

    std::unique_ptr<Impl> impl_;
};
