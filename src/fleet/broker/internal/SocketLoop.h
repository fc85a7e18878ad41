#pragma once

#include <atomic>
#include <cstdint>

#include <nats/nats.h>
#include <sys/types.h>

/// Moves what one connection sends and receives on the thread that owns it, where the client library has
/// threads of its own otherwise: many messages cost one call of the system then, and none a change of
/// threads. Must outlive the connection.
class SocketLoop {
public:
    SocketLoop() = default;
    SocketLoop(const SocketLoop&) = delete;
    SocketLoop& operator=(const SocketLoop&) = delete;
    ~SocketLoop();

    /// The connection that is made with `options` will be moved by this object.
    [[nodiscard]] natsStatus AddTo(natsOptions* options);

    /// Sends what is to be sent as far as the system takes it, and reads what has come; waits up to
    /// `timeoutMs` for either.
    void Turn(natsConnection* connection, int64_t timeoutMs);
    /// Waits until the system has taken all that is to be sent; false where it takes nothing for `timeoutMs`,
    /// or the connection is closed.
    [[nodiscard]] bool Send(natsConnection* connection, int64_t timeoutMs);

private:
    /// Which of `events`, or what failure, the socket has within `timeoutMs`; 0 for none.
    [[nodiscard]] short Wait(short events, int64_t timeoutMs) const;
    [[nodiscard]] ino_t SocketInode() const;

    natsSock socket_ = -1;
    ino_t inode_ = 0;  ///< of the socket
    /// There is something to be sent. The library's timer sets it as well.
    std::atomic<bool> wantsToSend_ = false;
};
