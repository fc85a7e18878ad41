#include <csignal>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "events/EventUpload.h"
#include "events/UploadBacklog.h"
#include "events/UploadFiles.h"
#include "support/ModuleHarness.h"
#include "support/ResourceLimit.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kJournal = "data/EventLogManager/uploads/Logon";

/// A file store that takes as many files as it is told to, and refuses the others.
class LimitedStore {
public:
    explicit LimitedStore(uint32_t takes) {
        Left() = takes;
        Taken().clear();
        ActionDbRegisterAction(kFileStoreSignature, Receive, &handle_);
    }
    LimitedStore(const LimitedStore&) = delete;
    LimitedStore& operator=(const LimitedStore&) = delete;
    ~LimitedStore() { ActionDbUnregisterModule(&handle_); }

    static uint32_t& Left() {
        static uint32_t left = 0;
        return left;
    }
    /// What was taken, as the bytes of each file.
    static std::vector<std::string>& Taken() {
        static std::vector<std::string> taken;
        return taken;
    }
    /// The dates of all events that were taken, and how often each.
    static std::map<int32_t, int> Dates() {
        std::map<int32_t, int> dates;
        for (const std::string& bytes : Taken()) {
            LumContainer file;
            LumString error;
            EXPECT_TRUE(file.FromCbor(bytes, error)) << error.GetString();
            int32_t date = 0;
            for (uint32_t i = 0; file.GetInt32("EventDate", date, i); ++i) {
                ++dates[date];
            }
        }
        return dates;
    }

private:
    static uint32_t Receive(LumContainer* container) {
        LumString path;
        if (Left() == 0 || !container->GetString(kFileStoreMovePath, path)) {
            return 1;
        }
        --Left();
        Taken().push_back(ReadWholeFile(path.GetString()));
        FileDelete(path, true);
        return 0;
    }

    LumAgentHandle handle_{"Store"};
};

class UploadBacklogTest : public testing::Test {
protected:
    std::shared_ptr<Model_t> AddLogon() {
        return module_.Add({.params = {Param("User", ParamType::kString)}});
    }
    /// Events with the dates `first` to `last`.
    static void Events(int first, int last) {
        ModuleHarness::Sql("WITH RECURSIVE n(i) AS (SELECT " + std::to_string(first) +
                           " UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(last) +
                           ") INSERT INTO Event_Logon (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_User) "
                           "SELECT i, 3600, 0, 0, 'user' || i FROM n");
    }
    static void ExpectEachOnce(int first, int last) {
        const std::map<int32_t, int> dates = LimitedStore::Dates();
        EXPECT_EQ(dates.size(), static_cast<std::size_t>(last - first + 1));
        for (const auto& [date, times] : dates) {
            EXPECT_EQ(times, 1) << date;
        }
    }
    static void Restart() { UploadBacklog.Forget(); }
    [[nodiscard]] bool HasJournal() const { return module_.Directory().Has(kJournal); }
    [[nodiscard]] int64_t Complaints() const {
        return static_cast<int64_t>(
            module_.Log().Count("error UploadEvents: The upload of model 'Logon' is outstanding"));
    }

    ModuleHarness module_;
};

TEST_F(UploadBacklogTest, SendsAfterARestartWhatTheStoreDidNotTake) {
    const auto model = AddLogon();
    Events(1, 750);
    const LimitedStore store(3);
    EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    EXPECT_EQ(LimitedStore::Taken().size(), 3U);
    EXPECT_EQ(model->GetLastUploadTime(), 1000U);
    EXPECT_TRUE(fs::is_empty(GetTempDirectory().GetString()));
    EXPECT_EQ(Complaints(), 1);
    const std::vector<OutstandingUpload> outstanding = UploadBacklog.GetOutstanding();
    ASSERT_EQ(outstanding.size(), 1U);
    EXPECT_TRUE(outstanding[0].model == "Logon");
    EXPECT_EQ(outstanding[0].start, 0);
    EXPECT_EQ(outstanding[0].end, 1000);
    EXPECT_EQ(outstanding[0].handedOver, 300U);
    EXPECT_EQ(outstanding[0].left, 450U);
    EXPECT_STREQ(outstanding[0].reason.GetString(), "the file store did not take a file");

    Restart();
    ResumeUploads();
    EXPECT_EQ(Complaints(), 2);  // one a life of the process
    ResumeUploads();
    EXPECT_EQ(Complaints(), 2);
    LimitedStore::Left() = 100;
    ResumeUploads();
    ExpectEachOnce(1, 750);
    EXPECT_FALSE(HasJournal());
    EXPECT_TRUE(UploadBacklog.GetOutstanding().empty());
    EXPECT_EQ(module_.ModuleLines(
                  "print", "UploadEvents: The upload of model 'Logon' that was outstanding is complete"),
              1);
}

