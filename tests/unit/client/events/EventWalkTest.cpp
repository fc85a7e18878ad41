#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/events/EventWalk.h"
#include "support/AgentProcess.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// An agent whose model Logon has 1,000 events, three a second from 1000 on, Number counting from 0.
class EventWalkTest : public testing::Test {
protected:
    static constexpr int kEvents = 1000;

    static void SetUpTestSuite() {
        agent_ = new AgentProcess;
        agent_->WriteShippedSettings();
        agent_->Drop({.name = "Logon", .params = {{"Number", ParamType::kInteger}}});
        agent_->Drop({.name = "Empty", .params = {{"Number", ParamType::kInteger}}});
        ASSERT_TRUE(agent_->StartAndServe());
        Insert(kEvents, 0);
    }
    static void TearDownTestSuite() {
        EXPECT_EQ(agent_->Stop(), 0);
        delete agent_;
        agent_ = nullptr;
    }

    /// Adds events with the numbers from `first` on.
    static void Insert(int count, int first) {
        agent_->Database().Run(
            "WITH RECURSIVE n(i) AS (SELECT " + std::to_string(first) +
            " UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(first + count - 1) +
            ") INSERT INTO Event_Logon (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_Number) "
            "SELECT 1000 + i / 3, 0, 0, 0, i FROM n");
    }

    /// The numbers that the rest of the walk passes.
    static std::vector<int64_t> Rest(EventWalk& walk) {
        std::vector<int64_t> numbers;
        EventPage page;
        while (walk.Next(page)) {
            for (std::size_t row = 0; row < walk.GetEnd(); ++row) {
                numbers.push_back(page.GetValue("Number", row).number);
            }
        }
        return numbers;
    }
    static EventRange All(const char* model, EventOrder order = EventOrder::kOldestFirst) {
        EventRange range;
        range.model = model;
        range.order = order;
        return range;
    }
    static EventRange Between(int32_t since, int32_t until, EventOrder order = EventOrder::kOldestFirst) {
        EventRange range = All("Logon", order);
        range.since = since;
        range.until = until;
        return range;
    }
    std::vector<int64_t> Walk(const EventRange& range, uint32_t skip = 0, bool ahead = false) {
        EventWalk walk(connection_, range, skip, ahead);
        std::vector<int64_t> numbers = Rest(walk);
        EXPECT_TRUE(walk.GetFailure().IsDone()) << walk.GetFailure().error;
        return numbers;
    }
    /// `count` numbers from `first` on.
    static std::vector<int64_t> From(int64_t first, std::size_t count) {
        std::vector<int64_t> numbers(count);
        std::generate(numbers.begin(), numbers.end(), [first]() mutable { return first++; });
        return numbers;
    }
    static std::vector<int64_t> Sorted(std::vector<int64_t> numbers) {
        std::sort(numbers.begin(), numbers.end());
        return numbers;
    }

    static inline AgentProcess* agent_ = nullptr;
    AgentConnection connection_{std::vector<std::string>{agent_->GetSocketPath()}};
};

TEST_F(EventWalkTest, PassesEveryEventOnceFromTheOldestOn) {
    EXPECT_EQ(Walk(All("Logon")), From(0, kEvents));
    EXPECT_EQ(Walk(All("Logon"), 0, true), From(0, kEvents));
}

TEST_F(EventWalkTest, PassesEveryEventOnceFromTheNewestOn) {
    const std::vector<int64_t> numbers = Walk(All("Logon", EventOrder::kNewestFirst));
    EXPECT_EQ(Sorted(numbers), From(0, kEvents));
    EXPECT_EQ(numbers.front() / 3, (kEvents - 1) / 3);
    EXPECT_EQ(numbers.back() / 3, 0);
}

TEST_F(EventWalkTest, TellsWithEachPageHowManyEventsThereAre) {
    EventWalk walk(connection_, All("Logon"), 0, false);
    EventPage page;
    int pages = 0;
    while (walk.Next(page)) {
        EXPECT_EQ(page.GetEventCount(), kEvents);
        ++pages;
    }
    EXPECT_GE(pages, 3);
}

TEST_F(EventWalkTest, KeepsToBothBounds) {
    EXPECT_EQ(Walk(Between(1100, 1199)), From(300, 300));
    EXPECT_EQ(Sorted(Walk(Between(1100, 1199, EventOrder::kNewestFirst))), From(300, 300));
    EXPECT_THAT(Walk(Between(5000, 6000)), IsEmpty());
    EXPECT_THAT(Walk(All("Empty")), IsEmpty());
}

