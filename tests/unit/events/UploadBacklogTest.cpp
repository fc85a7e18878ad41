#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "contract/FileStore.h"
#include "events/EventUpload.h"
#include "events/UploadBacklog.h"
#include "events/UploadFiles.h"
#include "events/UploadJournal.h"
#include "host/container/LumContainer.h"
#include "host/file/LumFile.h"
#include "model/ModelElement.h"
#include "store/ModelRegistry.h"
#include "support/FileStoreStandIn.h"
#include "support/ResourceLimit.h"
#include "support/StartedModule.h"
#include "support/StopRequest.h"
#include "support/shim/FaultPlan.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kJournal = "data/EventLogManager/uploads/Logon";

std::string BytesOf(const LumContainer& request) {
    LumString path;
    EXPECT_TRUE(request.GetString(kFileStoreMovePath, path));
    return ReadWholeFile(path.GetString());
}

/// A file store that takes as many files as it is told to, and refuses the others.
struct LimitedStore {
    explicit LimitedStore(uint32_t takes) : left(takes) {}

    /// The dates of all events that were taken, and how often each.
    [[nodiscard]] std::map<int32_t, int> Dates() const {
        std::map<int32_t, int> dates;
        for (const std::string& bytes : taken) {
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

    uint32_t left;
    std::vector<std::string> taken;  ///< the bytes of each file

private:
    const FileStoreStandIn store_{[this](const LumContainer& request, const LumContainer&) -> uint32_t {
        if (left == 0) {
            return 1;
        }
        --left;
        taken.push_back(BytesOf(request));
        return 0;
    }};
};

class UploadBacklogTest : public testing::Test, protected StartedModule {
protected:
    /// Events with the dates `first` to `last`.
    void Events(int first, int last) {
        Change("WITH RECURSIVE n(i) AS (SELECT " + std::to_string(first) +
               " UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(last) +
               ") INSERT INTO Event_Logon (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_User) "
               "SELECT i, 3600, 0, 0, 'user' || i FROM n");
    }
    static void ExpectEachOnce(const LimitedStore& store, int first, int last) {
        const std::map<int32_t, int> dates = store.Dates();
        EXPECT_EQ(dates.size(), static_cast<std::size_t>(last - first + 1));
        for (const auto& [date, times] : dates) {
            EXPECT_EQ(times, 1) << date;
        }
    }
    static void Restart() { UploadBacklog.Forget(); }
    [[nodiscard]] bool HasJournal() const { return Directory().Has(kJournal); }
    [[nodiscard]] std::size_t Complaints() const {
        return Log().Count("error UploadEvents: The upload of model 'Logon' is outstanding");
    }

    const std::shared_ptr<Model_t> logon_ = Add({.params = {{"User"}}});
};

TEST_F(UploadBacklogTest, SendsAfterARestartWhatTheStoreDidNotTake) {
    Events(1, 750);
    LimitedStore store(3);
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    EXPECT_EQ(store.taken.size(), 3U);
    EXPECT_EQ(logon_->GetLastUploadTime(), 1000U);
    EXPECT_TRUE(fs::is_empty(GetTempDirectory().GetString()));
    EXPECT_EQ(Complaints(), 1U);
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
    EXPECT_EQ(Complaints(), 2U);  // one a life of the process
    ResumeUploads();
    EXPECT_EQ(Complaints(), 2U);
    store.left = 100;
    ResumeUploads();
    ExpectEachOnce(store, 1, 750);
    EXPECT_FALSE(HasJournal());
    EXPECT_TRUE(UploadBacklog.GetOutstanding().empty());
    EXPECT_EQ(
        Log().Count("print UploadEvents: The upload of model 'Logon' that was outstanding is complete\n"),
        1U);
}

TEST_F(UploadBacklogTest, GoesOnWhereTheJournalIsReadAgainAfterEachFile) {
    Events(1, 550);
    LimitedStore store(0);
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    for (int i = 0; i < 6; ++i) {
        Restart();
        store.left = 1;
        ResumeUploads();
    }
    ExpectEachOnce(store, 1, 550);
    EXPECT_EQ(store.taken.size(), 6U);
    EXPECT_FALSE(HasJournal());
}

TEST_F(UploadBacklogTest, KeepsTheBordersOfFilesWhereLateEventsCameIntoTheWindow) {
    Events(200, 449);
    LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    Events(1, 60);  // the clock was set back: older than all that is being sent
    Restart();
    store.left = 10;
    ResumeUploads();
    ExpectEachOnce(store, 200, 449);
    ASSERT_EQ(store.taken.size(), 3U);
}

TEST_F(UploadBacklogTest, SendsTheOlderWindowsFirstAndTheNewOneWithThem) {
    Events(1, 150);
    LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(logon_, 0, 200, false));
    Events(200, 260);
    EXPECT_TRUE(UploadEvents(logon_, 200, 300, false));
    Events(300, 310);
    EXPECT_TRUE(UploadEvents(logon_, 300, 400, false));
    EXPECT_EQ(StoredTime("RM_LastUploadTimestamp", "Logon"), "400");
    EXPECT_EQ(store.taken.size(), 1U);
    EXPECT_EQ(Complaints(), 1U);
    store.left = 100;
    Events(400, 420);
    EXPECT_TRUE(UploadEvents(logon_, 400, 500, false));
    const std::map<int32_t, int> dates = store.Dates();
    EXPECT_EQ(dates.size(), 150U + 61U + 11U + 21U);
    EXPECT_FALSE(HasJournal());
}

TEST_F(UploadBacklogTest, SendsWhatAMissingTemporaryDirectoryKeptBack) {
    Events(1, 250);
    LimitedStore store(100);
    fs::remove_all(GetTempDirectory().GetString());
    {
        const std::string blocking = Directory().Write("data/tmp", "no directory");
        EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
        EXPECT_TRUE(store.taken.empty());
        EXPECT_EQ(StoredTime("RM_LastUploadTimestamp", "Logon"), "1000");
        fs::remove(blocking);
    }
    Directory().MakeDirectory("data/tmp");
    ResumeUploads();
    ExpectEachOnce(store, 1, 250);
}

TEST_F(UploadBacklogTest, LeavesNoSingleEventOutWhoseFileCouldNotBeMade) {
    Events(1, 1);
    LimitedStore store(100);
    fs::remove_all(GetTempDirectory().GetString());
    const std::string blocking = Directory().Write("data/tmp", "no directory");
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    EXPECT_EQ(Complaints(), 1U);
    EXPECT_EQ(Log().Count("is too large for a file"), 0U);
    fs::remove(blocking);
    Directory().MakeDirectory("data/tmp");
    ResumeUploads();
    ExpectEachOnce(store, 1, 1);
}

TEST_F(UploadBacklogTest, LeavesNoPartOfAFileOnAFullDiskAndSendsItWhenThereIsRoom) {
    Change(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100) INSERT INTO "
        "Event_Logon "
        "SELECT NULL, i, 0, 0, 0, printf('%.20000c', 'x') FROM n");
    Change("PRAGMA wal_checkpoint(TRUNCATE)");
    LimitedStore store(100);
    {
        const ResourceLimit limit(RLIMIT_FSIZE, 1U << 20U);
        EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    }
    EXPECT_TRUE(store.taken.empty());
    EXPECT_TRUE(fs::is_empty(GetTempDirectory().GetString()));
    EXPECT_EQ(StoredTime("RM_LastUploadTimestamp", "Logon"), "1000");
    ResumeUploads();
    ExpectEachOnce(store, 1, 100);
}