TEST_F(UploadBacklogTest, GoesOnWhereTheJournalIsReadAgainAfterEachFile) {
    const auto model = AddLogon();
    Events(1, 550);
    const LimitedStore store(0);
    EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    for (int i = 0; i < 6; ++i) {
        Restart();
        LimitedStore::Left() = 1;
        ResumeUploads();
    }
    ExpectEachOnce(1, 550);
    EXPECT_EQ(LimitedStore::Taken().size(), 6U);
    EXPECT_FALSE(HasJournal());
}

TEST_F(UploadBacklogTest, KeepsTheBordersOfFilesWhereLateEventsCameIntoTheWindow) {
    const auto model = AddLogon();
    Events(200, 449);
    const LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    Events(1, 60);  // the clock was set back: older than all that is being sent
    Restart();
    LimitedStore::Left() = 10;
    ResumeUploads();
    ExpectEachOnce(200, 449);
    ASSERT_EQ(LimitedStore::Taken().size(), 3U);
}

TEST_F(UploadBacklogTest, SendsTheOlderWindowsFirstAndTheNewOneWithThem) {
    const auto model = AddLogon();
    Events(1, 150);
    const LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(model, 0, 200, false));
    Events(200, 260);
    EXPECT_TRUE(UploadEvents(model, 200, 300, false));
    Events(300, 310);
    EXPECT_TRUE(UploadEvents(model, 300, 400, false));
    EXPECT_EQ(ModuleHarness::StoredTime("RM_LastUploadTimestamp", "Logon"), "400");
    EXPECT_EQ(LimitedStore::Taken().size(), 1U);
    EXPECT_EQ(Complaints(), 1);
    LimitedStore::Left() = 100;
    Events(400, 420);
    EXPECT_TRUE(UploadEvents(model, 400, 500, false));
    const std::map<int32_t, int> dates = LimitedStore::Dates();
    EXPECT_EQ(dates.size(), 150U + 61U + 11U + 21U);
    EXPECT_FALSE(HasJournal());
}

TEST_F(UploadBacklogTest, SendsWhatAMissingTemporaryDirectoryKeptBack) {
    const auto model = AddLogon();
    Events(1, 250);
    const LimitedStore store(100);
    fs::remove_all(GetTempDirectory().GetString());
    {
        const std::string blocking = module_.Directory().Write("data/tmp", "no directory");
        EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
        EXPECT_TRUE(LimitedStore::Taken().empty());
        EXPECT_EQ(ModuleHarness::StoredTime("RM_LastUploadTimestamp", "Logon"), "1000");
        fs::remove(blocking);
    }
    module_.Directory().MakeDirectory("data/tmp");
    ResumeUploads();
    ExpectEachOnce(1, 250);
}

TEST_F(UploadBacklogTest, LeavesNoPartOfAFileOnAFullDiskAndSendsItWhenThereIsRoom) {
    const auto model = AddLogon();
    ModuleHarness::Sql(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100) INSERT INTO "
        "Event_Logon "
        "SELECT NULL, i, 0, 0, 0, printf('%.20000c', 'x') FROM n");
    ModuleHarness::Sql("PRAGMA wal_checkpoint(TRUNCATE)");
    const LimitedStore store(100);
    {
        const ResourceLimit limit(RLIMIT_FSIZE, 1U << 20U);
        EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    }
    EXPECT_TRUE(LimitedStore::Taken().empty());
    EXPECT_TRUE(fs::is_empty(GetTempDirectory().GetString()));
    EXPECT_EQ(ModuleHarness::StoredTime("RM_LastUploadTimestamp", "Logon"), "1000");
    ResumeUploads();
    ExpectEachOnce(1, 100);
}

TEST_F(UploadBacklogTest, LeavesTheMarkWhereNoJournalCanBeWritten) {
    const auto model = AddLogon();
    Events(1, 50);
    const LimitedStore store(100);
    const std::string blocking = module_.Directory().Write("data/EventLogManager/uploads", "no directory");
    EXPECT_FALSE(UploadEvents(model, 0, 1000, false));
    EXPECT_EQ(ModuleHarness::StoredTime("RM_LastUploadTimestamp", "Logon"), "0");
    EXPECT_EQ(Complaints(), 1);
    EXPECT_TRUE(UploadBacklog.IsOpen("Logon"));
    fs::remove(blocking);
    ResumeUploads();
    ExpectEachOnce(1, 50);
    EXPECT_EQ(ModuleHarness::StoredTime("RM_LastUploadTimestamp", "Logon"), "1000");
    EXPECT_FALSE(UploadBacklog.IsOpen("Logon"));
}

