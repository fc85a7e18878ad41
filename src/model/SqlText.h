#pragma once

#include <string>
#include <string_view>

/// Appends `text` in single quotes with every single quote in it doubled, the one escape that SQL text needs.
void AppendQuoted(std::string& sql, std::string_view text);
