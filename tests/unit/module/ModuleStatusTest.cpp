#include <string>

#include <gtest/gtest.h>

#include "events/EventRetention.h"
#include "host/core/LumMetrics.h"
#include "host/database/DatabaseFigures.h"
#include "module/ModuleStatus.h"
#include "store/ModelRegistry.h"
#include "support/StartedModule.h"

namespace {

/// The module with the model Logon, and what /status shows of it.
class ModuleStatusTest : public testing::Test, protected StartedModule {
protected:
    ModuleStatusTest() : model_(Add({.name = "Logon"})) { BeginModuleStatus(); }
    ~ModuleStatusTest() override { EndModuleStatus(); }
    ModuleStatusTest(const ModuleStatusTest&) = delete;
    ModuleStatusTest& operator=(const ModuleStatusTest&) = delete;

    void Insert(const std::string& dates) const {
        Change(
            "INSERT INTO Event_Logon (E_Date, E_DeviceId, E_GroupId) SELECT value, 0, 0 FROM json_each('[" +
            dates + "]')");
    }
    static std::string Show() {
        LumContainer status;
        LumStatusCollect(status);
        LumContainer shown;
        static_cast<void>(status.GetContainer("models", shown, 0));
        return shown.ToJson();
    }
    static int32_t CountEvents() {
        LumContainer status;
        LumStatusCollect(status);
        LumContainer shown;
        int32_t events = -1;
        static_cast<void>(status.GetContainer("models", shown, 0) && shown.GetInt32("events", events));
        return events;
    }

    const std::shared_ptr<Model_t> model_;
};

TEST_F(ModuleStatusTest, ShowsHowManyEventsAndFromWhenToWhen) {
    EXPECT_EQ(Show(), R"({"name":"Logon","enabled":true,"events":0})");
    Insert("50, 70, 60");
    EXPECT_EQ(Show(), R"({"name":"Logon","enabled":true,"events":3,"oldest":50,"newest":70})");
}

TEST_F(ModuleStatusTest, CountsWhatIsThereWhereNumbersAreMissing) {
    Insert("50, 60, 70, 80");
    Change("DELETE FROM Event_Logon WHERE E_Id = 2");
    EXPECT_EQ(CountEvents(), 3);
    Insert("90, 100");
    EXPECT_EQ(CountEvents(), 5);
}

TEST_F(ModuleStatusTest, CountsAnewAfterADeletionInTheMiddle) {
    Insert("500, 60, 700");
    EXPECT_EQ(CountEvents(), 3);
    EXPECT_TRUE(DeleteEvents(model_, 0, 100, false));  // the clock had been set back for the second one
    EXPECT_EQ(CountEvents(), 2);
    EXPECT_TRUE(DeleteEvents(model_, 0, 1000, false));
    EXPECT_EQ(CountEvents(), 0);
    Insert("1100");
    EXPECT_EQ(CountEvents(), 1);
}

TEST_F(ModuleStatusTest, LooksAtTheEndsAlone) {
    Insert("50, 60, 70");
    EXPECT_EQ(CountEvents(), 3);
    const uint64_t before = DBReadFigures().statements;
    EXPECT_EQ(CountEvents(), 3);
    EXPECT_EQ(DBReadFigures().statements - before, 1U);
}

TEST_F(ModuleStatusTest, BeginsAnewWithATableOfTheSameName) {
    Insert("50, 60, 70");
    Change("DELETE FROM Event_Logon WHERE E_Id = 2");
    EXPECT_EQ(CountEvents(), 2);
    ASSERT_TRUE(RemoveRegisteredModel("Logon"));
    Add({.name = "Logon"});
    EXPECT_EQ(CountEvents(), 0);
    Insert("50");
    EXPECT_EQ(CountEvents(), 1);
}

TEST_F(ModuleStatusTest, ShowsAModelWithoutEventsWhereItsTableCannotBeRead) {
    Insert("50");
    Change("ALTER TABLE Event_Logon RENAME TO Elsewhere");
    EXPECT_EQ(CountEvents(), 0);
    Change("ALTER TABLE Elsewhere RENAME TO Event_Logon");
    EXPECT_EQ(CountEvents(), 1);
}

}  // namespace