TEST_F(UploadBacklogTest, BeginsAgainWhereItWasCutOffBeforeTheMark) {
    const auto model = AddLogon();
    Events(1, 50);
    UploadJournal journal("Logon");
    LumString error;
    ASSERT_TRUE(journal.Append({0, 1000}, error)) << error.GetString();
    const LimitedStore store(100);
    ResumeUploads();
    ExpectEachOnce(1, 50);
    EXPECT_EQ(ModuleHarness::StoredTime("RM_LastUploadTimestamp", "Logon"), "1000");
}

TEST_F(UploadBacklogTest, TriesAWindowAgainInThisLifeAloneWhoseEventsCouldNotBeRead) {
    const auto model = AddLogon();
    Events(1, 50);
    const LimitedStore store(100);
    ModuleHarness::Sql("ALTER TABLE Event_Logon RENAME TO Away");
    EXPECT_FALSE(UploadEvents(model, 0, 1000, false));
    EXPECT_FALSE(HasJournal());
    EXPECT_TRUE(UploadBacklog.IsOpen("Logon"));
    ModuleHarness::Sql("ALTER TABLE Away RENAME TO Event_Logon");
    ResumeUploads();
    ExpectEachOnce(1, 50);
    EXPECT_FALSE(UploadBacklog.IsOpen("Logon"));

    Events(1001, 1050);
    ModuleHarness::Sql("ALTER TABLE Event_Logon RENAME TO Away");
    EXPECT_FALSE(UploadEvents(model, 1000, 2000, false));
    ModuleHarness::Sql("ALTER TABLE Away RENAME TO Event_Logon");
    Restart();
    model->SetLastUploadTime(2000);  // as it was stored
    ResumeUploads();
    ExpectEachOnce(1, 50);
}

TEST_F(UploadBacklogTest, WaitsWhileUploadIsSwitchedOffOrTheModelIsDisabled) {
    const auto model = AddLogon();
    Events(1, 150);
    const LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(model, 0, 200, false));
    LimitedStore::Left() = 100;
    UploadEnabled = false;
    ResumeUploads();
    Events(200, 210);
    EXPECT_TRUE(UploadEvents(model, 200, 300, false));  // passed over for good
    EXPECT_TRUE(HasJournal());
    UploadEnabled = true;
    model->SetEnabled(false);
    ResumeUploads();
    EXPECT_EQ(LimitedStore::Taken().size(), 1U);
    EXPECT_TRUE(UploadBacklog.IsOpen("Logon"));
    model->SetEnabled(true);
    ResumeUploads();
    ExpectEachOnce(1, 150);
}

TEST_F(UploadBacklogTest, GivesUpTheUploadOfAModelThatWasDeleted) {
    const auto model = AddLogon();
    Events(1, 150);
    const LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(model, 0, 200, false));
    ASSERT_TRUE(RemoveRegisteredModel("Logon"));
    Restart();
    ResumeUploads();
    EXPECT_FALSE(HasJournal());
    EXPECT_EQ(module_.ModuleLines(
                  "warning", "UploadEvents: The upload of model 'Logon' is given up, the model was deleted"),
              1);
    EXPECT_TRUE(UploadBacklog.GetOutstanding().empty());
}

TEST_F(UploadBacklogTest, KeepsTheUploadOfAModelThatIsNotLoadedYet) {
    const auto model = AddLogon();
    Events(1, 150);
    const LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(model, 0, 200, false));
    auto taken = model;
    ASSERT_TRUE(ModelCollection.Remove(taken));
    Restart();
    ResumeUploads();
    ModuleHarness::Sql("ALTER TABLE RegisteredModel RENAME TO Away");
    ResumeUploads();
    ModuleHarness::Sql("ALTER TABLE Away RENAME TO RegisteredModel");
    EXPECT_TRUE(HasJournal());
    ASSERT_TRUE(ModelCollection.Add(model));
    LimitedStore::Left() = 100;
    ResumeUploads();
    ExpectEachOnce(1, 150);
}

TEST_F(UploadBacklogTest, ForgetsTheWindowsOfAnEarlierModelOfTheSameName) {
    AddLogon();
    UploadJournal journal("Logon");
    LumString error;
    ASSERT_TRUE(journal.Append({0, 100}, error));
    ASSERT_TRUE(journal.SetExtent({50, 50}, error));
    ASSERT_TRUE(journal.AddHandedOver(40, error));
    Events(1, 50);
    const LimitedStore store(100);
    ResumeUploads();  // of the new model nothing was sent
    ExpectEachOnce(1, 50);
}

