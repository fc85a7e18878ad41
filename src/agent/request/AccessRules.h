#pragma once

#include <optional>
#include <string_view>

#include <sys/types.h>

#include "agent/socket/Client.h"
#include "host/text/LumString.h"

/// Who may do what over the control socket.

/// What a call asks for, least first.
enum class AccessNeed {
    kLook,        ///< whether the agent works, which actions and models there are: whoever may connect
    kRead,        ///< events, settings, status and metrics
    kCreate,      ///< events and alerts
    kAdminister,  ///< everything else
};

/// What the action asks for. An action that is not known here may do anything, so it asks for the most.
[[nodiscard]] AccessNeed AccessNeedOf(std::string_view actionName);

/// True for an action that neither only reads nor only creates: who called it is worth a line in the log.
[[nodiscard]] bool IsAudited(std::string_view actionName);

/// The groups by their numbers. root and the agent's own user may do everything; so may the members of
/// `administer`. A client in several groups may do what any of them may.
struct AccessRules {
    std::optional<gid_t> administer;
    std::optional<gid_t> read;
    std::optional<gid_t> create;

    /// Empty where the client may; else one sentence that says what is missing.
    [[nodiscard]] LumString Refuse(const Client& client, AccessNeed need) const;
};
