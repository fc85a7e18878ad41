#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "client/AgentConnection.h"
#include "client/ExitStatus.h"

/// What came of asking the agent for something.
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON value allocates nothing that could fail.
struct AgentAnswer {
    ExitStatus exit = ExitStatus::kDone;
    uint32_t status = 0;  ///< the action's own
    /// The container that the action left; for what is no action, the whole answer.
    nlohmann::ordered_json content;
    std::string body;   ///< the answer as it came over the socket
    std::string error;  ///< a sentence wherever `exit` is not kDone

    [[nodiscard]] bool IsDone() const { return exit == ExitStatus::kDone; }
};

/// Carries out the action with the arguments. kFailed where its status is not 0 or the agent refuses.
[[nodiscard]] AgentAnswer CallAction(AgentConnection& agent, std::string_view action,
                                     const nlohmann::ordered_json& arguments);
/// The same with arguments that are sent as they stand; empty text stands for none.
[[nodiscard]] AgentAnswer CallActionWithText(AgentConnection& agent, std::string_view action,
                                             std::string arguments);

/// Asks for a page of the control socket, such as "/modules".
[[nodiscard]] AgentAnswer AskFor(AgentConnection& agent, std::string_view target);

/// `name` with everything but letters, digits and - . _ ~ percent-encoded (RFC 3986).
[[nodiscard]] std::string PercentEncoded(std::string_view name);
