#include <gtest/gtest.h>

#include "fleet/forward/Ledger.h"

namespace {

const std::string kA(64, 'a');
const std::string kB(64, 'b');

TEST(Ledger, KeepsWhatIsSentUntilItIsForgotten) {
    Ledger ledger;
    ledger.Add("one", kA, 100, 1, 0);
    ledger.Add("two", kB, 50, 2, 0);
    EXPECT_TRUE(ledger.Holds("one"));
    EXPECT_EQ(ledger.CountUnacknowledged(), 2U);
    EXPECT_EQ(ledger.UnacknowledgedBytes(), 150U);
    ledger.Acknowledge(1, 77, 1'000);
    EXPECT_EQ(ledger.CountUnacknowledged(), 1U);
    EXPECT_EQ(ledger.UnacknowledgedBytes(), 50U);
    EXPECT_EQ(ledger.NamesOf(kA), std::vector<std::string>{"one"});
    ledger.Forget("one");
    EXPECT_FALSE(ledger.Holds("one"));
    EXPECT_TRUE(ledger.NamesOf(kA).empty());
    EXPECT_EQ(ledger.CountAll(), 1U);
}

TEST(Ledger, KnowsTheSameContentByAllItsNames) {
    Ledger ledger;
    ledger.Add("one", kA, 1, 1, 0);
    ledger.Add("two", kA, 1, 2, 0);
    EXPECT_EQ(ledger.NamesOf(kA).size(), 2U);
    ledger.Forget("one");
    EXPECT_EQ(ledger.NamesOf(kA), std::vector<std::string>{"two"});
}

TEST(Ledger, ForgetsWhatTheBrokerRefusedOrNeverAcknowledged) {
    Ledger ledger;
    ledger.Add("one", kA, 1, 1, 0);
    ledger.Add("two", kB, 1, 2, 5'000);
    EXPECT_EQ(ledger.Refuse(9), "");
    EXPECT_EQ(ledger.ForgetUnacknowledgedBefore(1'000), 1U);
    EXPECT_FALSE(ledger.Holds("one"));
    EXPECT_EQ(ledger.Refuse(2), "two");
    EXPECT_EQ(ledger.CountAll(), 0U);
    EXPECT_EQ(ledger.UnacknowledgedBytes(), 0U);
}

TEST(Ledger, AsksForWhatIsAcknowledgedOnceItsTimeHasCome) {
    Ledger ledger;
    ledger.Add("one", kA, 1, 1, 0);
    ledger.Add("two", kB, 1, 2, 0);
    ledger.Acknowledge(1, 77, 1'000);
    EXPECT_TRUE(ledger.TakeQuestions(999, 5'000).empty());
    EXPECT_EQ(ledger.TakeQuestions(1'000, 5'000), (std::vector<AskLine>{{kA, 77}}));
    EXPECT_TRUE(ledger.TakeQuestions(4'999, 9'000).empty());
    EXPECT_EQ(ledger.TakeQuestions(5'000, 9'000).size(), 1U);
}

TEST(Ledger, AsksForNoMoreThanOneMessageHolds) {
    Ledger ledger;
    for (uint64_t i = 1; i <= kMaxReceiptLines + 5; ++i) {
        ledger.Add(std::to_string(i), kA, 1, i, 0);
        ledger.Acknowledge(i, i, 0);
    }
    EXPECT_EQ(ledger.TakeQuestions(0, 10).size(), kMaxReceiptLines);
    EXPECT_EQ(ledger.TakeQuestions(0, 10).size(), 5U);
}

}  // namespace
