#include <gtest/gtest.h>

#include "fleet/forward/BrokerAnswer.h"

namespace {

TEST(BrokerAnswer, IsTheNumberThatTheStreamHoldsABatchUnder) {
    EXPECT_EQ(ReadBrokerAnswer(R"({"stream":"LUM", "seq":17})").sequence, 17U);
    EXPECT_EQ(ReadBrokerAnswer(R"({"stream":"LUM","seq":18446744073709551615,"duplicate":true})").sequence,
              18'446'744'073'709'551'615U);
}

TEST(BrokerAnswer, OrWhyItWasRefused) {
    const BrokerAnswer answer = ReadBrokerAnswer(
        R"({"error":{"code":400,"err_code":10054,"description":"message size exceeds maximum allowed"},"stream":"LUM","seq":0})");
    EXPECT_EQ(answer.sequence, std::nullopt);
    EXPECT_EQ(answer.reason, "message size exceeds maximum allowed");
    EXPECT_EQ(answer.code, 10'054);
}

TEST(BrokerAnswer, ThatMakesNoSenseIsARefusal) {
    for (const char* const text :
         {"", "held", "[]", "{}", R"({"seq":0})", R"({"seq":"17"})", R"({"seq":-1})", R"({"error":"no"})",
          R"({"error":{"description":17,"err_code":"x"}})", R"({"error":[{"description":"no"}]})"}) {
        const BrokerAnswer answer = ReadBrokerAnswer(text);
        EXPECT_EQ(answer.sequence, std::nullopt) << text;
        EXPECT_EQ(answer.reason, "it does not say why") << text;
        EXPECT_EQ(answer.code, 0) << text;
    }
}

}  // namespace
