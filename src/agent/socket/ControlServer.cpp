#include "agent/socket/ControlServer.h"

#include <algorithm>
#include <atomic>
#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <exception>
#include <optional>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>

#include "agent/socket/internal/Connection.h"

namespace {

namespace net = boost::asio;
using ErrorCode = boost::system::error_code;
using Clock = std::chrono::steady_clock;

/// After a failed accept, so that a lack of descriptors does not turn into a busy loop.
constexpr std::chrono::milliseconds kAcceptPause(100);
/// After a failure, most likely a lack of memory, which takes a moment to go.
constexpr std::chrono::milliseconds kFailurePause(10);
/// Whoever has had its place for so long without sending a whole request may lose it to a new client.
constexpr std::chrono::milliseconds kPlaceTime(1000);

}  // namespace

class ControlServer::Impl : public ConnectionHost {
public:
    Impl(const ControlServerOptions& serverOptions, RequestHandler& requestHandler, LumDebug& debug)
        : ConnectionHost(serverOptions, requestHandler), debug_(debug) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() override { Stop(); }

    [[nodiscard]] bool Start(FileDescriptor listener);
    void AddNetworkListener(FileDescriptor listener) { networkListener_ = std::move(listener); }
    void RunInPool(std::function<void()> task);
    void Stop();
    [[nodiscard]] std::chrono::milliseconds GetStuckTime();

    [[nodiscard]] ControlServerFigures GetFigures() const {
        return {connectionCount_, held.Get(), actions->CountRunning(), actions->CountWaiting()};
    }

private:
    /// One listening socket. Belongs to the thread that runs io.
    struct Listener {
        explicit Listener(net::io_context& io) : acceptor(io) {}

        net::basic_socket_acceptor<net::generic::stream_protocol> acceptor;
        bool isWaiting = false;
    };

    void OnGone(Connection* connection) override;
    void Run();
    void Listen(FileDescriptor& descriptor, int family);
    void Accept();
    void WaitForClient(Listener& listener);
    void OnClient(Listener& listener, const ErrorCode& error);
    [[nodiscard]] bool MakePlace();
    void AcceptLater();
    void StopAccepting();
    void EndReaders();

    LumDebug& debug_;
    FileDescriptor networkListener_;

    std::optional<net::executor_work_guard<net::io_context::executor_type>> keepRunning_;
    std::thread thread_;
    std::atomic<std::size_t> connectionCount_{0};
    /// When the connections' thread came round last, and whether it was asked to.
    std::atomic<Clock::rep> lastRound_{0};
    std::atomic<bool> isRoundAsked_{false};

    // The rest belongs to the thread that runs io.
    std::vector<std::unique_ptr<Listener>> listeners_;
    net::steady_timer acceptTimer_{io};
    net::steady_timer stopTimer_{io};
    std::unordered_set<Connection*> connections_;
    bool hasWarnedOfAccept_ = false;
};

bool ControlServer::Impl::Start(FileDescriptor listener) {
    try {
        Listen(listener, AF_UNIX);
        if (networkListener_.IsOpen()) {
            Listen(networkListener_, AF_INET);
        }
        keepRunning_.emplace(io.get_executor());
        actions.emplace(options.threads);
        observers.emplace(1);
        thread_ = std::thread([this] { Run(); });
    } catch (const std::exception& error) {
        debug_.ErrorWithNL("Cannot serve the control socket: %s", error.what());
        return false;
    }
    return true;
}

void ControlServer::Impl::Listen(FileDescriptor& descriptor, int family) {
    auto listener = std::make_unique<Listener>(io);
    listener->acceptor.assign(net::generic::stream_protocol(family, 0), descriptor.Get());
    static_cast<void>(descriptor.Release());  // the acceptor owns it now
    listener->acceptor.non_blocking(true);
    listeners_.push_back(std::move(listener));
}

void ControlServer::Impl::Run() {
    for (;;) {
        try {
            Accept();  // also takes up again what the operation that threw has left
            io.run();
            return;
        } catch (const std::exception& error) {
            // That operation has dropped its connection; the others go on.
            debug_.ErrorWithNL("A connection of the control socket failed: %s", error.what());
            std::this_thread::sleep_for(kFailurePause);
        }
    }
}

void ControlServer::Impl::Accept() {
    for (const auto& listener : listeners_) {
        if (!isStopping && !listener->isWaiting) {
            WaitForClient(*listener);
        }
    }
}

void ControlServer::Impl::WaitForClient(Listener& listener) {
    listener.acceptor.async_wait(net::socket_base::wait_read,
                                 [this, &listener](const ErrorCode& error) { OnClient(listener, error); });
    listener.isWaiting = true;  // not where that has thrown
}

