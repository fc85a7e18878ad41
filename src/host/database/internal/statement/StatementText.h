#pragma once

#include <string>
#include <string_view>

/// The first `maxCharacters` of a statement in which every literal (text, number, blob) is a question mark:
/// what a report shows of it. The values belong to whoever stored them, and the same failure reads the same
/// whatever they are. Nothing between single quotes is ever shown, be the statement valid or not.
[[nodiscard]] std::string StatementWithoutValues(std::string_view sql, std::size_t maxCharacters);
