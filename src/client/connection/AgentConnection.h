#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// One kept-alive HTTP connection to an agent's control socket. Belongs to one thread.
class AgentConnection {
public:
    /// How long an answer may take where the command line does not say.
    static constexpr std::chrono::milliseconds kAnswerTimeout = std::chrono::seconds(30);

    struct Reply {
        unsigned status = 0;  ///< HTTP status
        std::string body;
    };

    /// Tries the sockets in their order until an agent answers at one.
    explicit AgentConnection(std::vector<std::string> socketPaths,
                             std::chrono::milliseconds answerTimeout = kAnswerTimeout);
    AgentConnection(const AgentConnection&) = delete;
    AgentConnection& operator=(const AgentConnection&) = delete;
    ~AgentConnection();

    /// The socket in use; before there is one, the first that will be tried.
    [[nodiscard]] const std::string& GetSocketPath() const;

    /// Sends one request and waits for its answer; connects first where no connection is open or the agent
    /// has closed it since. False, with the reason as a sentence in `error`, where no agent answers. A
    /// request is never sent twice: one that got no answer may or may not have been carried out.
    [[nodiscard]] bool Get(std::string_view target, Reply& reply, std::string& error);

    /// Posts a request in two halves, so that the caller can work while the agent does. Each Send is followed
    /// by one Receive before anything else is sent.
    [[nodiscard]] bool Send(std::string_view target, std::string body, std::string& error);
    /// Where the answer broke off, `reply` has what came of its body.
    [[nodiscard]] bool Receive(Reply& reply, std::string& error);

private:
    class Stream;

    std::unique_ptr<Stream> stream_;
};
