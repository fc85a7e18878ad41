#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

/// What `lumctl status` shows people: a line for each thing that an administrator looks for, then the models
/// as a table. `bold` lets titles and what is wrong stand out. Nothing in `status` is trusted: a member that
/// is absent or of another kind is left out, and one that this release does not know is shown under its own
/// name.
[[nodiscard]] std::string StatusAsText(const nlohmann::ordered_json& status, bool bold);

/// What `lumctl outbox` shows people: what waits, how the forwarder of this machine gets on, and in the end
/// what keeps files from leaving. `now` is in seconds since 1970.
[[nodiscard]] std::string OutboxAsText(const nlohmann::ordered_json& outbox, int64_t now);
