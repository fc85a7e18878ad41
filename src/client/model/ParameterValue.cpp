#include "client/model/ParameterValue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "client/model/ModelDefinition.h"
#include "client/text/TimeText.h"

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

bool ParseDouble(std::string_view text, double& value, std::string& error) {
    const std::string_view digits = WithoutPlus(text);
    double number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, failure] = std::from_chars(digits.data(), end, number);
    if (failure != std::errc() || stop != end || !std::isfinite(number)) {
        error = Quoted(text) + " is not a number";
        return false;
    }
    value = number;
    return true;
}

bool IntegerFromJson(const Json& given, Json& value, std::string& error) {
    // What is above the signed 64-bit range is kept unsigned by the JSON library.
    const bool fits = given.is_number_unsigned()
                          ? given.get<uint64_t>() <= std::numeric_limits<int32_t>::max()
                          : given.get<int64_t>() >= std::numeric_limits<int32_t>::min() &&
                                given.get<int64_t>() <= std::numeric_limits<int32_t>::max();
    if (!fits) {
        error = given.dump() + " lies outside of the 32-bit range";
        return false;
    }
    value = given.get<int32_t>();
    return true;
}

bool BooleanFromJson(const Json& given, Json& value, std::string& error) {
    if (given.is_boolean()) {
        value = given;
        return true;
    }
    const bool isTrue = given == 1;
    if (isTrue || given == 0) {
        value = isTrue;
        return true;
    }
    error = given.dump() + " is not a boolean";
    return false;
}

}  // namespace

bool ParseInteger(std::string_view text, int32_t& value, std::string& error) {
    const std::string_view digits = WithoutPlus(text);
    int32_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, failure] = std::from_chars(digits.data(), end, number);
    if (stop != end || failure == std::errc::invalid_argument) {
        error = Quoted(text) + " is not a whole number";
        return false;
    }
    if (failure != std::errc()) {
        error = Quoted(text) + " lies outside of the 32-bit range";
        return false;
    }
    value = number;
    return true;
}

bool ParseBoolean(std::string_view text, bool& value, std::string& error) {
    static constexpr std::array<std::pair<std::string_view, bool>, 8> kWords{{{"1", true},
                                                                              {"true", true},
                                                                              {"yes", true},
                                                                              {"on", true},
                                                                              {"0", false},
                                                                              {"false", false},
                                                                              {"no", false},
                                                                              {"off", false}}};
    std::string folded(text);
    std::transform(folded.begin(), folded.end(), folded.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    const auto* const found =
        std::find_if(kWords.begin(), kWords.end(), [&](const auto& word) { return word.first == folded; });
    if (found == kWords.end()) {
        error = Quoted(text) + " is not a boolean (1, 0, true, false, yes, no, on, off)";
        return false;
    }
    value = found->second;
    return true;
}

bool ValueFromText(std::string_view type, std::string_view text, Json& value, std::string& error) {
    if (type == kTypeString || type == kTypeEnum) {
        value = text;
        return true;
    }
    if (type == kTypeInteger) {
        int32_t number = 0;
        const bool done = ParseInteger(text, number, error);
        value = number;
        return done;
    }
    if (type == kTypeTimestamp) {
        int32_t seconds = 0;
        const bool done = ParseMoment(text, std::time(nullptr), seconds);
        value = seconds;
        error = done ? ""
                     : Quoted(text) +
                           " is not a time; give 2026-11-20, 2026-11-20T08:30, seconds since 1970 "
                           "(32 bits), now, or 2h for so long ago";
        return done;
    }
    if (type == kTypeDouble) {
        double number = 0;
        const bool done = ParseDouble(text, number, error);
        value = number;
        return done;
    }
    if (type == kTypeBoolean) {
        bool flag = false;
        const bool done = ParseBoolean(text, flag, error);
        value = flag;
        return done;
    }
    error = "the model gives it no type that can be sent";
    return false;
}

bool ValueFromJson(std::string_view type, const Json& given, Json& value, std::string& error) {
    if (given.is_string()) {
        return ValueFromText(type, given.get_ref<const std::string&>(), value, error);
    }
    if (type == kTypeDouble && given.is_number()) {
        value = given.get<double>();
        return true;
    }
    if ((type == kTypeInteger || type == kTypeTimestamp) && given.is_number_integer()) {
        return IntegerFromJson(given, value, error);
    }
    if (type == kTypeBoolean && (given.is_boolean() || given.is_number_integer())) {
        return BooleanFromJson(given, value, error);
    }
    error = "a value of type " + std::string(type.empty() ? "unknown" : type) + " cannot be a JSON " +
            given.type_name();
    return false;
}
