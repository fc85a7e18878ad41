#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "support/Process.h"

/// Real servers on the loopback interface, each in a scratch directory of the test's.

/// One nats-server with its stream store, on a port that stays its own.
class BrokerServer {
public:
    /// `directory` is made. `extra` is appended to the configuration.
    BrokerServer(std::string directory, std::string name, std::string extra = {});

    /// Starts it and waits until it answers; false where it does not.
    bool Start();
    /// The same without the wait: a server of a cluster answers once the others are there.
    void Launch();
    [[nodiscard]] bool WaitUntilReady() const;
    void Kill() { process_.Kill(); }
    void Stop() { process_.Stop(); }
    [[nodiscard]] const Process& GetProcess() const { return process_; }

    [[nodiscard]] std::string GetUrl() const;
    [[nodiscard]] int GetPort() const { return port_; }
    [[nodiscard]] const std::string& GetName() const { return name_; }
    [[nodiscard]] const std::string& GetDirectory() const { return directory_; }
    /// The answer of its monitoring to `path`, such as "/jsz"; empty where there is none.
    [[nodiscard]] std::string Monitor(const std::string& path) const;

private:
    const std::string directory_;
    const std::string name_;
    const std::string extra_;
    const int port_;
    const int monitorPort_;
    Process process_;
};

/// Three of them that hold one stream together.
class BrokerCluster {
public:
    explicit BrokerCluster(const std::string& directory);

    bool Start();
    [[nodiscard]] std::string GetUrls() const;
    [[nodiscard]] BrokerServer& At(std::size_t index) { return *servers_[index]; }
    /// The index of the server that leads the stream; 3 where none does.
    [[nodiscard]] std::size_t FindStreamLeader() const;

private:
    std::vector<std::unique_ptr<BrokerServer>> servers_;
};

/// One PostgreSQL server that is reached through a Unix socket.
class DatabaseServer {
public:
    explicit DatabaseServer(std::string directory);
    ~DatabaseServer();
    DatabaseServer(const DatabaseServer&) = delete;
    DatabaseServer& operator=(const DatabaseServer&) = delete;

    bool Start();
    /// Ends all its processes at once, as a crash of the machine would.
    void Kill();
    void Stop();

    /// What a client connects with.
    [[nodiscard]] std::string GetParameters(const std::string& name = "lum") const;
    /// What psql prints for `sql`: rows of fields separated by '|'.
    [[nodiscard]] std::string Query(const std::string& sql, const std::string& name = "lum") const;
    [[nodiscard]] const std::string& GetDirectory() const { return directory_; }

private:
    const std::string directory_;
    Process process_;
};
