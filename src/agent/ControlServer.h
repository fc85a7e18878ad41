#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "agent/RequestRouter.h"
#include "host/file/FileDescriptor.h"
#include "host/log/LumDebug.h"

struct ControlServerOptions {
    uint32_t threads = 8;               ///< how many actions may run at once
    uint32_t clientTimeoutMs = 30'000;  ///< how long a client may neither send nor take a byte
    std::size_t maxConnections = 1024;  ///< further ones wait to be accepted
};

/// HTTP/1.1 on a listening Unix socket: one thread for all connections, a fixed number of threads for the
/// actions. What is idle or stalled holds no thread, only its descriptor, and that not for long.
class ControlServer {
public:
    /// Answers one request; called from several threads at once.
    using Handler =
        std::function<HttpAnswer(std::string_view method, std::string_view target, std::string_view body)>;

    /// A body of more bytes is refused with 413.
    static constexpr std::size_t kMaxBody = std::size_t{16} << 20U;
    static constexpr std::size_t kMaxHeader = std::size_t{16} << 10U;

    /// `debug` must outlive the server.
    ControlServer(const ControlServerOptions& options, Handler handler, LumDebug& debug);
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;
    ~ControlServer();

    /// Serves the listening socket from now on. False where the system refuses a thread. To be called once.
    [[nodiscard]] bool Start(FileDescriptor listener);

    /// Accepts and reads no more, waits until each request that was read whole has its answer, and ends the
    /// connections. Does nothing where the server does not run.
    void Stop();

private:
    class Impl;

    std::unique_ptr<Impl> impl_;
};
