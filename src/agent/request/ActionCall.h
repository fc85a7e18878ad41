#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "agent/request/AccessRules.h"
#include "agent/socket/Client.h"
#include "host/container/LumContainer.h"
#include "host/core/LumCaller.h"
#include "host/log/LumDebug.h"
#include "host/text/LumString.h"

/// What one call has left.
struct ActionResult {
    uint32_t status = 0;
    std::string container;                ///< as JSON
    std::optional<std::string> messages;  ///< JSON array of the warnings and errors that the call logged

    /// `"status":N,"container":{...}`, and `,"messages":[...]` where there are some.
    void AppendTo(std::string& json) const;
};

/// Calls of one action for one client of the control socket. Belongs to one thread at a time.
class ActionCall {
public:
    /// `debug` gets the line of a call that is audited. Both references outlive the object.
    ActionCall(const LumString& name, const Client& client, LumDebug& debug);

    /// Runs the action with the arguments in `body`, a JSON object or nothing, on this thread. False, with
    /// what is wrong with the body in `error`, where it is not a container; `error` is empty where there is
    /// no such action any more. With `explain` the result has messages.
    [[nodiscard]] bool Run(std::string_view body, bool explain, ActionResult& result, LumString& error);

private:
    void Audit(const LumContainer& arguments, uint32_t status) const;

    const LumString name_;
    const LumCaller caller_;
    const bool isAudited_;
    LumDebug& debug_;
};