TEST_F(UploadBacklogTest, LeavesTheMarkWhereNoJournalCanBeWritten) {
    Events(1, 50);
    LimitedStore store(100);
    const std::string blocking = Directory().Write("data/EventLogManager/uploads", "no directory");
    EXPECT_FALSE(UploadEvents(logon_, 0, 1000, false));
    EXPECT_EQ(StoredTime("RM_LastUploadTimestamp", "Logon"), "0");
    EXPECT_EQ(Complaints(), 1U);
    EXPECT_TRUE(UploadBacklog.IsOpen("Logon"));
    fs::remove(blocking);
    ResumeUploads();
    ExpectEachOnce(store, 1, 50);
    EXPECT_EQ(StoredTime("RM_LastUploadTimestamp", "Logon"), "1000");
    EXPECT_FALSE(UploadBacklog.IsOpen("Logon"));
}

TEST_F(UploadBacklogTest, BeginsAgainWhereItWasCutOffBeforeTheMark) {
    Events(1, 50);
    UploadJournal journal("Logon");
    LumString error;
    ASSERT_TRUE(journal.Append({0, 1000}, error)) << error.GetString();
    LimitedStore store(100);
    ResumeUploads();
    ExpectEachOnce(store, 1, 50);
    EXPECT_EQ(StoredTime("RM_LastUploadTimestamp", "Logon"), "1000");
}