TEST_F(UploadBacklogTest, StaysOpenWhereTheJournalCannotBeRead) {
    AddLogon();
    module_.Directory().MakeDirectory(kJournal);
    EXPECT_TRUE(UploadBacklog.IsOpen("Logon"));
    fs::remove(module_.Directory() / kJournal);
    EXPECT_FALSE(UploadBacklog.IsOpen("Logon"));
}

TEST_F(UploadBacklogTest, WaitsForAJournalThatCannotBeRead) {
    const auto model = AddLogon();
    Events(1, 50);
    module_.Directory().MakeDirectory(kJournal);
    const LimitedStore store(100);
    EXPECT_FALSE(UploadEvents(model, 0, 1000, false));
    ResumeUploads();
    EXPECT_EQ(ModuleHarness::StoredTime("RM_LastUploadTimestamp", "Logon"), "0");
    EXPECT_EQ(
        module_.ModuleLines("error",
                            "UploadEvents: The upload of model 'Logon' waits, its journal cannot be read: "
                            "Is a directory"),
        1);
    fs::remove(module_.Directory() / kJournal);
    ResumeUploads();
    ExpectEachOnce(1, 50);
}

TEST_F(UploadBacklogTest, SaysThatAJournalIsDamagedAndSetsItAside) {
    const auto model = AddLogon();
    Events(1, 50);
    module_.Directory().Write(kJournal, "{\"HandedOver\":");
    const LimitedStore store(100);
    EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    ExpectEachOnce(1, 50);
    EXPECT_FALSE(HasJournal());
    EXPECT_EQ(module_.Log().Count("error UploadEvents: The journal of the upload of model 'Logon' is lost: "),
              1U);
}

TEST_F(UploadBacklogTest, SaysOnceThatThereIsNoStoreAndKeepsNoFile) {
    const auto model = AddLogon();
    Events(1, 250);
    EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    for (int i = 0; i < 3; ++i) {
        ResumeUploads();
    }
    EXPECT_EQ(Complaints(), 1);
    EXPECT_EQ(
        module_.Lines("warning Host Action 'FileStoreReceiveFile' invoked, but no module has registered it"),
        1);
    EXPECT_TRUE(fs::is_empty(GetTempDirectory().GetString()));
    const LimitedStore store(100);
    ResumeUploads();
    ExpectEachOnce(1, 250);
}

/// Killed after each file that the store took, before the journal says so: the file comes twice, and is the
/// same.
TEST_F(UploadBacklogTest, SendsTheLastFileTwiceByteForByteAfterAKill) {
    const auto model = AddLogon();
    Events(1, 250);
    const std::string kept = module_.Directory() / "taken";
    const pid_t child = fork();
    if (child == 0) {
        static std::string place;
        place = kept;
        static LumAgentHandle handle{"Store"};
        ActionDbRegisterAction(
            kFileStoreSignature,
            [](LumContainer* container) -> uint32_t {
                static int files = 0;
                LumString path;
                static_cast<void>(container->GetString(kFileStoreMovePath, path));
                fs::copy_file(path.GetString(), place + std::to_string(++files));
                if (files == 2) {
                    kill(getpid(), SIGKILL);
                }
                FileDelete(path, true);
                return 0;
            },
            &handle);
        UploadEvents(model, 0, 1000, false);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    ModuleHarness::Sql("SELECT 1");
    model->SetLastUploadTime(1000);  // as the next start reads it
    const LimitedStore store(100);
    ResumeUploads();
    ASSERT_EQ(LimitedStore::Taken().size(), 2U);
    EXPECT_EQ(LimitedStore::Taken()[0], ReadWholeFile(kept + "2"));
    LimitedStore::Taken().push_back(ReadWholeFile(kept + "1"));
    ExpectEachOnce(1, 250);
}

TEST_F(UploadBacklogTest, SendsEventsThatAreTooLargeForOneFileInSeveral) {
    const auto model = AddLogon();
    ModuleHarness::Sql(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 7) INSERT INTO Event_Logon "
        "SELECT NULL, i, 0, 0, 0, printf('%.12000000c', 'x') FROM n");
    const LimitedStore store(100);
    EXPECT_TRUE(UploadEvents(model, 0, 1000, false));
    ExpectEachOnce(1, 7);
    EXPECT_EQ(LimitedStore::Taken().size(), 4U);  // two each of 12 MB
    for (const std::string& file : LimitedStore::Taken()) {
        EXPECT_LT(file.size(), kUploadFileText + (1U << 20U));
    }
}

}  // namespace
