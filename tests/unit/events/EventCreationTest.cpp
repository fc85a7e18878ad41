#include <atomic>
#include <ctime>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "events/EventCreation.h"
#include "host/container/LumContainer.h"
#include "model/Model.h"
#include "model/ModelElement.h"
#include "store/DatabaseScope.h"
#include "support/FaultVfs.h"
#include "support/LinkedModule.h"
#include "support/TimeZone.h"

namespace {

/// The program's time while it is not 0.
std::atomic<std::time_t> fakedTime{0};

}  // namespace

// Takes the place of the system's routine in the whole program, so that a test can set the clock.
extern "C" std::time_t time(std::time_t* out) noexcept {
    const std::time_t faked = fakedTime;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::time_t answer = faked != 0 ? faked : now.tv_sec;
    if (out != nullptr) {
        *out = answer;
    }
    return answer;
}

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class EventCreation : public testing::Test, protected LinkedModule {
protected:
    /// Starts the module with a model of these parameters.
    void Start(std::vector<ParamText> params) {
        StartWith({.name = "Sample", .params = std::move(params)});
        Log().Forget();
    }
    /// What was said at print level or above since the start.
    [[nodiscard]] std::string Columns(const std::string& columns) const {
        return Rows("SELECT " + columns + " FROM Event_Sample ORDER BY E_Id");
    }
};

