#include <ctime>
#include <filesystem>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "events/EventUpload.h"
#include "host/container/LumContainer.h"
#include "host/file/LumFile.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"
#include "support/FileStoreStandIn.h"
#include "support/ResourceLimit.h"
#include "support/StartedModule.h"
#include "support/TimeZone.h"

namespace {

TEST(EventUploadText, ReadsTheColumnsInTheirOrder) {
    const auto model = MakeModel({.params = {{"User"}, {"Count", ParamType::kInteger}}});
    EXPECT_STREQ(BuildUpload(*model, {-5, 7}).GetString(),
                 "SELECT E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_Count, C_User FROM EVENT_Logon WHERE "
                 "E_Date >= -5 AND E_Date < 7;");
    EXPECT_STREQ(BuildUpload(*MakeModel({}), {0, 1}).GetString(),
                 "SELECT E_Date, E_GMT_Offset, E_DeviceId, E_GroupId FROM EVENT_Logon WHERE E_Date >= 0 AND "
                 "E_Date < 1;");
}

class EventUpload : public testing::Test, protected StartedModule {
protected:
    std::shared_ptr<Model_t> AddLogon(Policy policy = Policy::kNever) {
        return Add({.upload = policy, .params = {{"User"}}});
    }
    /// Events with the dates 1 to `count`.
    void Events(int count, const char* device = "0", const char* group = "0") {
        Change("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
               std::to_string(count) +
               ") INSERT INTO Event_Logon (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_User) "
               "SELECT i, 3600, " +
               device + ", " + group + ", 'user' || i FROM n");
    }
    [[nodiscard]] std::vector<LumContainer> Files() const { return received_.Files(); }
    std::string Stored() { return StoredTime("RM_LastUploadTimestamp", "Logon"); }
    [[nodiscard]] int64_t Success() const {
        return Log().Count("trace UploadEvents: Events have been uploaded with success for model 'Logon'\n");
    }
    [[nodiscard]] int64_t SqlErrors() const {
        return Log().Count("error UploadEvents: Failed to upload events for model 'Logon', SQL error\n");
    }
    uint32_t Ask(LumContainer values) {
        LumContainer request;
        request.SetContainer("Values", std::move(values));
        return ActionHandler_EventLogManagerUploadEvents(&request);
    }

