#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "events/EventRetention.h"
#include "host/container/LumContainer.h"
#include "support/StartedModule.h"
#include "support/TimeZone.h"

namespace {

class EventRetention : public testing::Test, protected StartedModule {
protected:
    void Event(int64_t date) {
        Change("INSERT INTO Event_Logon (E_Date, E_DeviceId, E_GroupId) VALUES (" + std::to_string(date) +
               ", 0, 0)");
    }
    std::string Left() { return Rows("SELECT group_concat(E_Date) FROM Event_Logon ORDER BY E_Date"); }
    uint32_t Ask(LumContainer values) {
        LumContainer request;
        request.SetContainer("Values", std::move(values));
        return ActionHandler_EventLogManagerDeleteEvents(&request);
    }
};

TEST_F(EventRetention, DeletesWhatIsOlderAndKeepsWhatIsAtTheCutOff) {
    const auto model = Add({});
    Event(99);
    Event(100);
    Event(101);
    EXPECT_TRUE(DeleteEvents(model, 7, 100, false));
    EXPECT_EQ(Left(), "100,101");
    EXPECT_EQ(Log().Count("trace DeleteEvents: Entering\n"), 1U);
    EXPECT_EQ(Log().Count("trace DeleteEvents: Events have been deleted with success for model 'Logon'\n"),
              1U);
}

TEST_F(EventRetention, KeepsTheCurrentPeriodWhenItIsScheduled) {
    const TimeZone zone("Europe/Berlin");
    const auto model = Add({.deletion = Policy::kDaily});
    const auto midnight = Utc(2026, 7, 14, 22);
    Event(midnight - 1);
    Event(midnight);
    EXPECT_TRUE(DeleteEvents(model, 0, static_cast<uint32_t>(midnight + 55800), true));
    EXPECT_EQ(Left(), std::to_string(midnight));
}

TEST_F(EventRetention, DeletesEverythingOlderOfAModelThatIsNeverToBeScheduled) {
    const auto model = Add({.deletion = Policy::kNever});
    Event(99);
    Event(100);
    EXPECT_TRUE(DeleteEvents(model, 0, 100, true));
    EXPECT_EQ(Left(), "100");
}

TEST_F(EventRetention, RefusesNull) {
    EXPECT_FALSE(DeleteEvents(nullptr, 0, 100, false));
}

TEST_F(EventRetention, SaysThatItCannotLockTheDatabase) {
    const auto model = Add({});
    Event(1);
    {
        const DatabaseLockout exhausted;
        EXPECT_FALSE(DeleteEvents(model, 0, 100, false));
    }
    EXPECT_EQ(Log().Count("error DeleteEvents: Failed to lock database\n"), 1U);
    EXPECT_EQ(Left(), "1");
}

TEST_F(EventRetention, SaysThatTheDatabaseRefused) {
    const auto model = Add({});
    Change("DROP TABLE Event_Logon");
    EXPECT_FALSE(DeleteEvents(model, 0, 100, false));
    EXPECT_EQ(Log().Count("error DeleteEvents: Failed to delete events for model 'Logon', SQL error\n"), 1U);
}

TEST_F(EventRetention, IsQueuedByItsAction) {
    Add({})->SetEnabled(false);
    LumContainer values;
    values.SetString("ModelName", "Logon");
    values.SetInt32("EndDate", int32_t{1234});
    EXPECT_EQ(Ask(values), 0U);
    const auto tasks = TakeTasks();
    ASSERT_EQ(tasks.size(), 1U);
    EXPECT_EQ(tasks[0]->GetType(), TaskType::TaskDelete);
    EXPECT_TRUE(tasks[0]->GetModelName() == "Logon");
    EXPECT_EQ(tasks[0]->GetPreviousTimestamp(), 0U);
    EXPECT_EQ(tasks[0]->GetTimestamp(), 1234U);
    EXPECT_FALSE(tasks[0]->IsScheduled());
}

TEST_F(EventRetention, IsQueuedForTheCurrentTimeWithoutAnEndDate) {
    Add({});
    LumContainer values;
    values.SetString("ModelName", "Logon");
    values.SetString("EndDate", "1234");  // of another kind: absent
    const auto before = static_cast<uint32_t>(std::time(nullptr));
    EXPECT_EQ(Ask(values), 0U);
    const auto tasks = TakeTasks();
    ASSERT_EQ(tasks.size(), 1U);
    EXPECT_GE(tasks[0]->GetTimestamp(), before);
    EXPECT_LE(tasks[0]->GetTimestamp(), static_cast<uint32_t>(std::time(nullptr)));
}

TEST_F(EventRetention, IsRefusedWithoutArguments) {
    LumContainer empty;
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteEvents(nullptr), 13U);
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteEvents(&empty), 13U);
    EXPECT_EQ(Log().Count("trace ActionHandler_EventLogManagerDeleteEvents: Entering\n"), 2U);
    EXPECT_EQ(Ask({}), 13U);
    EXPECT_EQ(Log().Count("error ActionHandler_EventLogManagerDeleteEvents: Failed to get model name\n"), 1U);
    LumContainer values;
    values.SetString("ModelName", "Nobody");
    EXPECT_EQ(Ask(values), 13U);
    EXPECT_EQ(Log().Count("error ActionHandler_EventLogManagerDeleteEvents: Failed to get model 'Nobody'\n"),
              1U);
    EXPECT_TRUE(TakeTasks().empty());
}

}  // namespace
