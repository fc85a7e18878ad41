#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

/// One kept-alive HTTP connection to an agent's control socket. Belongs to one thread.
class AgentConnection {
public:
    /// How long an answer may take; an action that works on a large table is not given up early.
    static constexpr std::chrono::milliseconds kAnswerTimeout = std::chrono::minutes(10);

    struct Reply {
        unsigned status = 0;  ///< HTTP status
        std::string body;
    };

    explicit AgentConnection(std::string socketPath,
                             std::chrono::milliseconds answerTimeout = kAnswerTimeout);
    AgentConnection(const AgentConnection&) = delete;
    AgentConnection& operator=(const AgentConnection&) = delete;
    ~AgentConnection();

    [[nodiscard]] const std::string& GetSocketPath() const { return socketPath_; }

    /// Sends one request and waits for its answer; connects first where no connection is open or the agent
    /// has closed it since. False, with the reason as a sentence in `error`, where no agent answers. A
    /// request is never sent twice: one that got no answer may or may not have been carried out.
    [[nodiscard]] bool Get(std::string_view target, Reply& reply, std::string& error);
    [[nodiscard]] bool Post(std::string_view target, std::string body, Reply& reply, std::string& error);

private:
    class Stream;

    const std::string socketPath_;
    std::unique_ptr<Stream> stream_;
};
