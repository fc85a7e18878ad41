#pragma once

#include <functional>
#include <vector>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// What keeps this agent from doing its work, as its parts say it. Every routine may be called from any
/// thread.

/// Sets or replaces the reason of `source`, a short name such as "database": one sentence for people, ending
/// with a full stop. An empty sentence takes the reason back. Cheap where nothing changes, so that it may be
/// called after every operation.
LUM_API void LumHealthReport(const LumString& source, const LumString& sentence);

/// While it lives, `check` is asked for a reason each time that somebody looks: for what can only be told by
/// trying. It answers an empty text where all is well, and has to be quick. Its end waits for a call that is
/// under way, so a module ends it with command 5 at the latest.
class LUM_API LumHealthCheck {
public:
    explicit LumHealthCheck(std::function<LumString()> check);
    LumHealthCheck(const LumHealthCheck&) = delete;
    LumHealthCheck& operator=(const LumHealthCheck&) = delete;
    ~LumHealthCheck();
};

/// The reasons that stand, in the order in which their sources first gave one, then those of the checks; none
/// means healthy.
[[nodiscard]] LUM_API std::vector<LumString> LumHealthReasons();
