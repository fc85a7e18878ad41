#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/thread/LumMutex.h"
#include "model/ModelElement.h"
#include "store/DatabaseScope.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"
#include "support/LinkedModule.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace fs = std::filesystem;

class ModelRegistry : public testing::Test, protected LinkedModule {
protected:
    /// Starts the module on an empty models directory.
    void Start() {
        Initialise();
        Log().Forget();
    }
    /// Drops and takes in the model "Logon" and answers it.
    std::shared_ptr<Model_t> StartWithLogon() {
        Drop("logon.xml", Definition(kLogon));
        Start();
        std::shared_ptr<Model_t> model;
        EXPECT_TRUE(ModelCollection.Get("Logon", model));
        return model;
    }
    /// Forgets the models in memory, as a restart does.
    static void Forget() {
        std::shared_ptr<Model_t> model;
        while (ModelCollection.GetAt(0, model)) {
            ModelCollection.Remove(model);
        }
    }
    [[nodiscard]] fs::path Models() const { return Directory().Path() / kModels; }
    [[nodiscard]] static std::string Filed(const Model_t& model) {
        return std::string(FiledDirectory(model.GetName(), model.GetChecksum()).View());
    }
};

TEST_F(ModelRegistry, RegistersADroppedModelWhole) {
    const auto model = StartWithLogon();
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(Rows("SELECT RM_ModelName, RM_Checksum, RM_Enabled, RM_LastAggregationTimestamp, "
                   "RM_LastUploadTimestamp FROM RegisteredModel"),
              "Logon|" + std::string(model->GetChecksum().View()) + "|1|0|0");
    EXPECT_EQ(Rows("SELECT name, type FROM pragma_table_info('Event_Logon')"),
              "E_Id|INTEGER\nE_Date|TIMESTAMP\nE_GMT_Offset|INTEGER\nE_DeviceId|INTEGER\nE_GroupId|INTEGER\n"
              "C_Count|INTEGER\nC_User|TEXT");
    EXPECT_EQ(
        Rows("SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = 'Event_Logon' ORDER BY 1"),
        "Ix_Event_Logon_Date\nIx_Event_Logon_DeviceID\nIx_Event_Logon_GroupID");
    EXPECT_EQ(
        LogReader(Directory() / "log")
            .Count("print EventLogManager RegisterModel: Model 'Logon' has been registered with success"),
        1U);
    EXPECT_FALSE(fs::exists(Models() / "logon.xml"));
    EXPECT_TRUE(fs::exists(Filed(*model) + "/logon.xml"));
}

TEST_F(ModelRegistry, DeclaresAColumnOfAnUnknownTypeWithoutOne) {
    Start();
    const auto model = std::make_shared<Model_t>("Odd", "", "", "", "", ModelType::kUser, Policy::kUnknown,
                                                 Policy::kNever, Policy::kNever);
    ASSERT_TRUE(model->GetParams().Add(
        std::make_shared<ModelParam_t>("A", "", static_cast<ParamType>(9), AggregationOperation::kNone, "")));
    EXPECT_TRUE(RegisterModel(model));
    EXPECT_EQ(Rows("SELECT type FROM pragma_table_info('Event_Odd') WHERE name = 'C_A'"), "");
    EXPECT_EQ(Rows("SELECT count(*) FROM pragma_table_info('Event_Odd')"), "6");
}

TEST_F(ModelRegistry, LoadsRegisteredModelsWithTheirStateAfterARestart) {
    StartWithLogon();
    Change(
        "UPDATE RegisteredModel SET RM_Enabled = 0, RM_LastAggregationTimestamp = 11, "
        "RM_LastUploadTimestamp = 22");
    Forget();
    EXPECT_TRUE(LoadRegisteredModels());
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("Logon", model));
    EXPECT_FALSE(model->IsEnabled());
    EXPECT_EQ(model->GetLastAggregationTime(), 11U);
    EXPECT_EQ(model->GetLastUploadTime(), 22U);
}

TEST_F(ModelRegistry, SaysWhichFiledDirectoryIsMissing) {
    const auto model = StartWithLogon();
    fs::remove_all(Filed(*model));
    Forget();
    EXPECT_TRUE(LoadRegisteredModels());
    EXPECT_THAT(Said(),
                ElementsAre("error LoadRegisteredModel: Failed to load model 'Logon' (missing directory '" +
                            Filed(*model) + "')"));
    EXPECT_EQ(ModelCollection.GetCount(), 0U);
    EXPECT_EQ(Rows("SELECT count(*) FROM RegisteredModel"), "1");
}

