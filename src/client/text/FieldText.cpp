#include "client/text/FieldText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

void AppendNumber(std::string& out, int64_t number) {
    std::array<char, 24> text{};
    out.append(text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr);
}

void AppendJsonText(std::string& out, std::string_view text) {
    // Most texts need no escape.
    const bool plain = std::all_of(text.begin(), text.end(), [](char letter) {
        return letter >= 0x20 && letter < 0x7F && letter != '"' && letter != '\\';
    });
    if (plain) {
        out.append(1, '"').append(text).append(1, '"');
    } else {
        out += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
}

void AppendCsvText(std::string& out, std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        out += text;
        return;
    }
    out += '"';
    for (const char letter : text) {
        out.append(letter == '"' ? 2 : 1, letter);
    }
    out += '"';
}
