#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Values as the forms for programs spell them, each added to `out`.

void AppendNumber(std::string& out, int64_t number);
/// In quotes, with escapes; bytes that are not UTF-8 become U+FFFD.
void AppendJsonText(std::string& out, std::string_view text);
/// A field of RFC 4180: one with a comma, a quote or a line end stands in quotes.
void AppendCsvText(std::string& out, std::string_view text);