TEST_F(ModelRegistry, WarnsOfEachUnexpectedFile) {
    const auto model = StartWithLogon();
    fs::rename(Filed(*model) + "/logon.xml", Filed(*model) + "/logon.txt");
    std::ofstream(Filed(*model) + "/broken.xml") << "<MODEL/>";
    Forget();
    EXPECT_TRUE(LoadRegisteredModels());
    const std::string warning =
        "warning LoadRegisteredModel: While trying to load model 'Logon', unexpected file '";
    EXPECT_THAT(Said(), testing::UnorderedElementsAre(warning + "logon.txt'", warning + "broken.xml'",
                                                      "warning LoadModel: While parsing '" + Filed(*model) +
                                                          "/broken.xml', failed to get model name"));
    EXPECT_EQ(ModelCollection.GetCount(), 0U);
}

TEST_F(ModelRegistry, DoesNotFollowAStoredRowOutOfTheModelsDirectory) {
    StartWithLogon();
    Forget();
    Change("UPDATE RegisteredModel SET RM_ModelName = '../..'");
    EXPECT_TRUE(LoadRegisteredModels());
    EXPECT_THAT(Said(), ElementsAre(HasSubstr("error LoadRegisteredModel: Failed to load model '../..' ")));
}

TEST_F(ModelRegistry, FailsToLoadWithoutTheTable) {
    Start();
    Change("DROP TABLE RegisteredModel");
    EXPECT_FALSE(LoadRegisteredModels());
    EXPECT_THAT(Said(), Contains("error LoadRegisteredModels: Failed to load registered models"));
}

TEST_F(ModelRegistry, TakesAnEqualDefinitionForAnUpdate) {
    const auto old = StartWithLogon();
    old->SetEnabled(false);
    old->SetLastUploadTime(7);
    Drop("again.xml", Definition(kLogon));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(
        Said(),
        ElementsAre("print LoadModel: Model 'Logon' has been loaded with success",
                    "warning LoadUnregisteredModels: Model 'Logon' is known and replaced by its "
                    "dropped definition: it becomes enabled, and all of its events are uploaded again",
                    "print LoadUnregisteredModels: Model 'Logon' has been updated"));
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("Logon", model));
    EXPECT_TRUE(model->IsEnabled());
    EXPECT_EQ(model->GetLastUploadTime(), 0U);
    EXPECT_TRUE(fs::exists(Filed(*model) + "/again.xml"));
    EXPECT_FALSE(fs::exists(Models() / "again.xml"));
}

TEST_F(ModelRegistry, RefusesAnotherDefinitionOfARegisteredModel) {
    StartWithLogon();
    Drop("other.xml", Definition({.name = "Logon", .params = {{"User"}}}));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(
        Said(),
        Contains("error LoadUnregisteredModels: Model 'Logon' already exist with different checksum"));
    EXPECT_TRUE(fs::exists(Models() / "other.xml"));
}

TEST_F(ModelRegistry, LeavesAModelWhoseTableIsThereAlready) {
    Start();
    Change("CREATE TABLE Event_Logon (a)");
    Drop("logon.xml", Definition(kLogon));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(Said(), Contains("error RegisterModel: Failed to register model 'Logon'"));
    EXPECT_TRUE(fs::exists(Models() / "logon.xml"));
    EXPECT_EQ(Rows("SELECT count(*) FROM RegisteredModel"), "0");
    EXPECT_EQ(ModelCollection.GetCount(), 0U);
}

TEST_F(ModelRegistry, RegistersNothingWhereALaterStatementFails) {
    Start();
    Change("CREATE TABLE Other (a); CREATE INDEX Ix_Event_Logon_GroupID ON Other (a)");
    Drop("logon.xml", Definition(kLogon));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_EQ(Rows("SELECT count(*) FROM sqlite_master WHERE name = 'Event_Logon'"), "0");
    EXPECT_EQ(Rows("SELECT count(*) FROM RegisteredModel"), "0");
}