TEST_F(EventWalkTest, LetsTheAgentSkip) {
    EXPECT_EQ(Walk(All("Logon"), 990), From(990, 10));
    EXPECT_EQ(Walk(Between(1100, 1199), 299), From(599, 1));
    EXPECT_THAT(Walk(All("Logon"), kEvents), IsEmpty());
}

TEST_F(EventWalkTest, SortsByAnotherColumn) {
    EventRange range = All("Logon", EventOrder::kNewestFirst);
    range.sort = "Number";
    const std::vector<int64_t> numbers = Walk(range);
    ASSERT_EQ(numbers.size(), std::size_t{kEvents});
    EXPECT_TRUE(std::is_sorted(numbers.rbegin(), numbers.rend()));
}

TEST_F(EventWalkTest, PassesMoreEventsOfOneSecondThanAPageHolds) {
    agent_->Database().Run(
        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 699) "
        "INSERT INTO Event_Empty (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_Number) SELECT 7, 0, 0, 0, "
        "i FROM n");
    EXPECT_EQ(Sorted(Walk(All("Empty"))), From(0, 700));
    EXPECT_EQ(Sorted(Walk(All("Empty", EventOrder::kNewestFirst))), From(0, 700));
    agent_->Database().Run("DELETE FROM Event_Empty");
}

TEST_F(EventWalkTest, IsNotDisturbedByWhatComesMeanwhileAndGoesOnWithIt) {
    EventWalk walk(connection_, All("Logon"), 0, false);
    EventPage page;
    ASSERT_TRUE(walk.Next(page));
    const auto first = static_cast<int64_t>(walk.GetEnd());
    Insert(5, kEvents);
    EXPECT_EQ(Rest(walk), From(first, static_cast<std::size_t>(kEvents + 5 - first)));
    EXPECT_FALSE(walk.Next(page));
    Insert(3, kEvents + 5);
    walk.Resume(EventWalk::Position(walk.GetPosition()));
    EXPECT_EQ(Rest(walk), From(kEvents + 5, 3));
    agent_->Database().Run("DELETE FROM Event_Logon WHERE C_Number >= " + std::to_string(kEvents));
}

TEST_F(EventWalkTest, GivesTheConnectionBackWhereItIsLeftEarly) {
    {
        EventWalk walk(connection_, All("Logon"), 0, true);
        EventPage page;
        ASSERT_TRUE(walk.Next(page));
    }
    EXPECT_EQ(Walk(All("Logon"), 998), From(998, 2));
}

TEST_F(EventWalkTest, SortsByAnotherColumnWithinABound) {
    EventRange range = All("Logon");
    range.sort = "Number";
    range.until = 1001;
    EXPECT_EQ(Walk(range), From(0, 6));
    range.since = 1001;
    EXPECT_EQ(Walk(range), From(3, kEvents - 3)) << "the agent takes one bound";
    const EventWalk walk(connection_, range, 0, false);
    EXPECT_FALSE(walk.IsInRange(1000));
    EXPECT_TRUE(walk.IsInRange(1001));
    EXPECT_FALSE(walk.IsInRange(1002));
}

TEST_F(EventWalkTest, LeavesTheConnectionFreeWhenItIsGivenUp) {
    {
        EventWalk walk(connection_, All("Logon"), 0, true);
        EventPage page;
        ASSERT_TRUE(walk.Next(page));
    }
    EXPECT_EQ(Walk(Between(1100, 1199)), From(300, 300));
}

TEST_F(EventWalkTest, TellsWhyItEnds) {
    EventWalk walk(connection_, All("Nobody"), 0, false);
    EventPage page;
    EXPECT_FALSE(walk.Next(page));
    EXPECT_EQ(walk.GetFailure().exit, ExitStatus::kFailed);
    EXPECT_THAT(walk.GetFailure().messages, ElementsAre(HasSubstr("Unknown model 'Nobody'")));

    AgentConnection nowhere(std::vector<std::string>{agent_->GetScratch() / "nowhere.sock"});
    EventWalk lost(nowhere, All("Logon"), 0, false);
    EXPECT_FALSE(lost.Next(page));
    EXPECT_EQ(lost.GetFailure().exit, ExitStatus::kNoAgent);
}

}  // namespace
