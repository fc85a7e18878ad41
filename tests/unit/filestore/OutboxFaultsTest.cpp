#include <atomic>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "filestore/FileNames.h"
#include "filestore/Outbox.h"
#include "support/MemoryFault.h"
#include "support/SmallDisk.h"
#include "support/TempDirectory.h"
#include "support/shim/FaultPlan.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* kWaiting = "20261121T011025Z-7-Events.cbor";

/// An outbox whose calls to the file system fail one after the other.
class OutboxFaults : public testing::Test {
protected:
    OutboxFaults() {
        plan_.Watch(directory_.Path().string());
        FaultShimUse(&plan_);
    }
    ~OutboxFaults() override { FaultShimUse(nullptr); }

    [[nodiscard]] bool Open(Outbox& outbox) {
        leftOvers_ = {};
        error_ = LumString();
        return outbox.Open(directory_.At("outbox"), directory_.At("number"), leftOvers_, error_);
    }
    /// A file that is to be taken over from `path`, for which it is written.
    [[nodiscard]] static ReceivedFile Made(const std::string& path) {
        std::ofstream(path) << "abc";
        ReceivedFile file;
        file.movePath = LumString(path);
        file.fileLabel = "Label";
        return file;
    }
    /// The file is in one place, whole, and in the outbox only with its description.
    void ExpectInOnePlace(const std::string& path, const Received& received, uint64_t nth) const {
        if (received.outcome == Received::Outcome::kDone) {
            EXPECT_EQ(ReadWholeFile(received.path.GetString()), "abc") << nth;
            EXPECT_TRUE(fs::exists(DescriptionOf(received.path))) << nth;
            return;
        }
        EXPECT_FALSE(received.problem.IsEmpty()) << nth;
        const std::string problem = received.problem.GetString();
        const std::size_t stays = problem.find("; it stays at ");
        const std::string at = stays == std::string::npos ? path : problem.substr(stays + 14);
        EXPECT_EQ(ReadWholeFile(at), "abc") << nth << " " << problem;
    }
    static std::string DescriptionOf(const LumString& path) {
        const fs::path file(path.GetString());
        return file.parent_path() / DescriptionName(file.filename().string());
    }

    TempDirectory directory_;
    FaultPlan plan_;
    Outbox::LeftOvers leftOvers_;
    LumString error_;
};

TEST_F(OutboxFaults, LeaveAFileInOnePlace) {
    for (const uint64_t length : {uint64_t{1}, FaultPlan::kForEver}) {
        uint64_t staying = 0;
        bool isDone = false;
        for (uint64_t nth = 1; !isDone; ++nth) {
            fs::remove_all(directory_ / "outbox");
            Outbox outbox;
            ASSERT_TRUE(Open(outbox));
            const ReceivedFile file = Made(directory_ / "made");
            plan_.Arm(FaultPlan::Kind::kBroken, nth, length);
            const Received received = outbox.Receive(file);
            isDone = plan_.Disarm() < nth;
            EXPECT_TRUE(!isDone || received.outcome == Received::Outcome::kDone);
            ExpectInOnePlace(file.movePath.GetString(), received, nth);
            staying += received.problem.View().find("; it stays at ") != std::string_view::npos ? 1U : 0U;
        }
        EXPECT_EQ(staying > 0, length == FaultPlan::kForEver);
    }
}

TEST_F(OutboxFaults, NeverLeaveAFileThatCannotBeReadOrSynced) {
    Outbox outbox;
    ASSERT_TRUE(Open(outbox));
    const ReceivedFile file = Made(directory_ / "made");
    plan_.Watch(file.movePath.View());
    plan_.Arm(FaultPlan::Kind::kBroken, 1);
    const Received received = outbox.Receive(file);
    EXPECT_EQ(received.problem, directory_.At("made") + ": it cannot be read: Input/output error");
    EXPECT_EQ(directory_.Read("made"), "abc");
}

TEST_F(OutboxFaults, OfAnotherFileSystemLeaveAFileInOnePlace) {
    const SmallDisk disk(1U << 20U);
    if (!disk.IsThere()) {
        GTEST_SKIP() << "a file system of its own takes the rights of root";
    }
    plan_.Watch("");
    const std::string made = disk / "made";
    uint64_t kept = 0;
    bool isDone = false;
    for (uint64_t nth = 1; !isDone; ++nth) {
        fs::remove_all(directory_ / "outbox");
        Outbox outbox;
        ASSERT_TRUE(Open(outbox));
        const ReceivedFile file = Made(made);
        plan_.Arm(FaultPlan::Kind::kBroken, nth);
        const Received received = outbox.Receive(file);
        isDone = plan_.Disarm() < nth;
        ExpectInOnePlace(made, received, nth);
        if (received.outcome == Received::Outcome::kDone && fs::exists(made)) {
            EXPECT_EQ(std::string(received.problem.View()),
                      made + ": it was copied to the outbox but cannot be deleted: Input/output error");
            ++kept;
        }
    }
    EXPECT_EQ(kept, 1U);
    EXPECT_FALSE(fs::exists(made)) << "undisturbed it is moved";
}

