#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "events/EventUpload.h"
#include "events/UploadJournal.h"
#include "events/UploadLeftOvers.h"
#include "host/container/LumContainer.h"
#include "support/FileStoreStandIn.h"
#include "support/StartedModule.h"
#include "support/shim/FaultPlan.h"

namespace {

namespace fs = std::filesystem;

class UploadLeftOversTest : public testing::Test, protected StartedModule {
protected:
    /// A container file as a process left it that ended two minutes ago.
    static std::string Leave(const LumContainer& content) {
        const std::string path = content.SaveToTempFile().GetString();
        Age(path);
        return path;
    }
    static void Age(const std::string& path) {
        fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::minutes(2));
    }
    static LumContainer Alert() {
        LumContainer content;
        content.SetString("Description", "disk full");
        content.SetInt32("EventDate", 5);
        content.SetInt32("EventGMTOffset", 0);
        return content;
    }
    static LumContainer Events() {
        LumContainer description;
        description.SetString("ModelName", "Logon");
        LumContainer content;
        content.SetContainer("ModelDef", description);
        content.SetInt32("EventDate", 5, 0);
        content.SetInt32("EventGMTOffset", 0, 0);
        return content;
    }
    static LumString TypeOf(const LumContainer& request) {
        LumString type;
        EXPECT_TRUE(request.GetString("FileType", type));
        return type;
    }
};

TEST_F(UploadLeftOversTest, AreHandedOverAsWhatTheyAre) {
    const std::string alert = Leave(Alert());
    HandOverLeftOvers();
    EXPECT_TRUE(fs::exists(alert)) << "nobody is there to take it";
    const FileStoreStandIn received;
    HandOverLeftOvers();
    ASSERT_EQ(received.Requests().size(), 1U);
    EXPECT_STREQ(TypeOf(received.Requests()[0]).GetString(), "EventManagerEvent");
    EXPECT_FALSE(received.Requests()[0].Contains("Priority"));
    Leave(Events());
    ResumeUploads();  // as each cycle does
    ASSERT_EQ(received.Requests().size(), 2U);
    EXPECT_STREQ(TypeOf(received.Requests()[1]).GetString(), "EventLogManagerEvents");
    int32_t priority = 0;
    EXPECT_TRUE(received.Requests()[1].GetInt32("Priority", priority));
    EXPECT_EQ(priority, 100);
    EXPECT_EQ(received.Files().size(), 2U);
}

TEST_F(UploadLeftOversTest, AreLeftToWhoMakesThemAtThisMoment) {
    const FileStoreStandIn received;
    const std::string path = Alert().SaveToTempFile().GetString();
    HandOverLeftOvers();
    EXPECT_TRUE(fs::exists(path));
    EXPECT_TRUE(received.Requests().empty());
    fs::last_write_time(path,
                        fs::file_time_type::clock::now() + std::chrono::hours(24));  // the clock was ahead
    HandOverLeftOvers();
    EXPECT_EQ(received.Files().size(), 1U);
}

TEST_F(UploadLeftOversTest, AreDeletedWhereTheUploadMakesThemAgain) {
    const FileStoreStandIn received;
    Add({});
    UploadJournal journal("Logon");
    LumString error;
    ASSERT_TRUE(journal.Append({0, 10}, error));
    const std::string path = Leave(Events());
    HandOverLeftOvers();
    EXPECT_FALSE(fs::exists(path));
    EXPECT_TRUE(received.Requests().empty());
}

TEST_F(UploadLeftOversTest, AreDeletedWhereTheyAreNotWhole) {
    const FileStoreStandIn received;
    const std::string bytes = Alert().ToCbor();
    const std::string half = Directory().Write("data/tmp/lum-abcdef", bytes.substr(0, bytes.size() / 2));
    Age(half);
    HandOverLeftOvers();
    EXPECT_FALSE(fs::exists(half));
    EXPECT_TRUE(received.Requests().empty());
}

TEST_F(UploadLeftOversTest, OfOthersStay) {
    const FileStoreStandIn received;
    const std::string named = Directory().Write("data/tmp/mine.cbor", Alert().ToCbor());
    Age(named);
    LumContainer other;
    other.SetString("Anything", "else");
    const std::string container = Leave(other);
    fs::create_symlink("/etc/passwd", Directory() / "data/tmp/lum-linked");
    HandOverLeftOvers();
    EXPECT_TRUE(fs::exists(named));
    EXPECT_TRUE(fs::exists(container));
    EXPECT_TRUE(Directory().Has("data/tmp/lum-linked"));
    EXPECT_TRUE(received.Requests().empty());
}

TEST_F(UploadLeftOversTest, WaitOnWhereTheStoreTakesNoMore) {
    Leave(Alert());
    Leave(Alert());
    int calls = 0;
    {
        const FileStoreStandIn full([&](const auto&, const auto&) { return ++calls, 1U; });
        HandOverLeftOvers();
    }
    EXPECT_EQ(calls, 1);
    const FileStoreStandIn received;
    HandOverLeftOvers();
    EXPECT_EQ(received.Files().size(), 2U);
}

TEST_F(UploadLeftOversTest, StayWhereTheyCannotBeReadAndHoldNoOtherUp) {
    const std::string locked = Leave(Alert());
    const std::string other = Leave(Alert());
    const FileStoreStandIn received;
    FaultPlan plan;
    plan.Watch(locked);
    FaultShimUse(&plan);
    plan.Arm(FaultPlan::Kind::kNoFiles, 1);
    HandOverLeftOvers();
    plan.Disarm();
    FaultShimUse(nullptr);
    EXPECT_EQ(received.Requests().size(), 1U);
    EXPECT_TRUE(fs::exists(locked));
    HandOverLeftOvers();
    EXPECT_EQ(received.Requests().size(), 2U);
}

}  // namespace
