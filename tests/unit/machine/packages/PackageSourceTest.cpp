#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <zlib.h>

#include "machine/packages/PackageSource.h"
#include "machine/source/MachineLog.h"
#include "machine/source/RecordId.h"
#include "support/LogReader.h"
#include "support/RefusedCall.h"
#include "support/TempDirectory.h"
#include "support/TimeZone.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string Line(const std::string& package, const std::string& time = "2026-11-20 10:00:00") {
    return time + " install " + package + ":amd64 <none> 1.0-1\n";
}

/// A log of a test's own, and a source that reads it as the module does: on from the position that it gave.
class PackageSourceTest : public testing::Test {
protected:
    void Append(const std::string& text) const {
        std::ofstream(directory_ / "dpkg.log", std::ios::app | std::ios::binary) << text;
    }
    void Compress(const std::string& from, const std::string& to) const {
        const std::string content = directory_.Read(from);
        gzFile const file = gzopen((directory_ / to).c_str(), "wb");
        gzwrite(file, content.data(), static_cast<unsigned>(content.size()));
        gzclose(file);
        std::filesystem::remove(directory_ / from);
    }
    void Rename(const std::string& from, const std::string& to) const {
        std::filesystem::rename(directory_ / from, directory_ / to);
    }

    /// A source that knows nothing but the position.
    void Restart() {
        LumString error;
        source_ = std::make_unique<PackageSource>(directory_.At("dpkg.log"), oldest_);
        ASSERT_TRUE(source_->Open(error)) << error.GetString();
    }

    /// The packages of all that is new, in order; "anew" where the source begins anew.
    std::vector<std::string> New(std::size_t limit = 100) {
        std::vector<std::string> packages;
        if (source_ == nullptr) {
            Restart();
        }
        for (bool more = true; more;) {
            SourceBatch batch;
            if (!source_->ReadSince(position_, limit, batch, error_)) {
                packages.emplace_back("gone");
                return packages;
            }
            more = batch.more;
            position_ = batch.position;
            if (batch.begunAnew) {
                packages.emplace_back("anew");
            }
            for (const MachineEvent& event : batch.events) {
                packages.push_back(Text(event, "Package"));
                records_.push_back(event.record);
                int32_t time = 0;
                EXPECT_TRUE(event.params.GetInt32("Time", time));
                times_.push_back(time);
            }
        }
        return packages;
    }
    static std::string Text(const MachineEvent& event, const char* name) {
        LumString text;
        static_cast<void>(event.params.GetString(name, text));
        return text.GetString();
    }
    /// True where the source's descriptor says that there is something new.
    bool HasNews() const {
        pollfd wait = {source_->GetDescriptor(), POLLIN, 0};
        return poll(&wait, 1, 0) == 1;
    }

    const TimeZone zone_{"UTC"};
    TempDirectory directory_;
    std::time_t oldest_ = 0;
    std::unique_ptr<PackageSource> source_;
    std::string position_;
    std::vector<uint64_t> records_;
    std::vector<int32_t> times_;
    LumString error_;
};

TEST_F(PackageSourceTest, GivesEachStepOnce) {
    Append(Line("a") + "2026-11-20 10:00:00 status installed a:amd64 1.0-1\n" + Line("b"));
    EXPECT_THAT(New(), ElementsAre("a", "b"));
    EXPECT_THAT(New(), IsEmpty());
    Append(Line("c"));
    EXPECT_THAT(New(), ElementsAre("c"));
    Restart();
    EXPECT_THAT(New(), IsEmpty());
}

TEST_F(PackageSourceTest, AnEventHoldsWhatTheLineSays) {
    Append("2026-11-20 10:00:00 upgrade libfoo2:amd64 1.0-1 1.0-2\n");
    SourceBatch batch;
    Restart();
    ASSERT_TRUE(source_->ReadSince("", 100, batch, error_));
    ASSERT_EQ(batch.events.size(), 1U);
    EXPECT_EQ(batch.events[0].params.ToJson(),
              R"({"Record":")" + RecordText(batch.events[0].record) +
                  R"(","Time":1795168800,"Action":"upgrade","Package":"libfoo2","Architecture":"amd64",)"
                  R"("OldVersion":"1.0-1","Version":"1.0-2"})");
}

