#pragma once

#include <cstdint>
#include <vector>

#include "host/container/LumContainer.h"
#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// The registry of actions. Every routine may be called from any thread.

/// Carries out one action: takes the arguments from the container, leaves the answer in it and returns the
/// status. The container belongs to the caller and is valid for the call. Runs on the caller's thread,
/// several at once.
using ActionHandler = uint32_t (*)(LumContainer* container);

/// What an agent gives a module with command 1: who it is. Owned by the agent, valid until the module is
/// unloaded.
struct LumAgentHandle {
    LumString moduleName;
};

/// One registered action.
struct ActionInfo {
    LumString name;       ///< the text before the parameter list
    LumString signature;  ///< as registered
    LumString module;     ///< name of the module that registered it
};

/// Registers `handler` under the name that `signature` begins with: a name, one blank, and a parameter list
/// in parentheses. `agentHandle` is the LumAgentHandle of the registering module. False, with one warning of
/// the host's logger, for another form of signature, a null handler or handle, and a name that is taken.
LUM_API bool ActionDbRegisterAction(const LumString& signature, ActionHandler handler, void* agentHandle);

/// Removes every action of the module and waits until its running calls have returned. Not to be called from
/// one of them.
LUM_API void ActionDbUnregisterModule(void* agentHandle);

[[nodiscard]] LUM_API bool ActionDbIsActionRegistered(const LumString& name);

/// All actions in order of registration.
[[nodiscard]] LUM_API std::vector<ActionInfo> ActionDbListActions();

/// Runs the action on this thread with `container` as its argument and answer, and puts its status into
/// `status`. False, and nothing done, for an unknown action. An exception that leaves the handler is one
/// error line of the host's logger and the status 1.
[[nodiscard]] LUM_API bool ActionDbCallAction(const LumString& name, LumContainer& container,
                                              uint32_t& status);

/// The same as a module's call, whoever that module acts for (see LumCaller.h). An unknown action is also one
/// warning of the host's logger.
[[nodiscard]] LUM_API bool ActionDbDeliver(const LumString& name, LumContainer& container, uint32_t& status);

/// Delivers `arguments` to the action `name` on this thread before it returns; true where the action is known
/// (else one warning of the host's logger). The call comes from a module, whoever that one acts for: see
/// LumCaller.h. `target` is empty: there is one agent. `answer`, where not null,
/// receives the container as the handler left it. `handle` and the last three arguments are for hosts that
/// queue or forward actions: a caller passes null, 0xFFFFFFFF, 0xFFFFFFFF and false.
LUM_API bool ActionDbInvokeContainer(void* handle, const LumString& target, const LumString& name,
                                     const LumContainer& arguments, LumContainer* answer, uint32_t priority,
                                     uint32_t timeout, bool wait);