TEST_F(UploadBacklogTest, TriesAWindowAgainInThisLifeAloneWhoseEventsCouldNotBeRead) {
    Events(1, 50);
    LimitedStore store(100);
    Change("ALTER TABLE Event_Logon RENAME TO Away");
    EXPECT_FALSE(UploadEvents(logon_, 0, 1000, false));
    EXPECT_FALSE(HasJournal());
    EXPECT_TRUE(UploadBacklog.IsOpen("Logon"));
    Change("ALTER TABLE Away RENAME TO Event_Logon");
    ResumeUploads();
    ExpectEachOnce(store, 1, 50);
    EXPECT_FALSE(UploadBacklog.IsOpen("Logon"));

    Events(1001, 1050);
    Change("ALTER TABLE Event_Logon RENAME TO Away");
    EXPECT_FALSE(UploadEvents(logon_, 1000, 2000, false));
    Change("ALTER TABLE Away RENAME TO Event_Logon");
    Restart();
    logon_->SetLastUploadTime(2000);  // as it was stored
    ResumeUploads();
    ExpectEachOnce(store, 1, 50);
}

TEST_F(UploadBacklogTest, WaitsWhileUploadIsSwitchedOffOrTheModelIsDisabled) {
    Events(1, 150);
    LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(logon_, 0, 200, false));
    store.left = 100;
    UploadEnabled = false;
    ResumeUploads();
    Events(200, 210);
    EXPECT_TRUE(UploadEvents(logon_, 200, 300, false));  // passed over for good
    EXPECT_TRUE(HasJournal());
    UploadEnabled = true;
    logon_->SetEnabled(false);
    ResumeUploads();
    EXPECT_EQ(store.taken.size(), 1U);
    EXPECT_TRUE(UploadBacklog.IsOpen("Logon"));
    logon_->SetEnabled(true);
    ResumeUploads();
    ExpectEachOnce(store, 1, 150);
}

TEST_F(UploadBacklogTest, GivesUpTheUploadOfAModelThatWasDeleted) {
    Events(1, 150);
    LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(logon_, 0, 200, false));
    ASSERT_TRUE(RemoveRegisteredModel("Logon"));
    Restart();
    ResumeUploads();
    EXPECT_FALSE(HasJournal());
    EXPECT_EQ(
        Log().Count("warning UploadEvents: The upload of model 'Logon' is given up, the model was deleted\n"),
        1U);
    EXPECT_TRUE(UploadBacklog.GetOutstanding().empty());
}

TEST_F(UploadBacklogTest, KeepsTheUploadOfAModelThatIsNotLoadedYet) {
    Events(1, 150);
    LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(logon_, 0, 200, false));
    auto taken = logon_;
    ASSERT_TRUE(ModelCollection.Remove(taken));
    Restart();
    ResumeUploads();
    Change("ALTER TABLE RegisteredModel RENAME TO Away");
    ResumeUploads();
    Change("ALTER TABLE Away RENAME TO RegisteredModel");
    EXPECT_TRUE(HasJournal());
    ASSERT_TRUE(ModelCollection.Add(logon_));
    store.left = 100;
    ResumeUploads();
    ExpectEachOnce(store, 1, 150);
}

TEST_F(UploadBacklogTest, ForgetsTheWindowsOfAnEarlierModelOfTheSameName) {
    UploadJournal journal("Logon");
    LumString error;
    ASSERT_TRUE(journal.Append({0, 100}, error));
    ASSERT_TRUE(journal.SetExtent({50, 50}, error));
    ASSERT_TRUE(journal.AddHandedOver(40, error));
    Events(1, 50);
    LimitedStore store(100);
    ResumeUploads();  // of the new model nothing was sent
    ExpectEachOnce(store, 1, 50);
}

TEST_F(UploadBacklogTest, StaysOpenWhereTheJournalCannotBeRead) {
    Directory().MakeDirectory(kJournal);
    EXPECT_TRUE(UploadBacklog.IsOpen("Logon"));
    fs::remove(Directory() / kJournal);
    EXPECT_FALSE(UploadBacklog.IsOpen("Logon"));
}

