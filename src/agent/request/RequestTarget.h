#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The path of a request target (RFC 9112, section 3.2) without scheme, host and query, percent-encoding
/// taken off; nothing where that is broken.
[[nodiscard]] std::optional<std::string> PathOfTarget(std::string_view target);

/// True where the query of the target has `name` with a value other than empty, 0 and false.
[[nodiscard]] bool IsAskedFor(std::string_view target, std::string_view name);
