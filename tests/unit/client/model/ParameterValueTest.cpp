#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/ClientError.h"
#include "client/model/ModelDefinition.h"
#include "client/model/ParameterValue.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

using Json = nlohmann::ordered_json;

/// The sentence that `work` throws.
std::string ErrorOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const ClientError& error) {
        return error.what();
    }
    return "nothing was thrown";
}

std::string TextError(std::string_view type, std::string_view text) {
    return ErrorOf([&] { static_cast<void>(ValueFromText(type, text)); });
}

std::string JsonError(std::string_view type, const Json& value) {
    return ErrorOf([&] { static_cast<void>(ValueFromJson(type, value)); });
}

TEST(ParameterValue, IsReadFromTextByItsType) {
    EXPECT_EQ(ValueFromText(kTypeString, "5"), "5");
    EXPECT_EQ(ValueFromText(kTypeEnum, "_ON_"), "_ON_");
    EXPECT_EQ(ValueFromText(kTypeInteger, "+5"), 5);
    EXPECT_EQ(ValueFromText(kTypeInteger, "-2147483648"), -2147483648);
    EXPECT_EQ(ValueFromText(kTypeDouble, "+.5"), 0.5);
    EXPECT_EQ(ValueFromText(kTypeTimestamp, "86400"), 86400);
    EXPECT_EQ(ValueFromText(kTypeBoolean, "YES"), true);
    EXPECT_EQ(ValueFromText(kTypeBoolean, "no"), false);
}

TEST(ParameterValue, SaysWhichTextDoesNotFit) {
    for (const char* const text : {"", "+", "+-5", "5x", " 5", "1e3"}) {
        EXPECT_EQ(TextError(kTypeInteger, text), "'" + std::string(text) + "' is not a whole number");
    }
    EXPECT_EQ(TextError(kTypeInteger, "-2147483649"), "'-2147483649' lies outside of the 32-bit range");
    for (const char* const text : {"", "x", "1.5x", "nan", "1e999"}) {
        EXPECT_EQ(TextError(kTypeDouble, text), "'" + std::string(text) + "' is not a number");
    }
    EXPECT_THAT(TextError(kTypeTimestamp, "soon"), StartsWith("'soon' is not a time; give 2026-11-20, "));
    EXPECT_THAT(TextError(kTypeBoolean, ""), HasSubstr("is not a boolean (1, 0, true,"));
    EXPECT_EQ(TextError("", "5"), "the model gives it no type that can be sent");
}

TEST(ParameterValue, IsReadFromJsonByItsType) {
    EXPECT_EQ(ValueFromJson(kTypeInteger, "+5"), 5) << "a text is read as one";
    EXPECT_EQ(ValueFromJson(kTypeDouble, 2), 2.0);
    EXPECT_EQ(ValueFromJson(kTypeInteger, -2147483648LL), -2147483648LL);
    EXPECT_EQ(ValueFromJson(kTypeTimestamp, 2147483647U), 2147483647);
    EXPECT_EQ(ValueFromJson(kTypeBoolean, true), true);
    EXPECT_EQ(ValueFromJson(kTypeBoolean, 0), false);
    EXPECT_EQ(ValueFromJson(kTypeBoolean, 1), true);
}

TEST(ParameterValue, SaysWhichJsonDoesNotFit) {
    EXPECT_EQ(JsonError(kTypeInteger, 2147483648U), "2147483648 lies outside of the 32-bit range");
    EXPECT_EQ(JsonError(kTypeInteger, 9223372036854775808U),
              "9223372036854775808 lies outside of the 32-bit range");
    EXPECT_EQ(JsonError(kTypeInteger, -2147483649LL), "-2147483649 lies outside of the 32-bit range");
    EXPECT_EQ(JsonError(kTypeBoolean, 2), "2 is not a boolean");
    EXPECT_EQ(JsonError(kTypeBoolean, -1), "-1 is not a boolean");
    EXPECT_EQ(JsonError(kTypeBoolean, 0.5), "a value of type _BOOLEAN_ cannot be a JSON number");
    EXPECT_EQ(JsonError(kTypeTimestamp, 0.5), "a value of type _TIMESTAMP_ cannot be a JSON number");
    EXPECT_EQ(JsonError(kTypeDouble, true), "a value of type _DOUBLE_ cannot be a JSON boolean");
    EXPECT_EQ(JsonError("", Json::array()), "a value of type unknown cannot be a JSON array");
}

}  // namespace