TEST_F(UploadBacklogTest, WaitsForAJournalThatCannotBeRead) {
    Events(1, 50);
    Directory().MakeDirectory(kJournal);
    LimitedStore store(100);
    EXPECT_FALSE(UploadEvents(logon_, 0, 1000, false));
    ResumeUploads();
    EXPECT_EQ(StoredTime("RM_LastUploadTimestamp", "Logon"), "0");
    EXPECT_EQ(
        Log().Count("error UploadEvents: The upload of model 'Logon' waits, its journal cannot be read: "
                    "Is a directory\n"),
        1U);
    fs::remove(Directory() / kJournal);
    ResumeUploads();
    ExpectEachOnce(store, 1, 50);
}

TEST_F(UploadBacklogTest, SaysThatAJournalIsDamagedAndSetsItAside) {
    Events(1, 50);
    Directory().Write(kJournal, "{\"HandedOver\":");
    LimitedStore store(100);
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    ExpectEachOnce(store, 1, 50);
    EXPECT_FALSE(HasJournal());
    EXPECT_EQ(Log().Count("error UploadEvents: The journal of the upload of model 'Logon' is lost: "), 1U);
}

TEST_F(UploadBacklogTest, SaysOnceThatThereIsNoStoreAndKeepsNoFile) {
    Events(1, 250);
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    for (int i = 0; i < 3; ++i) {
        ResumeUploads();
    }
    EXPECT_EQ(Complaints(), 1U);
    EXPECT_EQ(
        HostLog().Count("warning Action 'FileStoreReceiveFile' invoked, but no module has registered it\n"),
        1U);
    EXPECT_TRUE(fs::is_empty(GetTempDirectory().GetString()));
    LimitedStore store(100);
    ResumeUploads();
    ExpectEachOnce(store, 1, 250);
}

/// Killed after each file that the store took, before the journal says so: the file comes twice, and is the
/// same.
TEST_F(UploadBacklogTest, SendsTheLastFileTwiceByteForByteAfterAKill) {
    Events(1, 250);
    const std::string kept = Directory() / "taken";
    const pid_t child = fork();
    if (child == 0) {
        const FileStoreStandIn store(
            [&, files = 0](const LumContainer& request, const LumContainer&) mutable {
                std::ofstream(kept + std::to_string(++files)) << BytesOf(request);
                return files == 2 ? kill(getpid(), SIGKILL), 1U : 0U;
            });
        UploadEvents(logon_, 0, 1000, false);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    logon_->SetLastUploadTime(1000);  // as the next start reads it
    LimitedStore store(100);
    ResumeUploads();
    ASSERT_EQ(store.taken.size(), 2U);
    EXPECT_EQ(store.taken[0], ReadWholeFile(kept + "2"));
    store.taken.push_back(ReadWholeFile(kept + "1"));
    ExpectEachOnce(store, 1, 250);
}

TEST_F(UploadBacklogTest, SendsEventsThatAreTooLargeForOneFileInSeveral) {
    Change(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 7) INSERT INTO Event_Logon "
        "SELECT NULL, i, 0, 0, 0, printf('%.12000000c', 'x') FROM n");
    LimitedStore store(100);
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    ExpectEachOnce(store, 1, 7);
    EXPECT_EQ(store.taken.size(), 4U);  // two each of 12 MB
    for (const std::string& file : store.taken) {
        EXPECT_LT(file.size(), kUploadFileText + (1U << 20U));
    }
}

TEST_F(UploadBacklogTest, LeavesAnEventOutThatNoFileCanHoldAndSendsTheOthers) {
    Events(1, 3);
    Change("UPDATE Event_Logon SET C_User = printf('%.70000000c', 'x') WHERE E_Date = 2");
    const LimitedStore store(100);
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    EXPECT_EQ(store.Dates(), (std::map<int32_t, int>{{1, 1}, {3, 1}}));
    EXPECT_EQ(
        Log().Count("error UploadEvents: An event of model 'Logon' is too large for a file and is left out"),
        1U);
    EXPECT_FALSE(HasJournal()) << "nothing waits for it";
}

TEST_F(UploadBacklogTest, StopsBetweenTwoFilesAndGoesOnAfterTheNextStart) {
    Events(1, 750);
    const LimitedStore store(100);
    {
        const StopRequest stop(3);
        EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    }
    EXPECT_EQ(store.taken.size(), 2U);
    EXPECT_EQ(
        Log().Count("print UploadEvents: The upload of model 'Logon' stops and goes on after the next start"),
        1U);
    EXPECT_EQ(Complaints(), 0U) << "a stop is not a failure";
    Restart();
    ResumeUploads();
    ExpectEachOnce(store, 1, 750);
    EXPECT_FALSE(HasJournal());
}

