// What a source says reaches the record once, whatever happens to the store on the way.

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "host/database/DatabaseFigures.h"
#include "machine/Feed.h"
#include "machine/packages/PackageSource.h"
#include "machine/source/MachineLog.h"
#include "support/FaultVfs.h"
#include "support/LoadedModule.h"
#include "support/LogReader.h"
#include "support/MemoryFault.h"
#include "support/TimeZone.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// The event log, and a feed that carries a package log of so many lines into it.
class FeedTest : public testing::Test {
protected:
    static constexpr int kLines = 170;

    void SetUp() override {
        MachineDebug.SetContext(&log_.Context());
        agent_.DropShipped("PackageHistory");
        agent_.Start();
        Append(kLines);
        Restart();
    }
    void TearDown() override { MachineDebug.SetContext(nullptr); }

    void Append(int count) {
        std::ofstream log(directory_ / "dpkg.log", std::ios::app);
        for (int i = 0; i < count; ++i, ++lines_) {
            log << "2026-11-20 10:00:0" << lines_ / 50 % 10 << " install package" << lines_
                << ":amd64 <none> 1.0-1\n";
        }
    }
    /// A feed that knows nothing but what is on the disk.
    void Restart() {
        feed_ = std::make_unique<Feed>(std::make_unique<PackageSource>(directory_.At("dpkg.log"), 0),
                                       directory_.At("position"), 1);
    }
    /// Turns until the feed has nothing to do at once.
    void Work(const std::function<bool()>& isStopping = [] { return false; }) {
        while (feed_->Work(isStopping)) {
        }
    }
    /// How many events, packages and records there are.
    [[nodiscard]] std::string Stored() const {
        return agent_.Rows(
            "SELECT count(*), count(DISTINCT C_Package), count(DISTINCT C_Record) FROM "
            "Event_PackageHistory");
    }
    [[nodiscard]] std::string All() const {
        const std::string lines = std::to_string(lines_);
        return lines + "|" + lines + "|" + lines;
    }
    [[nodiscard]] bool IsResting() const {
        return feed_->GetDue() > Feed::Clock::now() && feed_->GetDescriptor() < 0;
    }

    const TimeZone zone_{"UTC"};
    TempDirectory directory_;
    FaultVfs faults_;
    LoadedModule agent_;
    LogLines log_;
    std::unique_ptr<Feed> feed_;
    int lines_ = 0;
};

TEST_F(FeedTest, StoresEachLineOnceAndHearsOfMore) {
    Work();
    EXPECT_EQ(Stored(), All());
    Append(3);
    Work();
    EXPECT_EQ(Stored(), All());
    Restart();
    Work();
    EXPECT_EQ(Stored(), All());
    EXPECT_THAT(log_.Said(), IsEmpty());
}

TEST_F(FeedTest, ABatchWaitsForTheDiskOnce) {
    const DBFigures before = DBReadFigures();
    EXPECT_TRUE(feed_->Work([] { return false; }));
    const DBFigures after = DBReadFigures();
    EXPECT_EQ(after.syncedChanges - before.syncedChanges, 50U);
    EXPECT_EQ(after.syncs - before.syncs, 1U);
}

TEST_F(FeedTest, AFullDiskHoldsItUpAndLosesNothing) {
    feed_->Work([] { return false; });
    faults_.SetDiskFull(true);
    Append(2000);
    Work();
    EXPECT_TRUE(IsResting());
    Work();
    EXPECT_TRUE(IsResting());
    faults_.SetDiskFull(false);
    Work();
    EXPECT_EQ(Stored(), All());
    EXPECT_THAT(
        log_.Said(),
        ElementsAre("warning MachineEvents Packages: cannot be read at the moment and is looked for again: "
                    "the event log could not store an event",
                    "print MachineEvents Packages: is read again"));
}

TEST_F(FeedTest, AnyWriteThatFailsLosesNothingAndGivesNothingTwice) {
    for (uint64_t nth = 1; nth <= 40; nth += 3) {
        Append(20);
        faults_.FailCall(FaultVfs::Call::kWrite, nth, SQLITE_IOERR_WRITE);
        Work();
        faults_.Reset();
        Work();
        ASSERT_EQ(Stored(), All()) << "write " << nth;
    }
}

TEST_F(FeedTest, ASyncThatFailsLosesNothingAndGivesNothingTwice) {
    faults_.FailCall(FaultVfs::Call::kSync, 1, SQLITE_IOERR_FSYNC);
    Work();
    EXPECT_TRUE(IsResting()) << "nobody knows what the disk holds";
    faults_.Reset();
    Work();
    EXPECT_EQ(Stored(), All());
}

