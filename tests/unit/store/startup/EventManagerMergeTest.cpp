#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/database/Database.h"
#include "store/startup/EventManagerMerge.h"
#include "support/LinkedModule.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kAgentIni = "config/agent.ini";
constexpr const char* kOlderIni = "config/EventManager.ini";
constexpr const char* kOlderData = "data/EventManager";
/// Where the library is looked for: right after the name of the data directory.
constexpr const char* kOlderLibrary = "data/EventManager../modules/agent/EventManager.dll";

/// A machine that the older module still runs on, and a database of version 6.2.0.0.
class EventManagerMerge : public testing::Test, protected LinkedModule {
protected:
    EventManagerMerge() {
        Initialise();
        Change("DELETE FROM DatabaseInformation WHERE FieldName = 'EventManagerMerge'");
        Change("UPDATE DatabaseInformation SET FieldValue = 6 WHERE FieldName = 'DatabaseVersionMajor'");
        Change("UPDATE DatabaseInformation SET FieldValue = 2 WHERE FieldName = 'DatabaseVersionMinor'");
        Directory().Write(kAgentIni, "[Modules]\nEventManager = EventManager.so\nOther = Other.so\n");
        Directory().Write(kOlderIni, "[EventManager]\n");
        Directory().Write(std::string(kOlderData) + "/deep/down/events", "x");
        Directory().Write(kOlderLibrary, "x");
        Log().Forget();
    }

    [[nodiscard]] std::string Flag() const {
        return Rows("SELECT FieldValue FROM DatabaseInformation WHERE FieldName = 'EventManagerMerge'");
    }
    [[nodiscard]] std::string Version() const {
        return Rows(
            "SELECT group_concat(FieldValue, '.') FROM (SELECT FieldValue FROM DatabaseInformation WHERE "
            "FieldName LIKE 'Database%' ORDER BY CASE FieldName WHEN 'DatabaseVersionMajor' THEN 1 WHEN "
            "'DatabaseVersionMinor' THEN 2 WHEN 'DatabaseRevision' THEN 3 ELSE 4 END)");
    }
    [[nodiscard]] bool Has(const char* path) const { return Directory().Has(path); }
    /// Puts a directory with something in it in the place of a file.
    void Obstruct(const char* path) const {
        std::filesystem::remove_all(Directory().Path() / path);
        Directory().Write(std::string(path) + "/in the way", "x");
    }
};

TEST_F(EventManagerMerge, RetiresTheOlderModuleAndRecordsIt) {
    Upgrade1000();
    EXPECT_EQ(Directory().Read(kAgentIni), "[Modules]\nOther = Other.so\n");
    EXPECT_FALSE(Has(kOlderIni));
    EXPECT_FALSE(Has(kOlderData));
    EXPECT_FALSE(Has(kOlderLibrary));
    EXPECT_EQ(Flag(), "1");
    EXPECT_EQ(Version(), "10.0.0.0");
    EXPECT_THAT(Said(), IsEmpty());
}

TEST_F(EventManagerMerge, IsDoneWhereThereIsNoOlderModule) {
    for (const char* const path : {kAgentIni, kOlderIni, kOlderData, "data/EventManager.."}) {
        std::filesystem::remove_all(Directory().Path() / path);
    }
    Upgrade1000();
    EXPECT_EQ(Flag(), "1");
    EXPECT_EQ(Version(), "10.0.0.0");
    EXPECT_FALSE(Has(kAgentIni));
}

TEST_F(EventManagerMerge, UpdatesAFlagThatSaysOtherwise) {
    for (const char* const value : {"0", "", "2", " 1", "11", "yes"}) {
        Change("DELETE FROM DatabaseInformation WHERE FieldName = 'EventManagerMerge'");
        Change("INSERT INTO DatabaseInformation VALUES ('EventManagerMerge', '" + std::string(value) + "')");
        Directory().Write(kOlderIni, "x");
        Upgrade1000();
        EXPECT_EQ(Flag(), "1") << value;
        EXPECT_FALSE(Has(kOlderIni)) << value;
    }
}

TEST_F(EventManagerMerge, HappensOnce) {
    Change("INSERT INTO DatabaseInformation VALUES ('EventManagerMerge', '1')");
    Upgrade1000();
    EXPECT_TRUE(Has(kOlderIni));
    EXPECT_TRUE(Has(kOlderData));
    EXPECT_EQ(Directory().Read(kAgentIni), "[Modules]\nEventManager = EventManager.so\nOther = Other.so\n");
    EXPECT_EQ(Version(), "6.2.0.0");
}