TEST_F(ModelRegistry, RefusesNamesThatAreNoSqlNames) {
    Start();
    const std::vector<std::string> names = {
        "../x", "a b", "a;b", "x (a); DROP TABLE Scheduler; --", "a'b", "a.b", std::string(256, 'a')};
    for (const std::string& name : names) {
        Drop("odd.xml", Definition({.name = name, .params = {{"A"}}}));
        Log().Forget();
        EXPECT_TRUE(LoadUnregisteredModels());
        EXPECT_THAT(Said(), ElementsAre("print LoadModel: Model '" + name + "' has been loaded with success",
                                        "error RegisterModel: Model name '" + name + "' is not a table name",
                                        "error RegisterModel: Failed to register model '" + name + "'"));
    }
    EXPECT_EQ(Rows("SELECT count(*) FROM RegisteredModel"), "0");
    EXPECT_EQ(Rows("SELECT count(*) FROM Scheduler"), "1");
    EXPECT_EQ(std::distance(fs::directory_iterator(Models()), {}), 1);
    EXPECT_FALSE(fs::exists(Models() / "../x"));
}

TEST_F(ModelRegistry, RefusesParameterNamesThatAreNoSqlNames) {
    Start();
    Drop("odd.xml", Definition({.name = "Odd", .params = {{"A TEXT, C_B"}}}));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(
        Said(),
        Contains("error RegisterModel: Parameter name 'A TEXT, C_B' of model 'Odd' is not a column name"));
    EXPECT_EQ(ModelCollection.GetCount(), 0U);
}

TEST_F(ModelRegistry, PassesOverWhatIsNoDefinition) {
    Start();
    Drop("notes.txt", "text");
    Directory().MakeDirectory(std::string(kModels) + "/directory");
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(Said(), IsEmpty());
}

TEST_F(ModelRegistry, WarnsOfADefinitionThatIsNoRegularFile) {
    Start();
    Directory().MakeDirectory(std::string(kModels) + "/directory.xml");
    ASSERT_EQ(mkfifo((Models() / "pipe.xml").c_str(), 0600), 0);
    Drop("good.xml", Definition(kLogon));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(Said(), Contains("warning LoadUnregisteredModels: '" + (Models() / "directory.xml").string() +
                                 "' is not a regular file"));
    EXPECT_THAT(Said(), Contains("warning LoadUnregisteredModels: '" + (Models() / "pipe.xml").string() +
                                 "' is not a regular file"));
    EXPECT_TRUE(ModelCollection.Contains("Logon"));
    Log().Forget();
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(Said(), IsEmpty()) << "it was said";
}

TEST_F(ModelRegistry, FailsWithoutTheModelsDirectory) {
    Start();
    fs::remove_all(Models());
    EXPECT_FALSE(LoadUnregisteredModels());
    EXPECT_THAT(
        Said(),
        ElementsAre("error LoadUnregisteredModels: Failed to load models, (failed to open directory '" +
                    Models().string() + "/')"));
}

TEST_F(ModelRegistry, SaysThatADefinitionCouldNotBeFiled) {
    Start();
    Directory().Write(std::string(kModels) + "/Logon", "in the way");
    Drop("logon.xml", Definition(kLogon));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(Said(),
                Contains("error LoadUnregisteredModels: Failed to copy new definition for model 'Logon'"));
    EXPECT_TRUE(fs::exists(Models() / "logon.xml"));
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
    EXPECT_EQ(Rows("SELECT count(*) FROM RegisteredModel"), "1");
}

/// Everybody may list a directory and go into it. The group counts as well: only the user is changed below.
constexpr fs::perms kLookInto =
    fs::perms::group_read | fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec;

/// While it lives, the process has no rights on files but those that everybody has.
class Nobody {
public:
    /// Lets everybody go down to the models.
    explicit Nobody(const fs::path& scratch) {
        for (const char* const level : {".", "data", "data/EventLogManager", TestAgent::kModels}) {
            fs::permissions(scratch / level, kLookInto, fs::perm_options::add);
        }
        EXPECT_EQ(seteuid(kNobody), geteuid() == 0 ? 0 : -1);
    }
    Nobody(const Nobody&) = delete;
    Nobody& operator=(const Nobody&) = delete;
    ~Nobody() { EXPECT_EQ(seteuid(getuid()), 0); }

private:
    static constexpr uid_t kNobody = 65534;
};

