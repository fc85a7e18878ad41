#pragma once

#include <string>
#include <string_view>

/// Which names the agent can register. Each answers what is wrong, a sentence without its end, or nothing.

[[nodiscard]] std::string FaultOfModelName(std::string_view name);
[[nodiscard]] std::string FaultOfParameterName(std::string_view name);

/// The name with the letters A to Z in lower case, as the database compares names.
[[nodiscard]] std::string FoldedName(std::string_view name);
