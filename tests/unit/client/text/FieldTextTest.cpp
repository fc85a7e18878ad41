#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "client/text/FieldText.h"

namespace {

std::string Json(std::string_view text) {
    std::string out = ">";
    AppendJsonText(out, text);
    return out;
}

std::string Csv(std::string_view text) {
    std::string out = ">";
    AppendCsvText(out, text);
    return out;
}

TEST(FieldText, SpellsJson) {
    EXPECT_EQ(Json("plain ~"), ">\"plain ~\"");
    EXPECT_EQ(Json("\"\\\n\x7f"), ">\"\\\"\\\\\\n\x7f\"");
    EXPECT_EQ(Json("gr\u00fcn\xE9"), ">\"gr\u00fcn\ufffd\"");
}

TEST(FieldText, SpellsCsv) {
    EXPECT_EQ(Csv("a b"), ">a b");
    for (const char* const text : {"a,b", "a\nb", "a\rb"}) {
        EXPECT_EQ(Csv(text), ">\"" + std::string(text) + "\"");
    }
    EXPECT_EQ(Csv("\"a\""), ">\"\"\"a\"\"\"");
}

TEST(FieldText, SpellsNumbers) {
    std::string out = ">";
    AppendNumber(out, INT64_MIN);
    EXPECT_EQ(out, ">-9223372036854775808");
}

}  // namespace