TEST_F(PackageSourceTest, ABatchEndsAtItsLimit) {
    Append(Line("a") + Line("b") + Line("c"));
    Restart();
    SourceBatch batch;
    ASSERT_TRUE(source_->ReadSince("", 2, batch, error_));
    EXPECT_EQ(batch.events.size(), 2U);
    EXPECT_TRUE(batch.more);
    position_ = batch.position;
    Restart();
    EXPECT_THAT(New(), ElementsAre("c"));
}

TEST_F(PackageSourceTest, TheSameLineTwiceInASecondIsTwoRecords) {
    Append(Line("a") + Line("a") + Line("a", "2026-11-20 10:00:01"));
    EXPECT_THAT(New(), ElementsAre("a", "a", "a"));
    const std::vector<uint64_t> first = std::exchange(records_, {});
    EXPECT_NE(first[0], first[1]);
    EXPECT_NE(first[0], first[2]);
    Restart();
    position_.clear();
    EXPECT_THAT(New(), ElementsAre("a", "a", "a"));
    EXPECT_EQ(records_, first) << "a record has another number when it is read again";
}

TEST_F(PackageSourceTest, ASecondThatAPositionCutsInTwoKeepsItsNumbers) {
    Append(Line("a") + Line("a") + Line("a"));
    EXPECT_THAT(New(), ElementsAre("a", "a", "a"));
    const std::vector<uint64_t> whole = std::exchange(records_, {});
    position_.clear();
    Restart();
    SourceBatch batch;
    ASSERT_TRUE(source_->ReadSince("", 1, batch, error_));
    position_ = batch.position;
    Restart();
    EXPECT_THAT(New(), ElementsAre("a", "a"));
    EXPECT_THAT(records_, ElementsAre(whole[1], whole[2]));
}

TEST_F(PackageSourceTest, ATornLastLineIsTakenOnceItsEndHasCome) {
    Append(Line("a") + "2026-11-20 10:00:00 install b:amd6");
    EXPECT_THAT(New(), ElementsAre("a"));
    EXPECT_THAT(New(), IsEmpty());
    Append("4 <none> 1.0-1\n" + Line("c"));
    EXPECT_THAT(New(), ElementsAre("b", "c"));
}

TEST_F(PackageSourceTest, ATornLastLineOfAFileThatWasPutAsideIsTakenAsItIs) {
    Append(Line("a") + "2026-11-20 10:00:00 install b:amd64 <none> 1.0");
    EXPECT_THAT(New(), ElementsAre("a"));
    Rename("dpkg.log", "dpkg.log.1");
    Append(Line("c"));
    EXPECT_THAT(New(), ElementsAre("b", "c"));
    Restart();
    EXPECT_THAT(New(), IsEmpty());
}

TEST_F(PackageSourceTest, ALogWithoutALineHasNoPositionYet) {
    Append("");
    EXPECT_THAT(New(), IsEmpty());
    EXPECT_EQ(position_, "");
    Append(Line("a"));
    EXPECT_THAT(New(), ElementsAre("a"));
}

