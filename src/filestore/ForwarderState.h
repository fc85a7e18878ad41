#pragma once

#include <string>

#include "host/container/LumContainer.h"

/// What a forwarder says of itself in the outbox (kForwarderStateName), for /status: puts it into `state`.
/// False, and nothing is put there, where no forwarder has ever written it or it is not what one writes.
[[nodiscard]] bool ReadForwarderState(const std::string& outbox, LumContainer& state);