TEST_F(EventCreation, StoresAValueOfEachType) {
    Start({{"A"},
           {"B", ParamType::kInteger},
           {"C", ParamType::kDouble},
           {"D", ParamType::kTimestamp},
           {"E", ParamType::kBoolean},
           {"F", ParamType::kEnum}});
    EXPECT_EQ(Create("Sample", R"({"A":"O'Brien","B":-5,"C":2.5,"D":86400,"E":true,"F":"_ON_"})"), 0U);
    EXPECT_EQ(Columns("C_A, C_B, C_C, C_D, C_E, C_F"), "O'Brien|-5|2.5|86400|1|_ON_");
    EXPECT_EQ(Columns("typeof(C_A), typeof(C_B), typeof(C_C), typeof(C_D), typeof(C_E), typeof(C_F)"),
              "text|integer|real|integer|integer|text");
}

TEST_F(EventCreation, StoresDatesIdsAndTheOffsetOfTheMoment) {
    const TimeZone zone("Europe/Berlin");
    Start({{.name = "A", .defaultText = "x"}});
    const std::time_t before = std::time(nullptr);
    EXPECT_EQ(Create("Sample", R"({"EventDeviceId":12,"EventGroupId":-3})"), 0U);
    EXPECT_EQ(Columns("E_DeviceId, E_GroupId"), "12|-3");
    const std::tm local = *std::localtime(&before);
    EXPECT_EQ(Columns("E_GMT_Offset"), local.tm_isdst > 0 ? "7200" : "3600");
    EXPECT_EQ(Rows("SELECT E_Date BETWEEN " + std::to_string(before) + " AND " +
                   std::to_string(std::time(nullptr)) + " FROM Event_Sample"),
              "1");
}

TEST_F(EventCreation, WrapsADateBeyondThirtyTwoBits) {
    const TimeZone zone("UTC");
    Start({{.name = "A", .defaultText = "x"}});
    fakedTime = (std::time_t{1} << 31U) + 5;
    EXPECT_EQ(Create("Sample", "{}"), 0U);
    fakedTime = 0;
    EXPECT_EQ(Columns("E_Date, E_GMT_Offset"), "-2147483643|0");
}

TEST_F(EventCreation, StoresTheOffsetOfAZoneWestOfGreenwich) {
    const TimeZone zone("America/New_York");
    Start({{.name = "A", .defaultText = "x"}});
    fakedTime = Utc(2026, 1, 15, 12);
    EXPECT_EQ(Create("Sample", "{}"), 0U);
    fakedTime = Utc(2026, 7, 15, 12);
    EXPECT_EQ(Create("Sample", "{}"), 0U);
    fakedTime = 0;
    EXPECT_EQ(Columns("E_GMT_Offset"), "-18000\n-14400");
}

TEST_F(EventCreation, KeepsBytesThatAreNoUtf8) {
    Start({{"A"}});
    LumContainer params;
    params.SetString("A", "\xff\xfe'\xc3");
    LumContainer values;
    values.SetString("ModelName", "Sample");
    values.SetContainer("EventParams", params);
    LumContainer container;
    container.SetContainer("Values", values);
    EXPECT_EQ(ActionHandler_EventLogManagerCreateEvent(&container), 0U);
    EXPECT_EQ(Columns("hex(C_A)"), "FFFE27C3");
}

TEST_F(EventCreation, TakesZeroForAMissingId) {
    Start({{.name = "A", .defaultText = "x"}});
    EXPECT_EQ(Create("Sample", R"({"EventDeviceId":"text"})"), 0U);
    EXPECT_EQ(Columns("E_DeviceId, E_GroupId"), "0|0");
}

TEST_F(EventCreation, FillsMissingValuesFromDefaults) {
    Start({{.name = "A", .defaultText = "it's"},
           {.name = "B", .type = ParamType::kInteger, .defaultText = "1 + 1"},
           {.name = "C", .type = ParamType::kDouble, .defaultText = "0.25"},
           {.name = "D", .type = ParamType::kTimestamp, .defaultText = "7"},
           {.name = "E", .type = ParamType::kBoolean, .defaultText = "1"},
           {.name = "F", .type = ParamType::kEnum, .defaultText = "_OFF_"}});
    EXPECT_EQ(Create("Sample", "{}"), 0U);
    // Defaults of other types than text go into the statement as they stand.
    EXPECT_EQ(Columns("C_A, C_B, C_C, C_D, C_E, C_F"), "it's|2|0.25|7|1|_OFF_");
}

TEST_F(EventCreation, TakesAValueOfAnotherKindForAMissingOne) {
    Start({{.name = "B", .type = ParamType::kInteger, .defaultText = "4"}});
    EXPECT_EQ(Create("Sample", R"({"B":"5"})"), 0U);
    EXPECT_EQ(Columns("C_B"), "4");
}

TEST_F(EventCreation, RefusesAnEventWithoutAValueThatHasNoDefault) {
    Start({{"A"}, {"B"}});
    EXPECT_EQ(Create("Sample", "{}"), 1U);
    EXPECT_THAT(Said(), ElementsAre("error ActionHandler_EventLogManagerCreateEvent: Failed to get value for "
                                    "parameter 'A' of model 'Sample'"));
    EXPECT_EQ(Columns("count(*)"), "0");
}

TEST_F(EventCreation, TakesAnEmptyTextForAValue) {
    Start({{"A"}});
    EXPECT_EQ(Create("Sample", R"({"A":""})"), 0U);
    EXPECT_EQ(Columns("typeof(C_A), length(C_A)"), "text|0");
}

TEST_F(EventCreation, RefusesMissingArguments) {
    Start({{"A"}});
    EXPECT_EQ(ActionHandler_EventLogManagerCreateEvent(nullptr), 13U);
    const char* const action = "EventLogManagerCreateEvent";
    EXPECT_EQ(Call(action, R"({"Other":1})"), (Answer{13, R"({"Other":1})"}));
    EXPECT_THAT(Said(), IsEmpty());
    EXPECT_EQ(Call(action, R"({"Values":{"ModelName":1}})").status, 13U);
    EXPECT_EQ(Call(action, R"({"Values":{"ModelName":"sample"}})").status, 13U);
    EXPECT_EQ(Call(action, R"({"Values":{"ModelName":"Sample","EventParams":1}})").status, 13U);
    const std::string routine = "error ActionHandler_EventLogManagerCreateEvent: ";
    EXPECT_THAT(Said(),
                ElementsAre(routine + "Failed to get model name", routine + "Failed to get model 'sample'",
                            routine + "Failed to get parameters for model 'Sample'"));
}

TEST_F(EventCreation, LeavesNothingInTheContainerAfterSuccess) {
    Start({{"A"}});
    EXPECT_EQ(Call("EventLogManagerCreateEvent",
                   R"({"Values":{"ModelName":"Sample","EventParams":{"A":"x"},"Extra":1},"More":2})"),
              (Answer{0, "{}"}));
    EXPECT_EQ(Log().Count("trace ActionHandler_EventLogManagerCreateEvent: Event created with success for "
                          "model 'Sample'"),
              1U);
}

TEST_F(EventCreation, DropsEventsOfADisabledModelInSilence) {
    Start({{"A"}});
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("Sample", model));
    model->SetEnabled(false);
    EXPECT_EQ(Create("Sample", "{}"), 0U);
    EXPECT_THAT(Said(), IsEmpty());
    EXPECT_EQ(Log().Count("trace ActionHandler_EventLogManagerCreateEvent: Event refers to disabled model "
                          "'Sample'"),
              1U);
    EXPECT_EQ(Columns("count(*)"), "0");
}

TEST_F(EventCreation, SaysThatTheLockCannotBeHad) {
    Start({{"A"}});
    const DatabaseLockout lockout;
    EXPECT_EQ(Create("Sample", R"({"A":"x"})"), 1U);
    EXPECT_THAT(Said(),
                ElementsAre("error ActionHandler_EventLogManagerCreateEvent: Failed to lock database"));
}

TEST_F(EventCreation, FailsWhereTheTableIsGone) {
    Start({{"A"}});
    Change("DROP TABLE Event_Sample");
    EXPECT_EQ(Create("Sample", R"({"A":"x"})"), 1U);
    EXPECT_THAT(Said(), ElementsAre(StartsWith("error DBConnection: no such table: Event_Sample")));
}

TEST_F(EventCreation, RefusesATextWithANullByteAndKeepsServing) {
    Start({{"A"}});
    EXPECT_EQ(Create("Sample", R"({"A":"a\u0000b"})"), 1U);
    EXPECT_EQ(Said().size(), 1U);
    EXPECT_EQ(Create("Sample", R"({"A":"next"})"), 0U);
    EXPECT_EQ(Columns("C_A"), "next");
}

TEST_F(EventCreation, StoresAMillionCharacters) {
    Start({{"A"}});
    EXPECT_EQ(Create("Sample", R"({"A":")" + std::string(1000000, '\'') + "\"}"), 0U);
    EXPECT_EQ(Columns("length(C_A)"), "1000000");
}

