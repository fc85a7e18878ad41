#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "client/ExitStatus.h"
#include "client/connection/AgentConnection.h"

inline constexpr unsigned kHttpNotFound = 404;

/// What came of asking the agent for something.
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON value allocates nothing that could fail.
struct AgentAnswer {
    ExitStatus exit = ExitStatus::kDone;
    uint32_t status = 0;  ///< the action's own
    /// The container that the action left; for a page, the whole answer.
    nlohmann::ordered_json content;
    std::string body;   ///< the answer as it came over the socket
    std::string error;  ///< a sentence wherever `exit` is not kDone
    /// The warning and error lines that the call caused in the agent, as far as the agent tells them.
    std::vector<std::string> messages;
    unsigned httpStatus = 0;  ///< 0 where no answer came

    [[nodiscard]] bool IsDone() const { return exit == ExitStatus::kDone; }
};

/// The answer to something that a command cannot do without: where it is not done it is thrown as a
/// ClientError, whose details are the lines of the agent's log that tell why.
// NOLINTNEXTLINE(modernize-use-nodiscard): often it only has to be done.
AgentAnswer Required(AgentAnswer answer);

/// Carries out the action with the arguments. kFailed where its status is not 0 or the agent refuses.
[[nodiscard]] AgentAnswer CallAction(AgentConnection& agent, std::string_view action,
                                     const nlohmann::ordered_json& arguments);
/// The two halves of CallAction, so that the caller can work while the agent does. False, with a sentence,
/// where the request could not be sent; else one EndAction must follow.
[[nodiscard]] bool BeginAction(AgentConnection& agent, std::string_view action,
                               const nlohmann::ordered_json& arguments, std::string& error);
/// Hands the answer over as text in `body` when its HTTP status is 200; else the answer says what is wrong,
/// and what came before the agent was gone is in `body`.
[[nodiscard]] AgentAnswer EndAction(AgentConnection& agent);
/// Both, one after the other.
[[nodiscard]] AgentAnswer CallActionUnread(AgentConnection& agent, std::string_view action,
                                           const nlohmann::ordered_json& arguments);
/// What the text of an answer to an action says. `action` is for the sentence.
[[nodiscard]] AgentAnswer ReadActionAnswer(std::string_view action, AgentAnswer answer);

/// Has the action carried out once for each of `lines`, JSON objects with a line end each. False, with a
/// sentence, where they could not be sent; else one EndAction must follow.
[[nodiscard]] bool BeginBatch(AgentConnection& agent, std::string_view action, std::string lines,
                              std::string& error);
/// What one line of its answer says, and the number of the line that it answers, from 1; 0 where it says
/// none.
[[nodiscard]] AgentAnswer ReadBatchAnswer(std::string_view action, std::string_view line, uint64_t& number);

/// Carries out the action with arguments that are sent as they stand; empty text stands for none. The answer
/// is the agent's own, without messages.
[[nodiscard]] AgentAnswer CallActionWithText(AgentConnection& agent, std::string_view action,
                                             std::string arguments);

/// Asks for a page of the control socket, such as "/modules".
[[nodiscard]] AgentAnswer AskFor(AgentConnection& agent, std::string_view target);

/// `name` with everything but letters, digits and - . _ ~ percent-encoded (RFC 3986).
[[nodiscard]] std::string PercentEncoded(std::string_view name);
