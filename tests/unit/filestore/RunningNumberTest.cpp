#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "filestore/RunningNumber.h"
#include "support/TempDirectory.h"

namespace {

class RunningNumberTest : public testing::Test {
protected:
    static uint64_t NextOf(RunningNumber& number) {
        uint64_t next = 0;
        LumString error;
        EXPECT_TRUE(number.Next(next, error)) << error.GetString();
        return next;
    }
    void Open(RunningNumber& number, uint64_t lowest = 1) const {
        LumString error;
        EXPECT_TRUE(number.Open(directory_.At("number"), lowest, error)) << error.GetString();
    }

    TempDirectory directory_;
};

TEST_F(RunningNumberTest, BeginsAtTheLowestWithoutAFile) {
    RunningNumber number;
    Open(number, 5);
    EXPECT_EQ(NextOf(number), 5U);
    EXPECT_EQ(NextOf(number), 6U);
    EXPECT_EQ(directory_.Read("number"), "1005\n");
}

TEST_F(RunningNumberTest, GoesOnWithoutAGapAfterClose) {
    {
        RunningNumber number;
        Open(number);
        NextOf(number);
        number.Close();
        EXPECT_EQ(NextOf(number), 2U) << "it still works";
        number.Close();
    }
    RunningNumber number;
    Open(number);
    EXPECT_EQ(NextOf(number), 3U);
}

TEST_F(RunningNumberTest, SkipsTheRestOfItsBlockAfterACrash) {
    {
        RunningNumber number;
        Open(number);
        NextOf(number);
    }
    RunningNumber number;
    Open(number);
    EXPECT_EQ(NextOf(number), 1 + RunningNumber::kBlock);
}

TEST_F(RunningNumberTest, NeverGoesBelowWhatIsThere) {
    static_cast<void>(directory_.Write("number", "7\n"));
    RunningNumber number;
    Open(number, 12);
    EXPECT_EQ(NextOf(number), 12U);
}

TEST_F(RunningNumberTest, SaysThatItsFileHoldsNoNumber) {
    for (const char* const content : {"", "x\n", "12", "12\nx", "99999999999999999999\n"}) {
        static_cast<void>(directory_.Write("number", content));
        RunningNumber number;
        LumString error;
        EXPECT_FALSE(number.Open(directory_.At("number"), 3, error));
        EXPECT_EQ(error, directory_.At("number") + ": its content is not a number");
        EXPECT_EQ(NextOf(number), 3U);
    }
}

TEST_F(RunningNumberTest, GivesNoneThatItCannotWriteDown) {
    RunningNumber number;
    LumString error;
    EXPECT_TRUE(number.Open(directory_.At("missing/number"), 1, error));
    uint64_t next = 9;
    EXPECT_FALSE(number.Next(next, error));
    EXPECT_FALSE(error.IsEmpty());
    EXPECT_EQ(next, 9U);
    directory_.MakeDirectory("missing");
    EXPECT_EQ(NextOf(number), 1U);
}

TEST_F(RunningNumberTest, GivesEachNumberToOneThread) {
    RunningNumber number;
    Open(number);
    std::vector<std::vector<uint64_t>> given(4);
    std::vector<std::thread> threads;
    for (auto& mine : given) {
        threads.emplace_back([&number, &mine] {
            for (int i = 0; i < 600; ++i) {
                mine.push_back(NextOf(number));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<uint64_t> all;
    for (const auto& mine : given) {
        all.insert(mine.begin(), mine.end());
    }
    EXPECT_EQ(all.size(), 2400U);
    EXPECT_EQ(*all.rbegin(), 2400U);
}

TEST_F(RunningNumberTest, SaysThatItHasComeToItsEndAndNeverBeginsAgain) {
    RunningNumber number;
    Open(number, UINT64_MAX - RunningNumber::kBlock);
    EXPECT_EQ(NextOf(number), UINT64_MAX - RunningNumber::kBlock);
    for (uint64_t i = 1; i < RunningNumber::kBlock; ++i) {
        NextOf(number);
    }
    uint64_t next = 7;
    LumString error;
    EXPECT_FALSE(number.Next(next, error));
    EXPECT_EQ(error, directory_.At("number") + ": the numbers have come to their end");
    EXPECT_EQ(next, 7U);
}

}  // namespace