TEST_F(FeedTest, ALackOfMemoryLosesNothingAndGivesNothingTwice) {
    Work();
    Append(20);
    uint64_t blocks = 0;
    Restart();
    {
        const MemoryFault none(0);
        Work();
        blocks = MemoryFault::Count();
    }
    constexpr uint64_t faults = 40;
    for (uint64_t nth = 1; nth <= blocks; nth += blocks / faults + 1) {
        Append(20);
        Restart();
        {
            const MemoryFault fault(nth);
            Work();
        }
        Work();
        ASSERT_EQ(Stored(), All()) << "block " << nth << " of " << blocks;
    }
}

TEST_F(FeedTest, LinesThatWereReadWhenTheMemoryRanOutAreReadAgain) {
    Work();
    for (const std::size_t events : {1U, 8U, 32U}) {
        Append(40);
        {
            // The batch has no room for more than it holds.
            const MemoryFault fault(1, events * sizeof(MachineEvent));
            Work();
        }
        EXPECT_TRUE(IsResting());
        Work();
        EXPECT_EQ(Stored(), All());
    }
    EXPECT_EQ(log_.Count("is looked for again: std::bad_alloc"), 3U);
}

TEST_F(FeedTest, AnEventLogThatDoesNotSayWhatItHoldsIsWaitedFor) {
    const auto hide = [this] { agent_.Change("ALTER TABLE Event_PackageHistory RENAME TO Hidden"); };
    const auto show = [this] { agent_.Change("ALTER TABLE Hidden RENAME TO Event_PackageHistory"); };
    hide();
    Work();
    EXPECT_TRUE(IsResting());
    EXPECT_THAT(log_.Said(), ElementsAre(HasSubstr("the event log does not say what it holds")));
    show();
    Work();
    EXPECT_EQ(Stored(), All());
    // The same where the source begins anew.
    directory_.Write("dpkg.log", "");
    Append(3);
    hide();
    Work();
    EXPECT_TRUE(IsResting());
    show();
    Work();
    EXPECT_EQ(Stored(), All());
}

TEST_F(FeedTest, AStopInTheMiddleOfABatchLosesNothingAndGivesNothingTwice) {
    for (int stops = 1; stops < kLines; stops += 23) {
        int asked = 0;
        Work([&] { return ++asked > stops; });
        Restart();
    }
    Work();
    EXPECT_EQ(Stored(), All());
}

TEST_F(FeedTest, APositionThatCannotBeWrittenGivesNothingTwice) {
    directory_.MakeDirectory("position/in-the-way");
    Work();
    EXPECT_EQ(Stored(), All());
    Restart();
    Work();
    EXPECT_EQ(Stored(), All());
    EXPECT_GE(log_.Count("Failed to write the position"), 1U);
}

TEST_F(FeedTest, APositionThatWasLostIsFoundInTheRecord) {
    Work();
    std::filesystem::remove(directory_ / "position");
    Restart();
    Append(5);
    Work();
    EXPECT_EQ(Stored(), All());
}

TEST_F(FeedTest, AModelThatIsDeletedAndComesBackIsFilledAgain) {
    feed_->Work([] { return false; });
    EXPECT_EQ(LoadedModule::CallWith("EventLogManagerDeleteModels", R"({"ModelName":["PackageHistory"]})"),
              0U);
    for (int turns = 0; turns < 4; ++turns) {
        Work();
    }
    EXPECT_TRUE(IsResting());
    EXPECT_THAT(
        log_.Said(),
        ElementsAre("warning MachineEvents Packages: cannot be read at the moment and is looked for again: "
                    "none of its models is registered"));
    agent_.DropShipped("PackageHistory");
    EXPECT_EQ(LoadedModule::CallWith("EventLogManagerReloadModels", "{}"), 0U);
    Work();
    // What was stored before went with the model.
    EXPECT_EQ(agent_.Rows("SELECT count(*) = count(DISTINCT C_Record), min(C_Package) != '' FROM "
                          "Event_PackageHistory"),
              "1|1");
}

TEST_F(FeedTest, AModelOfTheSameNameThatIsSomebodyElsesIsLeftAlone) {
    EXPECT_EQ(LoadedModule::CallWith("EventLogManagerDeleteModels", R"({"ModelName":["PackageHistory"]})"),
              0U);
    agent_.Drop(ModelText{.name = "PackageHistory", .params = {{.name = "Text"}}});
    EXPECT_EQ(LoadedModule::CallWith("EventLogManagerReloadModels", "{}"), 0U);
    Work();
    EXPECT_TRUE(IsResting());
    EXPECT_THAT(log_.Said(),
                ElementsAre(HasSubstr("model 'PackageHistory' is another than the one that comes with")));
}

TEST_F(FeedTest, WithoutAnEventLogItWaits) {
    agent_.Stop();
    Work();
    EXPECT_TRUE(IsResting());
    EXPECT_THAT(log_.Said(), ElementsAre(HasSubstr("the event log does not answer")));
    agent_.Start();
    Work();
    EXPECT_EQ(Stored(), All());
}

}  // namespace
