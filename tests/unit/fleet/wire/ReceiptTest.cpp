#include <gtest/gtest.h>

#include "fleet/wire/Receipt.h"

namespace {

const std::string kA(64, 'a');
const std::string kB(64, 'b');
const std::string kC(64, 'c');
const std::string kD(64, 'd');

TEST(Receipt, IsALineABatch) {
    const std::vector<ReceiptLine> lines = {{BatchFate::kHeld, kA, ""},
                                            {BatchFate::kRejected, kB, "it is not a container"},
                                            {BatchFate::kWaiting, kC, ""},
                                            {BatchFate::kMissing, kD, ""}};
    const std::string text = "lum-receipt 1\nheld " + kA + "\nrejected " + kB +
                             " it is not a container\nwaiting " + kC + "\nmissing " + kD + "\n";
    EXPECT_EQ(ReceiptText(lines), text);
    std::vector<ReceiptLine> read;
    ASSERT_TRUE(ParseReceipt(text, read));
    EXPECT_EQ(read, lines);
}

TEST(Receipt, AReasonIsOneLine) {
    EXPECT_EQ(ReceiptText({{BatchFate::kRejected, kA, "a\nheld " + kB}}),
              "lum-receipt 1\nrejected " + kA + " a_held " + kB + "\n");
}

TEST(Receipt, IsTakenWholeOrNotAtAll) {
    std::vector<ReceiptLine> lines = {{BatchFate::kHeld, kA, ""}};
    const std::vector<ReceiptLine> before = lines;
    for (const std::string& text :
         {std::string(), std::string("lum-receipt 2\n"), "lum-receipt 1\nlost " + kA + "\n",
          "lum-receipt 1\nheld " + kA + "\nheld x\n", "held " + kA + "\n", std::string("{\"seq\":1}")}) {
        EXPECT_FALSE(ParseReceipt(text, lines)) << text;
    }
    EXPECT_EQ(lines, before);
    std::string tooMany = "lum-receipt 1\n";
    for (std::size_t i = 0; i <= kMaxReceiptLines; ++i) {
        tooMany += "held " + kA + "\n";
    }
    EXPECT_FALSE(ParseReceipt(tooMany, lines));
}

TEST(Receipt, AQuestionIsALineABatch) {
    const std::vector<AskLine> lines = {{kA, 12}, {kB, 0}};
    const std::string text = "lum-ask 1\n" + kA + " 12\n" + kB + " 0\n";
    EXPECT_EQ(AskText(lines), text);
    std::vector<AskLine> read;
    ASSERT_TRUE(ParseAsk(text, read));
    EXPECT_EQ(read, lines);
}

TEST(Receipt, AQuestionIsTakenWholeOrNotAtAll) {
    std::vector<AskLine> lines;
    for (const std::string& text :
         {std::string("lum-ask\n"), "lum-ask 1\n" + kA + "\n", "lum-ask 1\n" + kA + " x\n",
          "lum-ask 1\n" + kA + " 1 2\n", std::string("lum-ask 1\nx 1\n")}) {
        EXPECT_FALSE(ParseAsk(text, lines)) << text;
    }
}

}  // namespace
