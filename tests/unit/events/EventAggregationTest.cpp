#include <string>

#include <gtest/gtest.h>

#include "events/EventAggregation.h"
#include "model/ModelElement.h"
#include "store/ModelRegistry.h"
#include "support/StartedModule.h"
#include "support/TimeZone.h"

namespace {

std::string SelectOf(AggregationOperation operation) {
    const auto model = MakeModel({.name = "Sums",
                                  .type = ModelType::kAutomatic,
                                  .source = "Logon",
                                  .aggregation = Policy::kYearly,
                                  .params = {{"Total", ParamType::kInteger, "Size", operation}}});
    const std::string text = BuildAggregation(*model, {1, 2}).GetString();
    const std::string before = "SELECT MAX (E_Date), E_DeviceID, E_GroupID";
    const std::size_t from = text.find(before) + before.size();
    return text.substr(from, text.find(" FROM ") - from);
}

TEST(EventAggregationText, HasOneExpressionForEachOperation) {
    using enum AggregationOperation;
    EXPECT_EQ(SelectOf(kNone), ", C_Size");
    EXPECT_EQ(SelectOf(kSum), ", SUM (C_Size)");
    EXPECT_EQ(SelectOf(kCount), ", COUNT (C_Size)");
    EXPECT_EQ(SelectOf(kMin), ", MIN (C_Size)");
    EXPECT_EQ(SelectOf(kMax), ", MAX (C_Size)");
    EXPECT_EQ(SelectOf(kAvg), ", AVG (C_Size)");
    EXPECT_EQ(SelectOf(kDateTime), ", datetime (C_Size,'unixepoch', 'localtime')");
    EXPECT_EQ(SelectOf(kDate), ", date (C_Size,'unixepoch', 'localtime')");
    EXPECT_EQ(SelectOf(kTime), ", time (C_Size,'unixepoch', 'localtime')");
    EXPECT_EQ(SelectOf(kYear), ", strftime ('%Y',C_Size,'unixepoch', 'localtime')");
    EXPECT_EQ(SelectOf(kMonth), ", strftime ('%m',C_Size,'unixepoch', 'localtime')");
    EXPECT_EQ(SelectOf(kWeekOfYear), ", strftime ('%W',C_Size,'unixepoch', 'localtime')");
    EXPECT_EQ(SelectOf(kDay), ", strftime ('%d',C_Size,'unixepoch', 'localtime')");
    EXPECT_EQ(SelectOf(kHour), ", strftime ('%H',C_Size,'unixepoch', 'localtime')");
    EXPECT_EQ(SelectOf(kMinute), ", strftime ('%M',C_Size,'unixepoch', 'localtime')");
    EXPECT_EQ(SelectOf(kSecond), ", strftime ('%S',C_Size,'unixepoch', 'localtime')");
    EXPECT_EQ(SelectOf(static_cast<AggregationOperation>(16)), "");
}

TEST(EventAggregationText, KeepsTheDoubledPercentSignOfTheBuckets) {
    EXPECT_EQ(BucketExpression(Policy::kMinutely),
              "strftime('%Y,%m,%%d,%H,%M', E_Date, 'unixepoch', 'localtime')");
    EXPECT_EQ(BucketExpression(Policy::kHourly),
              "strftime('%Y,%m,%%d,%H', E_Date, 'unixepoch', 'localtime')");
    EXPECT_EQ(BucketExpression(Policy::kDaily), "strftime('%Y,%m,%%d', E_Date, 'unixepoch', 'localtime')");
    EXPECT_EQ(BucketExpression(Policy::kWeekly), "strftime('%Y,%m,%W', E_Date, 'unixepoch', 'localtime')");
    EXPECT_EQ(BucketExpression(Policy::kMonthly), "strftime('%Y,%m', E_Date, 'unixepoch', 'localtime')");
    EXPECT_EQ(BucketExpression(Policy::kYearly), "strftime('%Y', E_Date, 'unixepoch', 'localtime')");
    EXPECT_EQ(BucketExpression(Policy::kNever), "");
    EXPECT_EQ(BucketExpression(Policy::kUnknown), "");
}

TEST(EventAggregationText, IsOneStatementInTheOrderOfTheNames) {
    const auto model =
        MakeModel({.name = "Sums",
                   .type = ModelType::kAutomatic,
                   .source = "Logon",
                   .aggregation = Policy::kHourly,
                   .params = {{"Total", ParamType::kInteger, "Size", AggregationOperation::kCount},
                              {"First", ParamType::kString, "User"}},
                   .groupedBy = {"B", "A"}});
    EXPECT_STREQ(
        BuildAggregation(*model, {-5, 2147483647}).GetString(),
        "INSERT INTO Event_Sums ( E_Date, E_DeviceID, E_GroupID, C_First, C_Total ) SELECT MAX "
        "(E_Date), E_DeviceID, E_GroupID, C_User, COUNT (C_Size) FROM Event_Logon WHERE E_Date >= -5 "
        "AND E_Date < 2147483647 GROUP BY E_GroupID, E_DeviceID, strftime('%Y,%m,%%d,%H', E_Date, "
        "'unixepoch', 'localtime'), C_A, C_B");
}

class EventAggregation : public testing::Test, protected StartedModule {
protected:
    EventAggregation() { Add({.params = {{"Size", ParamType::kInteger}, {"User"}}}); }