TEST_F(EventManagerMerge, IsRecordedByTheFirstRowOfTheFlag) {
    Change("DROP TABLE DatabaseInformation");
    Change("CREATE TABLE DatabaseInformation (FieldName, FieldValue)");
    Change("INSERT INTO DatabaseInformation VALUES ('EventManagerMerge', 1), ('EventManagerMerge', '0')");
    Upgrade1000();
    EXPECT_TRUE(Has(kOlderIni));
}

TEST_F(EventManagerMerge, StopsWhereTheFlagCannotBeRead) {
    Change("DROP TABLE DatabaseInformation");
    Upgrade1000();
    EXPECT_TRUE(Has(kOlderIni));
    EXPECT_TRUE(Has(kOlderData));
    EXPECT_THAT(Said(), ElementsAre("error DBConnection: no such table: DatabaseInformation in statement: "
                                    "SELECT FieldValue FROM DatabaseInformation WHERE "
                                    "FieldName=?"));
}

TEST_F(EventManagerMerge, StopsAtTheIniFileAndTriesAgain) {
    Obstruct(kOlderIni);
    Upgrade1000();
    EXPECT_EQ(Directory().Read(kAgentIni), "[Modules]\nOther = Other.so\n");
    EXPECT_TRUE(Has(kOlderData));
    EXPECT_EQ(Flag(), "");
    EXPECT_EQ(Version(), "6.2.0.0");
    EXPECT_THAT(Said(), IsEmpty());

    std::filesystem::remove_all(Directory().Path() / kOlderIni);
    Upgrade1000();
    EXPECT_FALSE(Has(kOlderData));
    EXPECT_EQ(Flag(), "1");
}

TEST_F(EventManagerMerge, GoesOnWhereItsEntryStaysInTheAgentsIni) {
    Obstruct(kAgentIni);
    Upgrade1000();
    EXPECT_FALSE(Has(kOlderIni));
    EXPECT_FALSE(Has(kOlderData));
    EXPECT_EQ(Flag(), "1");
    EXPECT_EQ(Version(), "10.0.0.0");
}

TEST_F(EventManagerMerge, StopsAtTheDataDirectory) {
    std::filesystem::remove_all(Directory().Path() / kOlderData);
    Directory().Write(kOlderData, "no directory");
    Upgrade1000();
    EXPECT_FALSE(Has(kOlderIni));
    EXPECT_TRUE(Has(kOlderLibrary));
    EXPECT_EQ(Flag(), "");
    EXPECT_EQ(Version(), "6.2.0.0");
}

TEST_F(EventManagerMerge, StopsAtTheLibrary) {
    Obstruct(kOlderLibrary);
    Upgrade1000();
    EXPECT_FALSE(Has(kOlderData));
    EXPECT_EQ(Flag(), "");
    EXPECT_EQ(Version(), "6.2.0.0");
}

TEST_F(EventManagerMerge, SaysThatTheLockCannotBeHadAndGoesOn) {
    const DatabaseLockout lockout;
    Upgrade1000();
    EXPECT_THAT(Said(), ElementsAre("error Upgrade1000: Failed to lock database"));
    EXPECT_EQ(Flag(), "1");
    EXPECT_EQ(Version(), "10.0.0.0");
}

TEST_F(EventManagerMerge, WritesTheVersionAllOrNothing) {
    Change(
        "CREATE TRIGGER Refuse BEFORE UPDATE ON DatabaseInformation WHEN OLD.FieldName = 'DatabaseRevision' "
        "BEGIN SELECT RAISE(ABORT, 'refused'); END");
    Upgrade1000();
    EXPECT_THAT(Said(),
                ElementsAre("error DBConnection: refused in statement: UPDATE DatabaseInformation SET "
                            "FieldValue=? WHERE FieldName=?",
                            "warning Upgrade1000: Failed finish upgrade."));
    EXPECT_EQ(Flag(), "1");
    EXPECT_EQ(Version(), "6.2.0.0");
}

TEST_F(EventManagerMerge, WritesTheVersionEvenWithoutTheFlag) {
    Change(
        "CREATE TRIGGER Refuse BEFORE INSERT ON DatabaseInformation BEGIN SELECT RAISE(ABORT, 'refused'); "
        "END");
    Upgrade1000();
    EXPECT_EQ(Flag(), "");
    EXPECT_EQ(Version(), "10.0.0.0");
}

}  // namespace