TEST_F(EventCreation, StoresTextThatLooksLikeSql) {
    Start({{"A"}});
    EXPECT_EQ(Create("Sample", R"({"A":"'); DROP TABLE Event_Sample; --"})"), 0U);
    EXPECT_EQ(Columns("C_A"), "'); DROP TABLE Event_Sample; --");
}

TEST_F(EventCreation, RefusesADefaultThatEndsTheStatementEarly) {
    Start({{.name = "A", .type = ParamType::kInteger, .defaultText = "0); DROP TABLE Event_Sample; --"}});
    EXPECT_EQ(Create("Sample", "{}"), 1U);
    EXPECT_EQ(Columns("count(*)"), "0");
}

TEST_F(EventCreation, FailsForAParameterOfAnUnknownType) {
    Start({{"A"}});
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("Sample", model));
    ASSERT_TRUE(model->GetParams().Add(
        std::make_shared<ModelParam_t>("Z", "", static_cast<ParamType>(9), AggregationOperation::kNone, "")));
    EXPECT_EQ(Create("Sample", R"({"A":"x","Z":"y"})"), 1U);
    EXPECT_EQ(Columns("count(*)"), "0");
}

TEST_F(EventCreation, HoldsNoLockWhileItWaitsForTheDisk) {
    FaultVfs faults;
    Start({{.name = "A", .defaultText = "x"}});
    faults.HoldSyncs(true);
    std::thread creator([] { EXPECT_EQ(Create("Sample", "{}"), 0U); });
    ASSERT_TRUE(faults.AwaitHeldSyncs(1));
    ASSERT_TRUE(DatabaseMutex.Lock());
    DatabaseMutex.Unlock();
    EXPECT_EQ(Columns("C_A"), "x") << "other routines read and write meanwhile";
    faults.HoldSyncs(false);
    creator.join();
}

TEST_F(EventCreation, FailsWhereTheEventCannotBeMadeDurable) {
    FaultVfs faults;
    Start({{.name = "A", .defaultText = "x"}});
    faults.FailCall(FaultVfs::Call::kSync, 1, SQLITE_IOERR_FSYNC);
    EXPECT_EQ(Create("Sample", "{}"), 1U);
    EXPECT_THAT(Said(), Contains(HasSubstr("Failed to sync the write-ahead log")));
    faults.Reset();
    EXPECT_EQ(Create("Sample", "{}"), 0U);
}

TEST_F(EventCreation, LeavesTheWaitingToACallerWhoDelaysIt) {
    FaultVfs faults;
    Start({{.name = "A", .defaultText = "x"}});
    faults.Reset();
    {
        const DBDurabilityDelay delay;
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(Create("Sample", "{}"), 0U);
        }
        EXPECT_EQ(faults.CountCalls(FaultVfs::Call::kSync), 0U);
        EXPECT_TRUE(DBAwaitDurable());
    }
    EXPECT_EQ(faults.CountCalls(FaultVfs::Call::kSync), 1U);
}

}  // namespace
