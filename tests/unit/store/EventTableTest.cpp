#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/container/LumContainer.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/EventTable.h"
#include "support/StartedModule.h"

namespace {

using testing::ElementsAre;

constexpr LumRoutine kRoutine(ModuleDebug, "Test");

std::shared_ptr<Model_t> Logon() {
    return MakeModel({.name = "Logon",
                      .params = {{"User"},
                                 {"Count", ParamType::kInteger},
                                 {"Odd", ParamType::kUnknown},
                                 {"When", ParamType::kTimestamp}}});
}

std::vector<std::string> Texts(const std::vector<LumString>& statements) {
    std::vector<std::string> texts;
    for (const LumString& statement : statements) {
        texts.emplace_back(statement.View());
    }
    return texts;
}

TEST(EventTable, IsCalledAfterItsModel) {
    EXPECT_EQ(EventTable("Logon"), "Event_Logon");
    EXPECT_EQ(TransitionalTable("Event_Logon"), "Event_LogonTemp");
}

TEST(EventTable, ListsTheColumnsInTheOrderOfTheParameters) {
    LumString columns("E_Date");
    AppendParamColumns(columns, *Logon());
    EXPECT_EQ(columns, "E_Date, C_Count, C_Odd, C_User, C_When");
}

TEST(EventTable, IsMadeWithItsRowAndItsIndexes) {
    const std::shared_ptr<Model_t> model = Logon();
    EXPECT_THAT(
        Texts(RegistrationStatements(*model)),
        ElementsAre(
            "CREATE TABLE Event_Logon (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, "
            "E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, C_Count INTEGER, C_Odd , C_User TEXT, "
            "C_When TIMESTAMP);",
            "INSERT INTO RegisteredModel (RM_ModelName, RM_Checksum, RM_Enabled, "
            "RM_LastAggregationTimestamp, RM_LastUploadTimestamp) VALUES ('Logon', '" +
                std::string(model->GetChecksum().View()) + "', 1, 0, 0);",
            "CREATE INDEX Ix_Event_Logon_Date ON Event_Logon (E_Date)",
            "CREATE INDEX Ix_Event_Logon_DeviceID ON Event_Logon (E_DeviceID)",
            "CREATE INDEX Ix_Event_Logon_GroupID ON Event_Logon (E_GroupID)"));
    EXPECT_THAT(
        Texts(RemovalStatements("Logon")),
        ElementsAre("DROP TABLE Event_Logon;", "DELETE FROM RegisteredModel WHERE RM_ModelName = 'Logon';"));
}

TEST(EventTable, ReadsBackWhatTheUpdatesOfARowSay) {
    StartedModule module;
    const std::shared_ptr<Model_t> model = module.Add({.name = "Logon"});
    DatabaseScope scope(kRoutine);
    for (const LumString& update :
         {UpdateEnabled("Logon", false), UpdateLastAggregation("Logon", 7), UpdateLastUpload("Logon", -8)}) {
        ASSERT_NE(scope.Query(update), nullptr);
    }
    GenSqlResult* const rows = scope.Query(kSelectRegisteredRows);
    ASSERT_NE(rows, nullptr);
    ASSERT_EQ(rows->GetRowCount(), 1U);
    const RegisteredRow row = ReadRegisteredRow(*rows);
    EXPECT_EQ(row.name, "Logon");
    EXPECT_EQ(row.checksum, model->GetChecksum());
    EXPECT_FALSE(row.enabled);
    EXPECT_EQ(row.lastAggregation, 7);
    EXPECT_EQ(row.lastUpload, -8);
    ASSERT_NE(scope.Query(UpdateEnabled("Logon", true)), nullptr);
    EXPECT_TRUE(ReadRegisteredRow(*scope.Query(kSelectRegisteredRows)).enabled);
}

TEST(EventTableParamCells, CopyTheKnownParametersOfARow) {
    StartedModule module;
    const std::shared_ptr<Model_t> model = Logon();
    DatabaseScope scope(kRoutine);
    const GenSqlResult* const rows = scope.Query("SELECT 'before', 7, 'odd', 'ann', 8");
    ASSERT_NE(rows, nullptr);
    LumContainer container;
    ParamCells(*model, 1).Copy(*rows, container, 0);
    LumString user;
    int32_t count = 0;
    int32_t when = 0;
    EXPECT_TRUE(container.GetString("User", user, 0));
    EXPECT_TRUE(container.GetInt32("Count", count, 0));
    EXPECT_TRUE(container.GetInt32("When", when, 0));
    EXPECT_EQ(user, "ann");
    EXPECT_EQ(count, 7);
    EXPECT_EQ(when, 8);
    EXPECT_EQ(container.CountValues("Odd"), 0U);
}

}  // namespace