    std::shared_ptr<Model_t> AddSums(Policy policy = Policy::kHourly, const char* source = "Logon") {
        return Add({.name = "Sums",
                    .type = ModelType::kAutomatic,
                    .source = source,
                    .aggregation = policy,
                    .params = {{"Size", ParamType::kInteger, "Size", AggregationOperation::kSum},
                               {"User", ParamType::kString, "User"}},
                    .groupedBy = {"User"}});
    }
    void Event(std::time_t date, int device, const char* user, int size) {
        Change(
            "INSERT INTO Event_Logon (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_Size, "
            "C_User) VALUES (" +
            std::to_string(date) + ", 3600, " + std::to_string(device) + ", 0, " + std::to_string(size) +
            ", '" + user + "')");
    }
    std::string Sums() {
        return Rows(
            "SELECT ifnull(group_concat(E_Date || ' ' || E_DeviceId || ' ' || C_User || ' ' || C_Size || "
            "ifnull(E_GMT_Offset, ''), '; '), '') FROM (SELECT * FROM Event_Sums ORDER BY E_Date, "
            "E_DeviceId, "
            "C_User)");
    }
    static bool Run(const std::shared_ptr<Model_t>& model, std::time_t start, std::time_t end) {
        return AggregateEvents(model, static_cast<uint32_t>(start), static_cast<uint32_t>(end), true);
    }
    std::string Stored() { return StoredTime("RM_LastAggregationTimestamp", "Sums"); }