void ControlServer::Impl::OnClient(Listener& listener, const ErrorCode& error) {
    listener.isWaiting = false;
    if (isStopping) {
        return;
    }
    if (!error && connections_.size() >= options.maxConnections && !MakePlace()) {
        AcceptLater();
        return;
    }
    ErrorCode failed = error;
    net::generic::stream_protocol::socket socket(io);
    if (!failed) {
        listener.acceptor.accept(socket, failed);
    }
    if (failed) {
        if (!hasWarnedOfAccept_) {
            debug_.WarningWithNL("The control socket cannot accept a client, trying again: %s",
                                 failed.message().c_str());
        }
        hasWarnedOfAccept_ = true;
        AcceptLater();
        return;
    }
    hasWarnedOfAccept_ = false;
    static_cast<void>(::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC));  // cannot fail on an open one
    const auto connection = std::make_shared<Connection>(*this, std::move(socket));
    connections_.insert(connection.get());
    connectionCount_ = connections_.size();
    connection->ReadRequest();
    WaitForClient(listener);
}

/// Ends the client that has waited longest, so that those who hold their places for nothing lock nobody out:
/// first one whose request is not whole, else one that does not read its answer. False where every client is
/// new or waits for its action.
bool ControlServer::Impl::MakePlace() {
    Connection* longest = nullptr;
    const auto before = [](const Connection* left, const Connection* right) {
        return std::make_pair(left->IsAnswering(), left->GetPhaseStart()) <
               std::make_pair(right->IsAnswering(), right->GetPhaseStart());
    };
    const Clock::time_point oldEnough = Clock::now() - kPlaceTime;
    for (Connection* const connection : connections_) {
        if (connection->WaitsForClient() && connection->GetPhaseStart() <= oldEnough &&
            (longest == nullptr || before(connection, longest))) {
            longest = connection;
        }
    }
    if (longest == nullptr) {
        return false;
    }
    longest->Close();
    return true;
}

void ControlServer::Impl::AcceptLater() {
    acceptTimer_.expires_after(kAcceptPause);
    acceptTimer_.async_wait([this](const ErrorCode&) { Accept(); });
}

void ControlServer::Impl::OnGone(Connection* connection) {
    connections_.erase(connection);
    connectionCount_ = connections_.size();
    if (isStopping && connections_.empty()) {
        keepRunning_.reset();
        stopTimer_.cancel();
    }
}

void ControlServer::Impl::StopAccepting() {
    isStopping = true;
    ErrorCode ignored;
    for (const auto& listener : listeners_) {
        listener->acceptor.close(ignored);
    }
    acceptTimer_.cancel();
    for (Connection* const connection : connections_) {
        connection->EndSoon();
    }
    if (connections_.empty()) {
        keepRunning_.reset();
        return;
    }
    stopTimer_.expires_after(std::chrono::milliseconds(options.stopTimeoutMs));
    stopTimer_.async_wait([this](const ErrorCode& error) {
        if (!error) {
            EndReaders();
        }
    });
}

/// Ends those who still read what was there when the stop began; an answer of an action that ends only now
/// has its own time.
void ControlServer::Impl::EndReaders() {
    const Clock::time_point stopped = Clock::now() - std::chrono::milliseconds(options.stopTimeoutMs);
    for (Connection* const connection : connections_) {
        if (connection->WaitsForClient() && connection->GetPhaseStart() <= stopped) {
            connection->Close();
        }
    }
}

void ControlServer::Impl::Stop() {
    if (!thread_.joinable()) {
        return;
    }
    net::post(io, [this] { StopAccepting(); });
    thread_.join();
    actions->Join();
    observers->Join();
}

void ControlServer::Impl::RunInPool(std::function<void()> task) {
    actions->Run([task = std::make_shared<std::function<void()>>(std::move(task)), this] {
        try {
            (*task)();
        } catch (const std::exception& error) {
            debug_.ErrorWithNL("A call of the agent's own failed: %s", error.what());
        }
    });
}

std::chrono::milliseconds ControlServer::Impl::GetStuckTime() {
    const auto now = Clock::now().time_since_epoch();
    Clock::duration round = Clock::duration::zero();
    if (!isRoundAsked_.exchange(true)) {
        lastRound_ = now.count();
        PostPatiently(io, [this] { isRoundAsked_ = false; });
    } else {
        round = now - Clock::duration(lastRound_);
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::max(round, actions->GetStuckTime()));
}

ControlServer::ControlServer(const ControlServerOptions& options, RequestHandler& handler, LumDebug& debug)
    : impl_(std::make_unique<Impl>(options, handler, debug)) {}

ControlServer::~ControlServer() = default;

bool ControlServer::Start(FileDescriptor listener) {
    return impl_->Start(std::move(listener));
}

void ControlServer::AddNetworkListener(FileDescriptor listener) {
    impl_->AddNetworkListener(std::move(listener));
}

void ControlServer::RunInPool(std::function<void()> task) {
    impl_->RunInPool(std::move(task));
}

void ControlServer::Stop() {
    impl_->Stop();
}

std::chrono::milliseconds ControlServer::GetStuckTime() {
    return impl_->GetStuckTime();
}

ControlServerFigures ControlServer::GetFigures() const {
    return impl_->GetFigures();
}
