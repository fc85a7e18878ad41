#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

/// Values as the agent's containers take them. What is wrong with one is thrown as a ClientError, whose text
/// is a part of a sentence that follows "<name>: ".

/// A whole number in the signed 32-bit range, decimal.
[[nodiscard]] int32_t ParseInteger(std::string_view text);

/// 1/0, true/false, yes/no or on/off in any letter case.
[[nodiscard]] bool ParseBoolean(std::string_view text);

/// What was typed for a parameter of type `type`: text as it stands, an integer, a timestamp as ParseMoment
/// takes it, a boolean as above, or a finite double, which as JSON always has a fraction or an exponent.
[[nodiscard]] nlohmann::ordered_json ValueFromText(std::string_view type, std::string_view text);

/// The same for a value that comes as JSON: a value of the type's own kind, a whole number also for a double,
/// 1 or 0 also for a boolean, and a text as ValueFromText takes it.
[[nodiscard]] nlohmann::ordered_json ValueFromJson(std::string_view type,
                                                   const nlohmann::ordered_json& given);