    const TimeZone zone_{"Europe/Berlin"};
    const std::time_t nine_ = Utc(2026, 7, 15, 7);
};

TEST_F(EventAggregation, MakesOneEventOfEachGroupDeviceBucketAndEntry) {
    const auto sums = AddSums();
    Event(nine_ - 1, 1, "ann", 1000);
    Event(nine_, 1, "ann", 1);
    Event(nine_ + 10, 1, "ann", 2);
    Event(nine_ + 20, 1, "bob", 4);
    Event(nine_ + 30, 2, "ann", 8);
    Event(nine_ + 3600, 1, "ann", 16);
    Event(nine_ + 7200, 1, "ann", 1000);
    sums->SetLastAggregationTime(static_cast<uint32_t>(nine_ - 3600));
    EXPECT_TRUE(Run(sums, nine_ + 1200, nine_ + 2 * 3600 + 2700));
    const auto row = [this](int after, const char* rest) { return std::to_string(nine_ + after) + rest; };
    EXPECT_EQ(Sums(),
              row(10, " 1 ann 3; ") + row(20, " 1 bob 4; ") + row(30, " 2 ann 8; ") + row(3600, " 1 ann 16"));
    EXPECT_EQ(Stored(), std::to_string(nine_ + 7200));
    EXPECT_EQ(sums->GetLastAggregationTime(), static_cast<uint32_t>(nine_ + 7200));
    EXPECT_EQ(Log().Count("trace AggregateEvents: Model 'Logon' has been aggregated into model "
                          "'Sums' with success\n"),
              1U);
}

TEST_F(EventAggregation, TakesTheSameHourOfTwoDaysForOneBucket) {
    const auto sums = AddSums();
    Event(nine_, 1, "ann", 1);
    Event(nine_ + 86400, 1, "ann", 2);
    EXPECT_TRUE(Run(sums, 0, nine_ + 2 * 86400));
    EXPECT_EQ(Sums(), std::to_string(nine_ + 86400) + " 1 ann 3");
}

TEST_F(EventAggregation, HasNothingToDoTwiceInOneHour) {
    const auto sums = AddSums();
    EXPECT_TRUE(Run(sums, 0, nine_ + 60));
    Event(nine_ - 1, 1, "ann", 1);
    EXPECT_TRUE(Run(sums, 0, nine_ + 3599));
    EXPECT_EQ(Sums(), "");
    EXPECT_EQ(Log().Count("trace AggregateEvents: Nothing to aggregate for model 'Sums'\n"), 1U);
}

TEST_F(EventAggregation, ConsumesTheWindowWhileItIsSwitchedOff) {
    const auto sums = AddSums();
    Event(nine_ - 1, 1, "ann", 1);
    AggregationEnabled = false;
    sums->SetEnabled(false);
    EXPECT_TRUE(Run(sums, 0, nine_));
    EXPECT_EQ(Sums(), "");
    EXPECT_EQ(Stored(), std::to_string(nine_));
    EXPECT_EQ(
        Log().Count("trace AggregateEvents: Aggregation is disabled, ignoring events for model 'Sums'\n"),
        1U);
}

TEST_F(EventAggregation, ConsumesTheWindowOfADisabledModel) {
    const auto sums = AddSums();
    Event(nine_ - 1, 1, "ann", 1);
    sums->SetEnabled(false);
    EXPECT_TRUE(Run(sums, 0, nine_));
    EXPECT_EQ(Sums(), "");
    EXPECT_EQ(Stored(), std::to_string(nine_));
    EXPECT_EQ(Log().Count("trace AggregateEvents: Ignoring events for disabled model 'Sums'\n"), 1U);
}

TEST_F(EventAggregation, RefusesNullAndModelsThatAreNotAutomatic) {
    EXPECT_FALSE(AggregateEvents(nullptr, 0, 1, true));
    std::shared_ptr<Model_t> user;
    ASSERT_TRUE(ModelCollection.Get("Logon", user));
    EXPECT_FALSE(Run(user, 0, nine_));
    EXPECT_EQ(Log().Count("warning AggregateEvents: Aggregation cannot be invoked for non automatic "
                          "model 'Logon'\n"),
              1U);
}

TEST_F(EventAggregation, SaysThatItCannotLockTheDatabase) {
    const auto sums = AddSums();
    const DatabaseLockout exhausted;
    EXPECT_FALSE(Run(sums, 0, nine_));
    EXPECT_EQ(Log().Count("error AggregateEvents: Failed to lock database\n"), 1U);
    EXPECT_EQ(sums->GetLastAggregationTime(), 0U);
}

TEST_F(EventAggregation, FailsForAModelThatIsNeverAggregatedAndKeepsItsTime) {
    const auto sums = AddSums(Policy::kNever);
    EXPECT_FALSE(Run(sums, 0, nine_));
    EXPECT_EQ(Stored(), "0");
    EXPECT_EQ(sums->GetLastAggregationTime(), 0U);
}

TEST_F(EventAggregation, RollsTheTimeBackWhereItsSourceIsGoneAndTriesTheWindowAgain) {
    const auto sums = AddSums();
    Change("ALTER TABLE Event_Logon RENAME TO Away");
    EXPECT_FALSE(Run(sums, 0, nine_));
    EXPECT_EQ(Stored(), "0");
    EXPECT_EQ(Log().Count(
                  "error AggregateEvents: Failed to aggregate model 'Logon' into model 'Sums', SQL error\n"),
              1U);
    Change("ALTER TABLE Away RENAME TO Event_Logon");
    Event(nine_ - 1, 1, "ann", 1);
    EXPECT_TRUE(Run(sums, 0, nine_));
    EXPECT_EQ(Sums(), std::to_string(nine_ - 1) + " 1 ann 1");
}

TEST_F(EventAggregation, FailsWhereTheRegistryIsGone) {
    const auto sums = AddSums();
    Event(nine_ - 1, 1, "ann", 1);
    Change("ALTER TABLE RegisteredModel RENAME TO Away");
    EXPECT_FALSE(Run(sums, 0, nine_));
    EXPECT_EQ(Sums(), "");
}

TEST_F(EventAggregation, OfAModelFromItselfAddsToItsOwnEvents) {
    const auto sums = AddSums(Policy::kHourly, "Sums");
    Change("INSERT INTO Event_Sums (E_Date, E_DeviceId, E_GroupId, C_Size, C_User) VALUES (" +
           std::to_string(nine_ - 1) + ", 1, 0, 5, 'ann')");
    EXPECT_TRUE(Run(sums, 0, nine_));
    EXPECT_EQ(Rows("SELECT count(*) FROM Event_Sums"), "2");
}

TEST_F(EventAggregation, OfAModelThatWasDeletedMeanwhileFailsWithALine) {
    const auto sums = AddSums();
    ASSERT_TRUE(RemoveRegisteredModel("Sums"));
    EXPECT_FALSE(Run(sums, 0, nine_));
    EXPECT_EQ(Log().Count(
                  "error AggregateEvents: Failed to aggregate model 'Logon' into model 'Sums', SQL error\n"),
              1U);
}

}  // namespace