TEST_F(ModelRegistry, WarnsOfADroppedFileThatStays) {
    const auto model = StartWithLogon();
    fs::permissions(Filed(*model), fs::perms::all);
    fs::permissions(Models() / "Logon", fs::perms::all);
    Drop("again.xml", Definition(kLogon));
    fs::permissions(Models(), fs::perms::owner_read | fs::perms::owner_exec | kLookInto);
    {
        const Nobody nobody(Directory().Path());
        EXPECT_TRUE(LoadUnregisteredModels());
    }
    fs::permissions(Models(), fs::perms::owner_all);
    EXPECT_THAT(Said(), ElementsAre("print LoadModel: Model 'Logon' has been loaded with success",
                                    "warning LoadUnregisteredModels: Failed to delete file '" +
                                        (Models() / "again.xml").string() + "'",
                                    "print LoadUnregisteredModels: Model 'Logon' has been updated"));
    EXPECT_TRUE(fs::exists(Filed(*model) + "/again.xml"));
    EXPECT_TRUE(ModelCollection.Contains("Logon"));
}

TEST_F(ModelRegistry, SaysWhichFiledDirectoryCannotBeOpened) {
    const auto model = StartWithLogon();
    fs::permissions(Models() / "Logon", fs::perms::owner_all | kLookInto);
    fs::permissions(Filed(*model), fs::perms::none);
    std::shared_ptr<Model_t> loaded;
    {
        const Nobody nobody(Directory().Path());
        EXPECT_FALSE(LoadRegisteredModel("Logon", model->GetChecksum(), loaded));
    }
    fs::permissions(Filed(*model), fs::perms::owner_all);
    EXPECT_THAT(
        Said(),
        ElementsAre("error LoadRegisteredModel: Failed to load model 'Logon' (failed to open directory '" +
                    Filed(*model) + "')"));
}

TEST_F(ModelRegistry, LeavesFilesThatAreNoDefinitionsToTheHostsLine) {
    Start();
    Drop("huge.xml", std::string((std::size_t{4} << 20U) + 1, ' '));
    Drop("latin.xml", Definition({.name = "Gr\xf6\xdf", .params = {{"A"}}}));
    Drop("entity.xml", "<!DOCTYPE MODEL [<!ENTITY a SYSTEM \"/etc/hostname\">]>" +
                           Definition({.name = "&a;", .params = {{"A"}}}));
    Drop("good.xml", Definition(kLogon));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(Said(), ElementsAre("print LoadModel: Model 'Logon' has been loaded with success",
                                    "print RegisterModel: Model 'Logon' has been registered with success"));
    for (const char* const name : {"huge.xml", "latin.xml", "entity.xml"}) {
        EXPECT_TRUE(fs::exists(Models() / name)) << name;
        EXPECT_EQ(HostLog().Count("warning MarkupTree::ParseFile: " + (Models() / name).string() + ": "), 1U)
            << name;
    }
    EXPECT_EQ(ModelCollection.GetCount(), 1U);
}

TEST_F(ModelRegistry, KeepsARemovedModelAliveForItsUsers) {
    const std::shared_ptr<Model_t> used = StartWithLogon();
    EXPECT_TRUE(RemoveRegisteredModel(used->GetName()));
    EXPECT_EQ(used->GetName(), "Logon");
    EXPECT_EQ(used->GetParams().GetCount(), 2U);
    EXPECT_EQ(used.use_count(), 1);
}

TEST_F(ModelRegistry, TakesTheFirstOfTwoRowsOfOneName) {
    const auto model = StartWithLogon();
    Change(
        "ALTER TABLE RegisteredModel RENAME TO Old; CREATE TABLE RegisteredModel AS "
        "SELECT * FROM Old UNION ALL SELECT RM_ModelName, RM_Checksum, 0, 5, 6 FROM Old");
    Forget();
    EXPECT_TRUE(LoadRegisteredModels());
    std::shared_ptr<Model_t> loaded;
    ASSERT_TRUE(ModelCollection.Get("Logon", loaded));
    EXPECT_TRUE(loaded->IsEnabled());
    EXPECT_EQ(ModelCollection.GetCount(), 1U);
}

TEST_F(ModelRegistry, RemovesAModelFromDatabaseDiskAndMemory) {
    StartWithLogon();
    EXPECT_TRUE(RemoveRegisteredModel("Logon"));
    EXPECT_THAT(Said(),
                ElementsAre("print UnregisterModel: Model 'Logon' has been unregistered with success",
                            "print RemoveRegisteredModel: Model 'Logon' has been removed with success"));
    EXPECT_EQ(Rows("SELECT count(*) FROM sqlite_master WHERE name LIKE '%Logon%'"), "0");
    EXPECT_EQ(Rows("SELECT count(*) FROM RegisteredModel"), "0");
    EXPECT_FALSE(fs::exists(Models() / "Logon"));
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
}

