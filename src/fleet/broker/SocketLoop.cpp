#include "fleet/broker/internal/SocketLoop.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

SocketLoop::~SocketLoop() {
    // The library leaves some sockets to the loop to close, and closes others itself; by then the number may
    // be another one's.
    if (inode_ != 0 && SocketInode() == inode_) {
        close(socket_);
    }
}

ino_t SocketLoop::SocketInode() const {
    struct stat status {};
    return fstat(socket_, &status) == 0 ? status.st_ino : 0;
}

natsStatus SocketLoop::AddTo(natsOptions* options) {
    const auto attach = [](void** self, void* loop, natsConnection*, natsSock socket) {
        auto* const made = static_cast<SocketLoop*>(loop);
        made->socket_ = socket;
        made->inode_ = made->SocketInode();
        *self = loop;
        return NATS_OK;
    };
    const auto wantRead = [](void*, bool) { return NATS_OK; };  // it always does
    const auto wantWrite = [](void* self, bool wants) {
        static_cast<SocketLoop*>(self)->wantsToSend_ = wants;
        return NATS_OK;
    };
    const auto detach = [](void*) { return NATS_OK; };
    const natsStatus status = natsOptions_SetEventLoop(options, this, attach, wantRead, wantWrite, detach);
    // Otherwise a thread of the library would say from time to time that there is something to be sent.
    return status == NATS_OK ? natsOptions_SetSendAsap(options, true) : status;
}

short SocketLoop::Wait(short events, int64_t timeoutMs) const {
    pollfd watched{socket_, events, 0};
    return poll(&watched, 1, static_cast<int>(timeoutMs)) > 0 ? watched.revents : short{0};
}

void SocketLoop::Turn(natsConnection* connection, int64_t timeoutMs) {
    if (wantsToSend_) {
        natsConnection_ProcessWriteEvent(connection);
    }
    const short happened = Wait(wantsToSend_ ? POLLIN | POLLOUT : POLLIN, timeoutMs);
    if ((happened & POLLOUT) != 0) {
        natsConnection_ProcessWriteEvent(connection);
    }
    if ((happened & ~POLLOUT) != 0) {
        natsConnection_ProcessReadEvent(connection);
    }
}

bool SocketLoop::Send(natsConnection* connection, int64_t timeoutMs) {
    while (wantsToSend_ && !natsConnection_IsClosed(connection)) {
        natsConnection_ProcessWriteEvent(connection);
        if (wantsToSend_ && Wait(POLLOUT, timeoutMs) == 0) {
            return false;
        }
    }
    return !wantsToSend_;
}