TEST_F(OutboxFaults, OfAnOpeningAreSaid) {
    static_cast<void>(directory_.Write(std::string("outbox/") + kWaiting, "abc"));
    const auto openWithout = [&](FaultPlan::Kind kind, const std::string& below) {
        Outbox outbox;
        plan_.Watch(directory_ / below);
        plan_.Arm(kind, 1);
        const bool opened = Open(outbox);
        plan_.Disarm();
        return opened;
    };
    EXPECT_FALSE(openWithout(FaultPlan::Kind::kNoFiles, "outbox"));
    EXPECT_EQ(error_, directory_.At("outbox") + ": it cannot be read: Too many open files");

    const std::string waiting = std::string("outbox/") + kWaiting;
    EXPECT_TRUE(openWithout(FaultPlan::Kind::kNoFiles, waiting));
    EXPECT_THAT(leftOvers_.errors,
                ElementsAre(directory_.At(waiting) + ": it cannot be opened: Too many open files"));
    EXPECT_THAT(leftOvers_.completed, IsEmpty());

    EXPECT_TRUE(openWithout(FaultPlan::Kind::kNoRoom, "outbox/.lum-"));
    ASSERT_EQ(leftOvers_.errors.size(), 1U);
    EXPECT_THAT(leftOvers_.errors.front().GetString(),
                HasSubstr("20261121T011025Z-7-Events.json: No space left on device"));
    EXPECT_THAT(leftOvers_.completed, IsEmpty());

    Outbox outbox;
    EXPECT_TRUE(Open(outbox));
    EXPECT_THAT(leftOvers_.completed, ElementsAre(kWaiting));
}

/// Of the last blocks of memory that the work asks for: those that it wants once the file has been moved.
TEST_F(OutboxFaults, OfTheMemoryPutAFileBack) {
    Outbox outbox;
    ASSERT_TRUE(Open(outbox));
    uint64_t putBack = 0;
    for (uint64_t fromEnd = 0; fromEnd < 4; ++fromEnd) {
        uint64_t turn = 0;
        for (const bool fails : {false, true}) {
            const ReceivedFile file = Made(directory_ / "made");
            Received received{Received::Outcome::kFailed, {}, "no memory"};
            try {
                const MemoryFault fault(fails ? turn : 0);
                received = outbox.Receive(file);
            } catch (const std::bad_alloc&) {
                ++putBack;
            }
            turn = MemoryFault::Count() - fromEnd;
            ExpectInOnePlace(file.movePath.GetString(), received, turn);
        }
    }
    EXPECT_GT(putBack, 0U);
}

/// True once this process has the file open.
bool IsOpenHere(const std::string& path) {
    std::error_code gone;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
        if (fs::read_symlink(entry.path(), gone) == path) {
            return true;
        }
    }
    return false;
}

/// Whoever may write into the directory puts another file in the place of one that is being read.
TEST_F(OutboxFaults, LeaveOutAFileThatIsReplacedMeanwhile) {
    Outbox outbox;
    ASSERT_TRUE(Open(outbox));
    bool wasReplaced = false;
    for (int attempt = 0; attempt < 50 && !wasReplaced; ++attempt) {
        const ReceivedFile file = Made(directory_ / "made");
        fs::resize_file(directory_ / "made", 32U << 20U);
        static_cast<void>(directory_.Write("other", "other"));
        std::atomic<bool> isOver{false};
        std::thread replacer([&] {
            while (!isOver && !IsOpenHere(directory_ / "made")) {
            }
            fs::rename(directory_ / "other", directory_ / "made");
        });
        const Received received = outbox.Receive(file);
        isOver = true;
        replacer.join();
        wasReplaced = received.outcome != Received::Outcome::kDone;
        if (wasReplaced) {
            EXPECT_EQ(received.problem, directory_.At("made") + ": it was replaced while it was moved");
        }
    }
    EXPECT_TRUE(wasReplaced);
    EXPECT_EQ(directory_.Read("made"), "other");
}

}  // namespace