TEST_F(ModelRegistry, RemovesAModelWhileTheLockIsHeld) {
    StartWithLogon();
    const LumMutexLock lock(DatabaseMutex);
    EXPECT_TRUE(RemoveRegisteredModel("Logon"));
}

TEST_F(ModelRegistry, StaysInStepWhereAModelIsRemovedWhileItsFileIsTakenIn) {
    StartWithLogon();
    for (int round = 0; round < 100; ++round) {
        Drop("logon.xml", Definition(kLogon));
        std::thread remover([] { RemoveRegisteredModel("Logon"); });
        LoadUnregisteredModels();
        remover.join();
        std::shared_ptr<Model_t> model;
        const char* const expected = ModelCollection.Get("Logon", model) ? "1" : "0";
        ASSERT_EQ(Rows("SELECT COUNT(*) FROM sqlite_master WHERE name = 'Event_Logon'"), expected);
        ASSERT_EQ(Rows("SELECT COUNT(*) FROM RegisteredModel"), expected);
    }
}

TEST_F(ModelRegistry, KeepsTheRowWhereTheTableCannotBeDropped) {
    StartWithLogon();
    Change("DROP TABLE Event_Logon");
    EXPECT_FALSE(RemoveRegisteredModel("Logon"));
    EXPECT_THAT(Said(), ElementsAre(StartsWith("error DBConnection: no such table: Event_Logon"),
                                    "error UnregisterModel: Failed to unregister model 'Logon'"));
    EXPECT_EQ(Rows("SELECT count(*) FROM RegisteredModel"), "1");
    EXPECT_TRUE(ModelCollection.Contains("Logon"));
}

TEST_F(ModelRegistry, SaysThatThereIsNoSuchModelToRemove) {
    Start();
    EXPECT_FALSE(RemoveRegisteredModel("Logon"));
    EXPECT_THAT(Said(), ElementsAre("error RemoveRegisteredModel: Failed to get model 'Logon'"));
}

TEST_F(ModelRegistry, RefusesNull) {
    EXPECT_FALSE(RegisterModel(nullptr));
    EXPECT_FALSE(UnregisterModel(nullptr));
}

TEST_F(ModelRegistry, SaysThatTheLockCannotBeHad) {
    const auto model = StartWithLogon();
    const DatabaseLockout lockout;
    EXPECT_FALSE(LoadRegisteredModels());
    EXPECT_FALSE(RegisterModel(model));
    EXPECT_FALSE(UnregisterModel(model));
    EXPECT_THAT(Said(), ElementsAre("error LoadRegisteredModels: Failed to lock database",
                                    "error RegisterModel: Failed to lock database",
                                    "error UnregisterModel: Failed to lock database"));
}

TEST(Paths, AddsNoSeparatorToADirectoryThatLacksOne) {
    const ModulePaths paths = BuildModulePaths("/etc/config", "/var/data");
    EXPECT_EQ(paths.iniFile, "/etc/configEventLogManager.ini");
    EXPECT_EQ(paths.dataDirectory, "/var/dataEventLogManager");
    EXPECT_EQ(paths.database, "/var/dataEventLogManager/EventLogManager.sqlite3");
    EXPECT_EQ(paths.modelsDirectory, "/var/dataEventLogManager/models/");
}

TEST(Paths, KnowsWhatIsOneNameOfADirectory) {
    for (const char* name : {"Logon", "a..b", "..."}) {
        EXPECT_TRUE(IsPathComponent(name)) << name;
    }
    for (const char* name : {"", ".", "..", "a/b", "/"}) {
        EXPECT_FALSE(IsPathComponent(name)) << name;
    }
    EXPECT_FALSE(IsPathComponent(LumString(std::string_view("a\0b", 3))));
}