TEST_F(UploadBacklogTest, PassesOverEventsThatAreNotThereAnyMore) {
    Events(1, 250);
    LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    EXPECT_EQ(store.taken.size(), 1U);
    Change("DELETE FROM Event_Logon");
    store.left = 100;
    ResumeUploads();
    EXPECT_EQ(store.taken.size(), 1U);
    EXPECT_FALSE(HasJournal());
    EXPECT_TRUE(UploadBacklog.GetOutstanding().empty());
}

TEST_F(UploadBacklogTest, WaitsForATableThatCannotBeRead) {
    Events(1, 250);
    LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    const auto expectWaiting = [&] {
        Change("ALTER TABLE Event_Logon RENAME TO Elsewhere");
        Restart();
        store.left = 100;
        ResumeUploads();
        ASSERT_EQ(UploadBacklog.GetOutstanding().size(), 1U);
        EXPECT_STREQ(UploadBacklog.GetOutstanding()[0].reason.GetString(), "its events cannot be read");
        Change("ALTER TABLE Elsewhere RENAME TO Event_Logon");
    };
    expectWaiting();
    ResumeUploads();
    ExpectEachOnce(store, 1, 250);

    // The same where it was cut off before the number of its events was known.
    Events(1001, 1100);
    UploadJournal journal("Logon");
    LumString error;
    ASSERT_TRUE(journal.Append({1000, 2000}, error)) << error.GetString();
    logon_->SetLastUploadTime(2000);
    expectWaiting();
    ResumeUploads();
    EXPECT_EQ(store.Dates().size(), 350U);
    EXPECT_FALSE(HasJournal());
}

/// One write of the journal after the other fails, first while the upload begins, then while it goes on.
TEST_F(UploadBacklogTest, SendsEachEventWhicheverWriteOfItsJournalFails) {
    FaultPlan plan;
    plan.Watch(Directory() / "data/EventLogManager/uploads/");
    FaultShimUse(&plan);
    for (const bool resumes : {false, true}) {
        bool isHit = true;
        uint64_t nth = 0;
        while (isHit) {
            ++nth;
            Change("DELETE FROM Event_Logon");
            logon_->SetLastUploadTime(0);
            Events(1, 250);
            LimitedStore store(resumes ? 1 : 100);
            if (resumes) {
                EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
                store.left = 100;
            }
            plan.Arm(FaultPlan::Kind::kBroken, nth);
            if (resumes) {
                ResumeUploads();
            } else {
                static_cast<void>(UploadEvents(logon_, 0, 1000, false));  // fails where nothing was begun
            }
            isHit = plan.Disarm() >= nth;
            ResumeUploads();
            if (logon_->GetLastUploadTime() == 0) {
                EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
            }
            const std::map<int32_t, int> dates = store.Dates();
            EXPECT_EQ(dates.size(), 250U) << nth;
            for (const auto& [date, times] : dates) {
                EXPECT_LE(times, 2) << nth << ": " << date;
            }
            EXPECT_FALSE(HasJournal()) << nth;
        }
        EXPECT_GT(nth, 4U);
    }
    FaultShimUse(nullptr);
}

TEST_F(UploadBacklogTest, LeavesAJournalThatCannotBeReadWhenItsModelIsGone) {
    Events(1, 250);
    const LimitedStore store(1);
    EXPECT_TRUE(UploadEvents(logon_, 0, 1000, false));
    Restart();
    FaultPlan plan;
    plan.Watch(Directory() / kJournal);
    FaultShimUse(&plan);
    plan.Arm(FaultPlan::Kind::kNoFiles, 1);
    UploadBacklog.Abandon("Logon");
    plan.Disarm();
    FaultShimUse(nullptr);
    EXPECT_TRUE(HasJournal());
    EXPECT_EQ(Log().Count("is given up"), 0U);
    UploadBacklog.Abandon("Logon");
    EXPECT_FALSE(HasJournal());
    EXPECT_EQ(Log().Count("is given up"), 1U);
    UploadBacklog.Settle("Logon", "nobody waits any more");
    EXPECT_TRUE(UploadBacklog.GetOutstanding().empty());
}

}  // namespace
