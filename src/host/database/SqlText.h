#pragma once

#include <string>
#include <string_view>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// Appends `text` in single quotes with every single quote in it doubled, the one escape that SQL text needs.
LUM_API void LumAppendQuoted(std::string& sql, std::string_view text);
/// `text` so quoted.
[[nodiscard]] LUM_API LumString LumQuoted(std::string_view text);