TEST_F(ModelRegistry, GivesAModelThatHasLostItsDefinitionTheDroppedOne) {
    const auto model = StartWithLogon();
    Change("UPDATE RegisteredModel SET RM_Enabled = 0, RM_LastUploadTimestamp = 22");
    fs::remove_all(Models() / "Logon");
    Forget();
    EXPECT_TRUE(LoadRegisteredModels());
    Drop("other.xml", Definition({.name = "Logon", .params = {{"Other"}}}));
    Drop("logon.xml", Definition(kLogon));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(Said(), Contains("print LoadUnregisteredModels: Model 'Logon' was registered without a "
                                 "definition and has it again"));
    std::shared_ptr<Model_t> restored;
    ASSERT_TRUE(ModelCollection.Get("Logon", restored));
    EXPECT_EQ(restored->GetChecksum(), model->GetChecksum());
    EXPECT_FALSE(restored->IsEnabled());
    EXPECT_EQ(restored->GetLastUploadTime(), 22);
    EXPECT_TRUE(fs::exists(Filed(*model) + "/logon.xml"));
    EXPECT_TRUE(fs::exists(Models() / "other.xml"));
}

TEST_F(ModelRegistry, FilesTheNextTimeWhatItCouldNotFile) {
    Start();
    Directory().Write(std::string(kModels) + "/Logon", "in the way");
    Drop("logon.xml", Definition(kLogon));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
    fs::remove(Models() / "Logon");
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_TRUE(ModelCollection.Contains("Logon"));
    EXPECT_FALSE(fs::exists(Models() / "logon.xml"));
    EXPECT_EQ(Create("Logon", R"({"User":"ann"})"), 0U);
}

TEST_F(ModelRegistry, RefusesParametersNamedAsTheKeysOfAnswersAndFiles) {
    Start();
    for (const char* const key :
         {"EventDate", "EventGMTOffset", "EventDeviceId", "EventGroupId", "EventCount", "ModelDef"}) {
        Drop("keys.xml", Definition({.name = "Keys", .params = {{.name = key}}}));
        EXPECT_TRUE(LoadUnregisteredModels());
        EXPECT_THAT(Said(), Contains(std::string("error RegisterModel: Parameter name '") + key +
                                     "' of model 'Keys' is a fixed key of answers and files"));
    }
    EXPECT_EQ(ModelCollection.GetCount(), 0U);
}

TEST_F(ModelRegistry, RefusesModelsNamedAsTheTablesOfUpgrades) {
    Start();
    for (const char* const name : {"Temp", "ProhibitedAppTemp", "monitoredapptemp"}) {
        Drop("temp.xml", Definition({.name = name, .params = {{"A"}}}));
        EXPECT_TRUE(LoadUnregisteredModels());
        EXPECT_THAT(Said(), Contains(std::string("error RegisterModel: Model name '") + name +
                                     "' is that of a table which upgrades use"));
    }
    Drop("temp.xml", Definition({.name = "Plain", .params = {{"A"}}}));
    EXPECT_TRUE(LoadUnregisteredModels());
    Drop("temp.xml", Definition({.name = "PLAINtemp", .params = {{"A"}}}));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_THAT(Said(), Contains("error RegisterModel: Model name 'PLAINtemp' and that of model 'Plain' "
                                 "differ by the 'Temp' that upgrades append"));
    Drop("temp.xml", Definition({.name = "OtherTemp", .params = {{"A"}}}));
    EXPECT_TRUE(LoadUnregisteredModels());
    Drop("temp.xml", Definition({.name = "Other", .params = {{"A"}}}));
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_EQ(Rows("SELECT RM_ModelName FROM RegisteredModel ORDER BY 1"), "OtherTemp\nPlain");
}

TEST_F(ModelRegistry, HasAKnownModelAtEachMomentWhileItIsReplaced) {
    StartWithLogon();
    std::atomic<bool> ended = false;
    std::atomic<uint64_t> missing = 0;
    std::thread looker([&] {
        while (!ended) {
            missing += ModelCollection.Contains("Logon") ? 0 : 1;
        }
    });
    for (int i = 0; i < 50; ++i) {
        Drop("again.xml", Definition(kLogon));
        EXPECT_TRUE(LoadUnregisteredModels());
    }
    ended = true;
    looker.join();
    EXPECT_EQ(missing, 0U);
}

TEST_F(ModelRegistry, LeavesTheDatabaseFreeWhileFilesAreHandled) {
    StartWithLogon();
    const LumMutexLock registry(RegistryMutex);
    // Somebody takes in or removes a model for as long as that lasts; events go on.
    uint32_t status = 1;
    std::thread creator([&status] { status = Create("Logon", R"({"User":"ann"})"); });
    creator.join();
    EXPECT_EQ(status, 0U);
}

}  // namespace
