#include "client/model/ParameterValue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "client/ClientError.h"
#include "client/model/ModelDefinition.h"
#include "client/text/TimeText.h"
#include "host/text/LumPattern.h"

namespace {

using Json = nlohmann::ordered_json;

std::string Quoted(std::string_view text) {
    return "'" + std::string(text) + "'";
}

/// std::from_chars does not take a leading plus.
std::string_view WithoutPlus(std::string_view text) {
    const bool plus = text.size() > 1 && text[0] == '+' && text[1] != '-';
    return plus ? text.substr(1) : text;
}

double ParseDouble(std::string_view text) {
    const std::string_view digits = WithoutPlus(text);
    double number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, failure] = std::from_chars(digits.data(), end, number);
    if (failure != std::errc() || stop != end || !std::isfinite(number)) {
        throw ClientError(Quoted(text) + " is not a number");
    }
    return number;
}

int32_t ParseMomentOrThrow(std::string_view text) {
    int32_t seconds = 0;
    if (!ParseMoment(text, std::time(nullptr), seconds)) {
        throw ClientError(Quoted(text) +
                          " is not a time; give 2026-11-20, 2026-11-20T08:30, seconds since 1970 "
                          "(32 bits), now, or 2h for so long ago");
    }
    return seconds;
}

int32_t IntegerFromJson(const Json& given) {
    // What is above the signed 64-bit range is kept unsigned by the JSON library.
    const bool fits = given.is_number_unsigned()
                          ? given.get<uint64_t>() <= std::numeric_limits<int32_t>::max()
                          : given.get<int64_t>() >= std::numeric_limits<int32_t>::min() &&
                                given.get<int64_t>() <= std::numeric_limits<int32_t>::max();
    if (!fits) {
        throw ClientError(given.dump() + " lies outside of the 32-bit range");
    }
    return given.get<int32_t>();
}

bool BooleanFromJson(const Json& given) {
    if (given.is_boolean()) {
        return given.get<bool>();
    }
    if (given != 0 && given != 1) {
        throw ClientError(given.dump() + " is not a boolean");
    }
    return given == 1;
}

}  // namespace

int32_t ParseInteger(std::string_view text) {
    const std::string_view digits = WithoutPlus(text);
    int32_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, failure] = std::from_chars(digits.data(), end, number);
    if (stop != end || failure == std::errc::invalid_argument) {
        throw ClientError(Quoted(text) + " is not a whole number");
    }
    if (failure != std::errc()) {
        throw ClientError(Quoted(text) + " lies outside of the 32-bit range");
    }
    return number;
}

bool ParseBoolean(std::string_view text) {
    static constexpr std::array<std::pair<std::string_view, bool>, 8> kWords{{{"1", true},
                                                                              {"true", true},
                                                                              {"yes", true},
                                                                              {"on", true},
                                                                              {"0", false},
                                                                              {"false", false},
                                                                              {"no", false},
                                                                              {"off", false}}};
    std::string folded(text);
    std::transform(folded.begin(), folded.end(), folded.begin(), LumFoldCase);
    const auto* const found =
        std::find_if(kWords.begin(), kWords.end(), [&](const auto& word) { return word.first == folded; });
    if (found == kWords.end()) {
        throw ClientError(Quoted(text) + " is not a boolean (1, 0, true, false, yes, no, on, off)");
    }
    return found->second;
}

Json ValueFromText(std::string_view type, std::string_view text) {
    if (type == kTypeString || type == kTypeEnum) {
        return text;
    }
    if (type == kTypeInteger) {
        return ParseInteger(text);
    }
    if (type == kTypeTimestamp) {
        return ParseMomentOrThrow(text);
    }
    if (type == kTypeDouble) {
        return ParseDouble(text);
    }
    if (type == kTypeBoolean) {
        return ParseBoolean(text);
    }
    throw ClientError("the model gives it no type that can be sent");
}

Json ValueFromJson(std::string_view type, const Json& given) {
    if (given.is_string()) {
        return ValueFromText(type, given.get_ref<const std::string&>());
    }
    if (type == kTypeDouble && given.is_number()) {
        return given.get<double>();
    }
    if ((type == kTypeInteger || type == kTypeTimestamp) && given.is_number_integer()) {
        return IntegerFromJson(given);
    }
    if (type == kTypeBoolean && (given.is_boolean() || given.is_number_integer())) {
        return BooleanFromJson(given);
    }
    throw ClientError("a value of type " + std::string(type.empty() ? "unknown" : type) +
                      " cannot be a JSON " + given.type_name());
}
