#include "simulation/ConnectionLoop.h"

#include <array>

#include <fcntl.h>
#include <nats/nats.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

template <auto kDestroy>
struct Destroy {
    template <class Object>
    void operator()(Object* object) const noexcept {
        kDestroy(object);
    }
};

using Options = std::unique_ptr<natsOptions, Destroy<natsOptions_Destroy>>;
using Message = std::unique_ptr<natsMsg, Destroy<natsMsg_Destroy>>;

}  // namespace

struct ConnectionLoop::Connection {
    int epoll = -1;
    natsSock socket = -1;
    ino_t inode = 0;  ///< of the socket
    epoll_event wanted{};
    std::unique_ptr<natsConnection, Destroy<natsConnection_Destroy>> connection;
    std::unique_ptr<natsSubscription, Destroy<natsSubscription_Destroy>> subscription;

    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() {
        subscription.reset();
        if (connection == nullptr) {
            return;
        }
        // Closing waits for what is still to be written, which nobody but this thread would do.
        if ((wanted.events & EPOLLOUT) != 0) {
            natsConnection_ProcessWriteEvent(connection.get());
        }
        natsConnection_Close(connection.get());
        // The library only shuts the socket down, and leaves it to the loop to find its end.
        natsConnection_ProcessReadEvent(connection.get());
        connection.reset();
        if (IsSocketOpen()) {
            close(socket);
        }
    }

    /// True where the descriptor is still that of this connection.
    [[nodiscard]] bool IsSocketOpen() const {
        struct stat status {};
        return fstat(socket, &status) == 0 && status.st_ino == inode;
    }

    natsStatus Change(int operation) {
        return epoll_ctl(epoll, operation, socket, &wanted) == 0 ? NATS_OK : NATS_SYS_ERROR;
    }
    natsStatus Want(uint32_t event, bool add) {
        wanted.events = add ? wanted.events | event : wanted.events & ~event;
        return Change(EPOLL_CTL_MOD);
    }

    // What the client library calls to have its socket watched.
    static natsStatus Attach(void** self, void* loop, natsConnection* /*connection*/, natsSock socket) {
        *self = loop;
        auto* const connection = static_cast<Connection*>(loop);
        connection->socket = socket;
        // A collector that is started meanwhile must not keep all of them open.
        static_cast<void>(fcntl(socket, F_SETFD, FD_CLOEXEC));
        struct stat status {};
        connection->inode = fstat(socket, &status) == 0 ? status.st_ino : 0;
        connection->wanted.events = EPOLLIN;
        return connection->Change(EPOLL_CTL_ADD);
    }
    static natsStatus WantRead(void* self, bool add) {
        return static_cast<Connection*>(self)->Want(EPOLLIN, add);
    }
    static natsStatus WantWrite(void* self, bool add) {
        return static_cast<Connection*>(self)->Want(EPOLLOUT, add);
    }
    static natsStatus Detach(void* self) {
        // A socket that is closed already is watched no longer.
        static_cast<void>(static_cast<Connection*>(self)->Change(EPOLL_CTL_DEL));
        return NATS_OK;
    }
};

ConnectionLoop::ConnectionLoop(std::string url, Take take, Lost lost)
    : url_(std::move(url)),
      take_(std::move(take)),
      lost_(std::move(lost)),
      epoll_(epoll_create1(EPOLL_CLOEXEC)) {}

ConnectionLoop::~ConnectionLoop() {
    connections_.clear();
    close(epoll_);
}

bool ConnectionLoop::Connect(uint32_t owner, const std::string& inbox) {
    constexpr int bufferBytes = 4096;
    constexpr int64_t patienceMs = 20'000;
    auto made = std::make_unique<Connection>();
    made->epoll = epoll_;
    made->wanted.data.u32 = owner;
    natsOptions* created = nullptr;
    natsConnection* connection = nullptr;
    natsSubscription* subscription = nullptr;
    natsStatus status = natsOptions_Create(&created);
    const Options options(created);
    const std::array<std::function<natsStatus()>, 9> steps{
        [&] { return natsOptions_SetURL(created, url_.c_str()); },
        [&] { return natsOptions_SetTimeout(created, patienceMs); },
        [&] { return natsOptions_SetAllowReconnect(created, false); },
        [&] { return natsOptions_SetPingInterval(created, 0); },
        [&] { return natsOptions_SetSendAsap(created, true); },
        [&] { return natsOptions_SetIOBufSize(created, bufferBytes); },
        [&] {
            return natsOptions_SetEventLoop(created, made.get(), Connection::Attach, Connection::WantRead,
                                            Connection::WantWrite, Connection::Detach);
        },
        [&] { return natsConnection_Connect(&connection, created); },
        [&] {
            made->connection.reset(connection);
            return natsConnection_SubscribeSync(&subscription, connection, inbox.c_str());
        }};
    for (std::size_t step = 0; step < steps.size() && status == NATS_OK; ++step) {
        status = steps[step]();
    }
    made->subscription.reset(subscription);
    if (status == NATS_OK) {
        connections_[owner] = std::move(made);
    }
    return status == NATS_OK;
}

void ConnectionLoop::Close(uint32_t owner) {
    connections_.erase(owner);
}

bool ConnectionLoop::Publish(uint32_t owner, const std::string& subject, const std::string& reply,
                             const std::vector<std::pair<std::string, std::string>>& headers,
                             std::string_view data) {
    natsMsg* created = nullptr;
    natsStatus status = natsMsg_Create(&created, subject.c_str(), reply.empty() ? nullptr : reply.c_str(),
                                       data.data(), static_cast<int>(data.size()));
    const Message message(created);
    for (const auto& [name, value] : headers) {
        status = status == NATS_OK ? natsMsgHeader_Set(created, name.c_str(), value.c_str()) : status;
    }
    const auto found = connections_.find(owner);
    return status == NATS_OK && found != connections_.end() &&
           natsConnection_PublishMsg(found->second->connection.get(), created) == NATS_OK;
}

void ConnectionLoop::Turn(int waitMs) {
    constexpr int most = 512;
    std::array<epoll_event, most> events{};
    const int count = epoll_wait(epoll_, events.data(), most, waitMs);
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        const auto found = connections_.find(event.data.u32);
        if (found == connections_.end()) {
            continue;  // it went while another one's message was handled
        }
        natsConnection* const connection = found->second->connection.get();
        if ((event.events & EPOLLOUT) != 0) {
            natsConnection_ProcessWriteEvent(connection);
        }
        if ((event.events & ~static_cast<uint32_t>(EPOLLOUT)) != 0) {
            natsConnection_ProcessReadEvent(connection);
            Read(event.data.u32);
        }
    }
}

void ConnectionLoop::Read(uint32_t owner) {
    for (;;) {
        const auto found = connections_.find(owner);
        if (found == connections_.end()) {
            return;
        }
        natsMsg* received = nullptr;
        const natsStatus status = natsSubscription_NextMsg(&received, found->second->subscription.get(), 0);
        if (status == NATS_OK) {
            const Message message(received);
            take_(owner, natsMsg_GetSubject(received),
                  {natsMsg_GetData(received), static_cast<std::size_t>(natsMsg_GetDataLength(received))});
            continue;
        }
        if (status == NATS_NO_RESPONDERS) {
            continue;  // the batch is not acknowledged, and will be sent again
        }
        if (natsConnection_IsClosed(found->second->connection.get())) {
            connections_.erase(found);
            lost_(owner);
        }
        return;
    }
}
