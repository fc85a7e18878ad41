#pragma once

#include <cstdint>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// Who asked for the action that runs on this thread.

/// A client of the control socket, by the credentials that the system vouches for.
struct LumCaller {
    uint32_t userId = 0;
    LumString userName;  ///< the number in decimal where the user has no name
};

/// The client whose call runs on this thread; null where the caller is a module in this process, also where
/// that module acts for a client: ActionDbInvokeContainer calls as the module. Valid until the handler
/// returns.
[[nodiscard]] LUM_API const LumCaller* LumCallerCurrent();

/// While it lives, calls of this thread come from `caller`, or from a module where it is null; then from whom
/// they came before. `caller` must outlive the scope.
class LUM_API LumCallerScope {
public:
    explicit LumCallerScope(const LumCaller* caller);
    LumCallerScope(const LumCallerScope&) = delete;
    LumCallerScope& operator=(const LumCallerScope&) = delete;
    ~LumCallerScope();

private:
    const LumCaller* const outer_;
};