TEST_F(PackageSourceTest, MoreLinesInASecondThanAnyMachineWritesTakeNoMoreMemory) {
    std::string lines;
    for (int i = 0; i <= 10'000; ++i) {
        lines += Line("p" + std::to_string(i));
    }
    Append(lines + Line("p0"));
    EXPECT_EQ(New(20'000).size(), 10'002U);
    EXPECT_EQ(records_.back(), records_.front()) << "somebody wrote them, and the same line counts once";
}

TEST_F(PackageSourceTest, WithoutTheSystemsWordOnChangesItSaysHowLateTheyAreSeen) {
    LogLines log;
    MachineDebug.SetContext(&log.Context());
    Append(Line("a"));
    const bool isRefused = RunRefused(SYS_inotify_add_watch, ENOSPC, [this] {
        EXPECT_THAT(New(), ElementsAre("a"));
        Append(Line("b"));
        EXPECT_FALSE(HasNews());
        EXPECT_THAT(New(), ElementsAre("b"));
    });
    MachineDebug.SetContext(nullptr);
    if (!isRefused) {
        GTEST_SKIP() << "the system does not let a call be refused";
    }
    EXPECT_THAT(log.Said(),
                ElementsAre("warning MachineEvents Packages: changes of the log are seen every 300 s "
                            "only: No space left on device"));
}

TEST_F(PackageSourceTest, WithoutADescriptorForChangesItReadsAllTheSame) {
    Append(Line("a"));
    const bool isRefused = RunRefused(SYS_inotify_init1, EMFILE, [this] {
        EXPECT_THAT(New(), ElementsAre("a"));
        EXPECT_EQ(source_->GetDescriptor(), -1);
        Append(Line("b"));
        EXPECT_THAT(New(), ElementsAre("b"));
    });
    if (!isRefused) {
        GTEST_SKIP() << "the system does not let a call be refused";
    }
}

TEST_F(PackageSourceTest, RotationsAreReadFromTheOldestOn) {
    directory_.Write("dpkg.log.10", Line("a"));
    directory_.Write("dpkg.log.2", Line("b"));
    Compress("dpkg.log.2", "dpkg.log.2.gz");
    directory_.Write("dpkg.log.1", Line("c"));
    directory_.Write("dpkg.log-20251101", Line("z"));
    directory_.Write("dpkg.log.old", Line("not one of them"));
    directory_.Write("dpkg.logx", Line("not one of them"));
    Append(Line("d"));
    EXPECT_THAT(New(), ElementsAre("z", "a", "b", "c", "d"));
}

TEST_F(PackageSourceTest, ACompressedFileIsReadOnWhereItWasLeft) {
    directory_.Write("dpkg.log.1", Line("a") + Line("b") + Line("c"));
    Compress("dpkg.log.1", "dpkg.log.1.gz");
    Append(Line("d"));
    EXPECT_THAT(New(1), ElementsAre("a", "b", "c", "d"));
}

TEST_F(PackageSourceTest, ARotationLosesNothingAndGivesNothingTwice) {
    Append(Line("a"));
    EXPECT_THAT(New(), ElementsAre("a"));
    Append(Line("b"));
    Rename("dpkg.log", "dpkg.log.1");
    Append(Line("c"));
    EXPECT_THAT(New(), ElementsAre("b", "c"));
    Rename("dpkg.log.1", "dpkg.log.2");
    Compress("dpkg.log.2", "dpkg.log.2.gz");
    Rename("dpkg.log", "dpkg.log.1");
    Append(Line("d"));
    EXPECT_THAT(New(), ElementsAre("d"));
}

TEST_F(PackageSourceTest, ARotationWhileNobodyReadsIsFoundAgain) {
    Append(Line("a") + Line("b"));
    Restart();
    SourceBatch batch;
    ASSERT_TRUE(source_->ReadSince("", 1, batch, error_));
    position_ = batch.position;
    Rename("dpkg.log", "dpkg.log.3");
    Compress("dpkg.log.3", "dpkg.log.3.gz");
    directory_.Write("dpkg.log.2", "");
    directory_.Write("dpkg.log.1", Line("c"));
    Append("");
    Restart();
    EXPECT_THAT(New(), ElementsAre("b", "c"));
}

TEST_F(PackageSourceTest, AFileThatIsBeingCompressedIsReadOnce) {
    directory_.Write("dpkg.log.1", Line("a"));
    directory_.Write("dpkg.log.1.gz", "half");
    Append(Line("b"));
    EXPECT_THAT(New(), ElementsAre("a", "b"));
}

TEST_F(PackageSourceTest, DamagedCompressionEndsItsFileAlone) {
    directory_.Write("dpkg.log.2", Line("a"));
    Compress("dpkg.log.2", "dpkg.log.2.gz");
    const std::string whole = directory_.Read("dpkg.log.2.gz");
    directory_.Write("dpkg.log.2.gz", whole.substr(0, whole.size() / 2));
    Append(Line("b"));
    EXPECT_EQ(New().back(), "b");
}

TEST_F(PackageSourceTest, ALogThatShrankIsReadAnew) {
    Append(Line("a") + Line("b"));
    EXPECT_THAT(New(), ElementsAre("a", "b"));
    std::filesystem::resize_file(directory_ / "dpkg.log", Line("a").size());
    EXPECT_THAT(New(), ElementsAre("anew", "a"));
    Append(Line("c"));
    EXPECT_THAT(New(), ElementsAre("c"));
}

TEST_F(PackageSourceTest, ALogThatWasCutAndGrewAgainIsReadAnew) {
    Append(Line("a") + Line("b"));
    EXPECT_THAT(New(), ElementsAre("a", "b"));
    std::filesystem::resize_file(directory_ / "dpkg.log", 0);
    Append(Line("c") + Line("d") + Line("e"));
    EXPECT_THAT(New(), ElementsAre("anew", "c", "d", "e"));
}

TEST_F(PackageSourceTest, ALogThatIsReplacedIsReadAnew) {
    Append(Line("a"));
    EXPECT_THAT(New(), ElementsAre("a"));
    directory_.Write("new", Line("b"));
    Rename("new", "dpkg.log");
    EXPECT_THAT(New(), ElementsAre("anew", "b"));
    EXPECT_THAT(New(), IsEmpty());
}

TEST_F(PackageSourceTest, ALogThatVanishesIsGoneUntilItIsBack) {
    Append(Line("a"));
    EXPECT_THAT(New(), ElementsAre("a"));
    std::filesystem::remove(directory_ / "dpkg.log");
    EXPECT_THAT(New(), ElementsAre("gone"));
    EXPECT_EQ(error_, (directory_ / "dpkg.log: the log has gone").c_str());
    EXPECT_FALSE(source_->Open(error_));
    EXPECT_EQ(error_, (directory_ / "dpkg.log: there is no such log").c_str());
    Append(Line("b"));
    EXPECT_TRUE(source_->Open(error_));
    EXPECT_THAT(New(), ElementsAre("anew", "b"));
}

TEST_F(PackageSourceTest, AMegabyteWithoutAnEndIsPassedOver) {
    Append(Line("a") + std::string(1 << 20, 'x'));
    EXPECT_THAT(New(), ElementsAre("a"));
    Append("\n" + Line("b"));
    EXPECT_THAT(New(), ElementsAre("b"));
}

TEST_F(PackageSourceTest, ControlCharactersAndBrokenUtf8AreReplaced) {
    Append("2026-11-20 10:00:00 install a\x1b[2J\xff:amd64 <none> 1\xe2\x80\xae\n");
    Append(std::string("2026-11-20 10:00:01 install b\0c:amd64 <none> 1\n", 47));
    EXPECT_THAT(New(), ElementsAre("a\uFFFD[2J\uFFFD", "b\uFFFDc"));
}

TEST_F(PackageSourceTest, AnOverlongLineIsCutWithAMark) {
    Append("2026-11-20 10:00:00 install " + std::string(3000, 'x') + ":amd64 <none> 1\n");
    const std::vector<std::string> packages = New();
    ASSERT_EQ(packages.size(), 1U);
    EXPECT_EQ(packages[0], std::string(256, 'x') + "…");
}

TEST_F(PackageSourceTest, AMomentOfAWrongClockIsTheTimeOfReading) {
    const std::time_t before = std::time(nullptr);
    Append(Line("a", "2037-01-01 00:00:00") + Line("b", "9999-12-31 23:59:59"));
    EXPECT_THAT(New(), ElementsAre("a", "b"));
    for (const int32_t time : times_) {
        EXPECT_GE(time, before);
        EXPECT_LE(time, std::time(nullptr));
    }
}

TEST_F(PackageSourceTest, LinesWithTooFewOrTooManyWordsArePassedOver) {
    Append("2026-11-20 10:00:00 install\n2026-11-20 10:00:00 install a:amd64\n\n \n");
    Append("2026-11-20 10:00:00 install a:amd64 <none> 1 2\ninstall a:amd64 <none> 1\n" + Line("b"));
    EXPECT_THAT(New(), ElementsAre("b"));
}

TEST_F(PackageSourceTest, LinesOfBeforeTheOldestWantedAreLeftOut) {
    oldest_ = 1795168800;
    Append(Line("a", "2026-11-20 09:59:59") + Line("b"));
    EXPECT_THAT(New(), ElementsAre("b"));
}

TEST_F(PackageSourceTest, APipeInPlaceOfTheLogIsNotWaitedFor) {
    ASSERT_EQ(::mkfifo((directory_ / "dpkg.log").c_str(), 0600), 0);
    EXPECT_THAT(New(), ElementsAre("gone"));
}

TEST_F(PackageSourceTest, AnUnreadablePositionIsReadAnew) {
    Append(Line("a"));
    position_ = "nonsense";
    EXPECT_THAT(New(), ElementsAre("anew", "a"));
}

TEST_F(PackageSourceTest, TheDescriptorTellsOfEveryChange) {
    Append(Line("a"));
    static_cast<void>(New());
    EXPECT_FALSE(HasNews());
    Append(Line("b"));
    EXPECT_TRUE(HasNews());
    EXPECT_THAT(New(), ElementsAre("b"));
    EXPECT_FALSE(HasNews());
    Rename("dpkg.log", "dpkg.log.1");
    Append(Line("c"));
    EXPECT_TRUE(HasNews());
    EXPECT_THAT(New(), ElementsAre("c"));
}

}  // namespace
