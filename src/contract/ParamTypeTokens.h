#pragma once

#include <string_view>

/// The types of parameters, as model files, answers and upload files spell them.

inline constexpr std::string_view kTypeString = "_STRING_";
inline constexpr std::string_view kTypeInteger = "_INTEGER_";
inline constexpr std::string_view kTypeDouble = "_DOUBLE_";
inline constexpr std::string_view kTypeTimestamp = "_TIMESTAMP_";
inline constexpr std::string_view kTypeBoolean = "_BOOLEAN_";
inline constexpr std::string_view kTypeEnum = "_ENUM_";