    FileStoreStandIn received_;
};

TEST_F(EventUpload, SendsAHundredEventsAFileAndEachEventOnce) {
    const auto model = AddLogon();
    Events(250);
    EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    ASSERT_EQ(Files().size(), 3U);
    std::set<int32_t> dates;
    const uint32_t counts[] = {100, 100, 50};
    for (std::size_t f = 0; f < 3; ++f) {
        const LumContainer file = Files()[f];
        EXPECT_EQ(file.CountValues("EventDate"), counts[f]);
        EXPECT_EQ(file.CountValues("User"), counts[f]);
        EXPECT_TRUE(file.Contains("ModelDef"));
        int32_t date = 0;
        for (uint32_t i = 0; file.GetInt32("EventDate", date, i); ++i) {
            EXPECT_TRUE(dates.insert(date).second) << date;
            EXPECT_STREQ(file.FindString("User", i)->GetString(), ("user" + std::to_string(date)).c_str());
        }
    }
    EXPECT_EQ(dates.size(), 250U);
    EXPECT_EQ(Success(), 1);
    EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    EXPECT_EQ(Files().size(), 3U);
}

TEST_F(EventUpload, MakesNoEmptyFileOfAFullHundred) {
    const auto model = AddLogon();
    Events(100);
    EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    EXPECT_EQ(Files().size(), 1U);
}

TEST_F(EventUpload, WritesEveryKindOfParameterAndDescribesTheModel) {
    const auto model = Add({.name = "All",
                            .params = {{"S"},
                                       {"I", ParamType::kInteger},
                                       {"D", ParamType::kDouble},
                                       {"T", ParamType::kTimestamp},
                                       {"B", ParamType::kBoolean},
                                       {"E", ParamType::kEnum},
                                       {"X", static_cast<ParamType>(9)}}});
    Change("INSERT INTO Event_All VALUES (NULL, 5, -3600, 7, -1, 1, 2.5, 'red', -9, 'it''s', 77, 'x')");
    Change("INSERT INTO Event_All VALUES (NULL, 6, 0, 0, 0, NULL, NULL, NULL, NULL, NULL, NULL, NULL)");
    EXPECT_TRUE(UploadEvents(model, 0, 10, false));
    ASSERT_EQ(Files().size(), 1U);
    EXPECT_EQ(
        Files()[0].ToJson(),
        "{\"ModelDef\":{\"ModelName\":\"All\",\"ModelChecksum\":\"" +
            std::string(model->GetChecksum().GetString()) +
            "\",\"ModelVars\":{\"ModelVarName\":[\"B\",\"D\",\"E\",\"I\",\"S\",\"T\",\"X\"],"
            "\"ModelVarType\":[\"_BOOLEAN_\",\"_DOUBLE_\",\"_ENUM_\",\"_INTEGER_\",\"_STRING_\","
            "\"_TIMESTAMP_\"]}},\"EventDate\":[5,6],\"EventGMTOffset\":[-3600,0],\"EventDeviceId\":[7,0],"
            "\"EventGroupId\":[-1,0],\"B\":[true,false],\"D\":[2.5,0.0],\"E\":[\"red\",\"\"],\"I\":[-9,0],"
            "\"S\":[\"it's\",\"\"],\"T\":[77,0]}");
}

TEST_F(EventUpload, LeavesOutIdsThatAreAllZeroFileByFile) {
    const auto model = AddLogon();
    Events(200, "CASE WHEN i = 150 THEN 4 ELSE 0 END", "CASE WHEN i = 1 THEN -1 ELSE 0 END");
    EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    ASSERT_EQ(Files().size(), 2U);
    EXPECT_FALSE(Files()[0].Contains("EventDeviceId"));
    EXPECT_EQ(Files()[0].CountValues("EventGroupId"), 100U);
    EXPECT_EQ(Files()[1].CountValues("EventDeviceId"), 100U);
    EXPECT_FALSE(Files()[1].Contains("EventGroupId"));
}

TEST_F(EventUpload, OfAModelWithoutParametersHasTheFixedKeysAlone) {
    const auto model = Add({});
    Change("INSERT INTO Event_Logon VALUES (NULL, 5, 60, 1, 2)");
    EXPECT_TRUE(UploadEvents(model, 0, 10, false));
    ASSERT_EQ(Files().size(), 1U);
    EXPECT_NE(Files()[0].ToJson().find("\"ModelVars\":{}},\"EventDate\":[5],\"EventGMTOffset\":[60],"
                                       "\"EventDeviceId\":[1],\"EventGroupId\":[2]}"),
              std::string::npos)
        << Files()[0].ToJson();
}

TEST_F(EventUpload, HandsEachFileOverWithTheSameFields) {
    const auto model = AddLogon();
    Events(1);
    EXPECT_TRUE(UploadEvents(model, 0, 10, false));
    ASSERT_EQ(received_.Requests().size(), 1U);
    LumContainer request = received_.Requests()[0];
    LumString path;
    ASSERT_TRUE(request.GetString("MovePath", path));
    EXPECT_EQ(path.View().substr(0, GetTempDirectory().GetLength()), GetTempDirectory().View());
    request.ClearName("MovePath");
    EXPECT_EQ(request.ToJson(),
              R"({"FileType":"EventLogManagerEvents","FileLabel":"EventLogManagerEvents","FileName":"",)"
              R"("FileChecksum":"","Upstream":true,"Priority":100})");
}

TEST_F(EventUpload, LeavesTheCurrentPeriodToTheNextScheduledRun) {
    const TimeZone zone("Europe/Berlin");
    const auto model = AddLogon(Policy::kHourly);
    const auto ten = Utc(2026, 7, 15, 8);
    for (const std::time_t date : {ten - 1, ten, ten + 3540}) {
        Change("INSERT INTO Event_Logon VALUES (NULL, " + std::to_string(date) + ", 0, 0, 0, 'u')");
    }
    EXPECT_TRUE(UploadEvents(model, 0, static_cast<uint32_t>(ten + 3540), true));
    ASSERT_EQ(Files().size(), 1U);
    EXPECT_EQ(Files()[0].CountValues("EventDate"), 1U);
    EXPECT_EQ(Stored(), std::to_string(ten));
    EXPECT_TRUE(UploadEvents(model, static_cast<uint32_t>(ten), static_cast<uint32_t>(ten + 3605), true));
    ASSERT_EQ(Files().size(), 2U);
    EXPECT_EQ(Files()[1].CountValues("EventDate"), 2U);
}

TEST_F(EventUpload, HasNothingToDoInAnEmptyWindowAndMovesNothing) {
    const auto model = AddLogon();
    model->SetLastUploadTime(50);
    EXPECT_TRUE(UploadEvents(model, 0, 50, false));
    EXPECT_EQ(Log().Count("trace UploadEvents: Nothing to upload for model 'Logon'\n"), 1U);
    EXPECT_EQ(Stored(), "0");
}

TEST_F(EventUpload, MovesTheTimeWhereThereAreNoEvents) {
    const auto model = AddLogon();
    EXPECT_TRUE(UploadEvents(model, 0, 50, false));
    EXPECT_EQ(Log().Count("trace UploadEvents: Nothing to upload for model 'Logon'\n"), 1U);
    EXPECT_EQ(Stored(), "50");
    EXPECT_EQ(model->GetLastUploadTime(), 50U);
    EXPECT_TRUE(Files().empty());
}

TEST_F(EventUpload, ConsumesTheWindowWhileItIsSwitchedOff) {
    const auto model = AddLogon();
    Events(3);
    UploadEnabled = false;
    model->SetEnabled(false);
    EXPECT_TRUE(UploadEvents(model, 0, 50, false));
    EXPECT_TRUE(Files().empty());
    EXPECT_EQ(Stored(), "50");
    EXPECT_EQ(model->GetLastUploadTime(), 50U);
    EXPECT_EQ(Log().Count("trace UploadEvents: Upload is disabled, ignoring events for model 'Logon'\n"), 1U);
}

TEST_F(EventUpload, ConsumesTheWindowOfADisabledModel) {
    const auto model = AddLogon();
    Events(3);
    model->SetEnabled(false);
    EXPECT_TRUE(UploadEvents(model, 0, 50, false));
    EXPECT_TRUE(Files().empty());
    EXPECT_EQ(Stored(), "50");
    EXPECT_EQ(Log().Count("trace UploadEvents: Ignoring events for disabled model 'Logon'\n"), 1U);
}

TEST_F(EventUpload, RefusesNull) {
    EXPECT_FALSE(UploadEvents(nullptr, 0, 1, false));
}

TEST_F(EventUpload, SaysThatItCannotLockTheDatabase) {
    const auto model = AddLogon();
    const DatabaseLockout exhausted;
    EXPECT_FALSE(UploadEvents(model, 0, 50, false));
    EXPECT_EQ(Log().Count("error UploadEvents: Failed to lock database\n"), 1U);
    EXPECT_EQ(model->GetLastUploadTime(), 0U);
}

TEST_F(EventUpload, KeepsTheStoredTimeButNotItsOwnWhereTheEventsCannotBeRead) {
    const auto model = AddLogon();
    Events(3);
    Change("ALTER TABLE Event_Logon RENAME TO Away");
    EXPECT_FALSE(UploadEvents(model, 0, 50, false));
    EXPECT_EQ(SqlErrors(), 1);
    EXPECT_EQ(Stored(), "50");
    EXPECT_EQ(model->GetLastUploadTime(), 0U);
    Change("ALTER TABLE Away RENAME TO Event_Logon");
    EXPECT_TRUE(UploadEvents(model, 0, 60, false));
    EXPECT_EQ(Files().size(), 1U);
}

TEST_F(EventUpload, FailsWhereTheRegistryIsGone) {
    const auto model = AddLogon();
    Events(3);
    Change("ALTER TABLE RegisteredModel RENAME TO Away");
    EXPECT_FALSE(UploadEvents(model, 0, 50, false));
    EXPECT_EQ(SqlErrors(), 1);
    EXPECT_TRUE(Files().empty());
    EXPECT_EQ(model->GetLastUploadTime(), 0U);
}

TEST_F(EventUpload, TriesTheWindowAgainAfterAnotherProcessHeldTheDatabase) {
    const auto model = AddLogon();
    Events(3);
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(DatabasePath.GetString(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_FALSE(UploadEvents(model, 0, 50, false));
    EXPECT_EQ(sqlite3_close(other), SQLITE_OK);
    EXPECT_EQ(SqlErrors(), 1);
    EXPECT_TRUE(UploadEvents(model, 0, 50, false));
    EXPECT_EQ(Files().size(), 1U);
}

TEST_F(EventUpload, OfAModelThatWasDeletedMeanwhileFailsWithALine) {
    const auto model = AddLogon();
    ASSERT_TRUE(RemoveRegisteredModel("Logon"));
    EXPECT_FALSE(UploadEvents(model, 0, 50, false));
    EXPECT_EQ(SqlErrors(), 1);
}

TEST_F(EventUpload, IsQueuedByItsAction) {
    const auto model = AddLogon();
    model->SetLastUploadTime(77);
    LumContainer values;
    values.SetString("ModelName", "Logon");
    const auto before = static_cast<uint32_t>(std::time(nullptr));
    EXPECT_EQ(Ask(values), 0U);
    const auto tasks = TakeTasks();
    ASSERT_EQ(tasks.size(), 1U);
    EXPECT_EQ(tasks[0]->GetType(), TaskType::TaskUpload);
    EXPECT_TRUE(tasks[0]->GetModelName() == "Logon");
    EXPECT_EQ(tasks[0]->GetPreviousTimestamp(), 77U);
    EXPECT_GE(tasks[0]->GetTimestamp(), before);
    EXPECT_FALSE(tasks[0]->IsScheduled());
}

TEST_F(EventUpload, IsRefusedWithoutArguments) {
    LumContainer empty;
    EXPECT_EQ(ActionHandler_EventLogManagerUploadEvents(nullptr), 13U);
    EXPECT_EQ(ActionHandler_EventLogManagerUploadEvents(&empty), 13U);
    EXPECT_EQ(Log().Count("trace ActionHandler_EventLogManagerUploadEvents: Entering\n"), 2U);
    EXPECT_EQ(Ask({}), 13U);
    EXPECT_EQ(Log().Count("error ActionHandler_EventLogManagerUploadEvents: Failed to get model name\n"), 1U);
    LumContainer values;
    values.SetString("ModelName", "Nobody");
    EXPECT_EQ(Ask(values), 13U);
    EXPECT_EQ(Log().Count("error ActionHandler_EventLogManagerUploadEvents: Failed to get model 'Nobody'\n"),
              1U);
    EXPECT_TRUE(TakeTasks().empty());
}

}  // namespace
