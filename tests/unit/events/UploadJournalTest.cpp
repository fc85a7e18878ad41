#include <algorithm>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "events/UploadJournal.h"
#include "store/Paths.h"
#include "support/CallRecord.h"
#include "support/TempDirectory.h"
#include "support/shim/FaultPlan.h"

namespace {

class UploadJournalTest : public testing::Test {
protected:
    UploadJournalTest() { DataDirectory = directory_.At("data"); }
    ~UploadJournalTest() override { DataDirectory.Clear(); }

    [[nodiscard]] static UploadJournal Read() {
        UploadJournal journal("Logon");
        LumString error;
        EXPECT_EQ(journal.Load(error), UploadJournal::Found::kRead) << error.GetString();
        return journal;
    }
    [[nodiscard]] std::string Text() const { return directory_.Read("data/uploads/Logon"); }

    const TempDirectory directory_;
    LumString error_;
};

TEST_F(UploadJournalTest, IsReadAsItWasWritten) {
    UploadJournal journal("Logon");
    EXPECT_EQ(journal.Load(error_), UploadJournal::Found::kNothing);
    ASSERT_TRUE(journal.Append({-5, 1000}, error_)) << error_.GetString();
    EXPECT_EQ(Text(),
              "{\"HandedOver\":\"0         \",\"Events\":\"-1        \",\"LastId\":\"0                   \","
              "\"Starts\":[-5],\"Ends\":[1000]}\n");
    EXPECT_FALSE(Read().GetExtent().has_value());
    ASSERT_TRUE(journal.SetExtent({4000000000U, INT64_MAX}, error_));
    ASSERT_TRUE(journal.AddHandedOver(3999999999U, error_));
    ASSERT_TRUE(journal.Append({1000, 1200}, error_));
    EXPECT_EQ(Read().GetExtent(), (UploadExtent{4000000000U, INT64_MAX}));
    EXPECT_EQ(Read().GetHandedOver(), 3999999999U);
    EXPECT_EQ(Read().GetWindows(), (std::vector<EventWindow>{{-5, 1000}, {1000, 1200}}));
    ASSERT_TRUE(journal.FinishFirst(error_));
    EXPECT_EQ(Read().GetWindows(), (std::vector<EventWindow>{{1000, 1200}}));
    EXPECT_EQ(Read().GetHandedOver(), 0U);
    ASSERT_TRUE(journal.FinishFirst(error_));
    EXPECT_FALSE(directory_.Has("data/uploads/Logon"));
}

TEST_F(UploadJournalTest, IsSyncedAfterEachFileButTheLast) {
    UploadJournal journal("Logon");
    ASSERT_TRUE(journal.Append({0, 100}, error_));
    const CallRecord record;
    std::size_t syncs = 0;
    ASSERT_TRUE(journal.SetExtent({250, 250}, error_));
    EXPECT_EQ(record.All("sync").size(), ++syncs);
    ASSERT_TRUE(journal.AddHandedOver(100, error_));
    EXPECT_EQ(record.All("sync").size(), ++syncs);
    ASSERT_TRUE(journal.AddHandedOver(100, error_));
    EXPECT_EQ(record.All("sync").size(), ++syncs);
    ASSERT_TRUE(journal.AddHandedOver(50, error_));
    EXPECT_EQ(record.All("sync").size(), syncs) << "a file may come twice";
}

TEST_F(UploadJournalTest, LetsAWindowGrowThatIsNotBegun) {
    UploadJournal journal("Logon");
    ASSERT_TRUE(journal.Append({0, 10}, error_));
    ASSERT_TRUE(journal.Append({10, 20}, error_));
    EXPECT_EQ(journal.GetWindows(), (std::vector<EventWindow>{{0, 20}}));
    ASSERT_TRUE(journal.SetExtent({5, 5}, error_));
    ASSERT_TRUE(journal.Append({20, 30}, error_));
    ASSERT_TRUE(journal.Append({30, 40}, error_));
    ASSERT_TRUE(journal.Append({50, 60}, error_));
    EXPECT_EQ(Read().GetWindows(), (std::vector<EventWindow>{{0, 20}, {20, 40}, {50, 60}}));
}

TEST_F(UploadJournalTest, ForgetsWhatIsNotMarked) {
    UploadJournal journal("Logon");
    ASSERT_TRUE(journal.Append({0, 10}, error_));
    ASSERT_TRUE(journal.Append({10, 20}, error_));
    ASSERT_TRUE(journal.ForgetAfter(10, error_));
    EXPECT_EQ(Read().GetWindows(), (std::vector<EventWindow>{{0, 10}}));
    ASSERT_TRUE(journal.SetExtent({5, 5}, error_));
    ASSERT_TRUE(journal.ForgetAfter(10, error_));
    EXPECT_TRUE(journal.GetExtent().has_value());
    ASSERT_TRUE(journal.ForgetAfter(0, error_));
    EXPECT_TRUE(journal.IsEmpty());
    EXPECT_FALSE(directory_.Has("data/uploads/Logon"));
}

TEST_F(UploadJournalTest, RefusesWhatIsNotOne) {
    const char* const texts[] = {
        "",
        "{}",
        R"({"HandedOver":"0","Events":"x","LastId":"0","Starts":[0],"Ends":[1]})",
        R"({"HandedOver":"0","Events":"1","LastId":"0","Starts":[0],"Ends":[]})",
        R"({"HandedOver":"0","Events":"1","LastId":"0","Starts":[],"Ends":[]})",
        R"({"HandedOver":"0","Events":"1","LastId":"0","Starts":[null],"Ends":[1]})"};
    for (const char* const text : texts) {
        directory_.Write("data/uploads/Logon", text);
        UploadJournal journal("Logon");
        EXPECT_EQ(journal.Load(error_), UploadJournal::Found::kDamaged) << text;
        EXPECT_TRUE(journal.IsEmpty());
        EXPECT_FALSE(directory_.Has("data/uploads/Logon"));
        EXPECT_NE(error_.View().find("uploads/Logon is not a journal; it is now"), std::string_view::npos);
    }
}

TEST_F(UploadJournalTest, AreListedWithoutWhatACutOffWriteLeft) {
    std::vector<LumString> models;
    EXPECT_TRUE(ListUploadJournals(models));
    EXPECT_TRUE(models.empty());
    directory_.Write("data/uploads/Logon", "");
    directory_.Write("data/uploads/.lum-abcdef", "");
    directory_.Write("data/uploads/.damaged-1", "");
    EXPECT_TRUE(ListUploadJournals(models));
    ASSERT_EQ(models.size(), 1U);
    EXPECT_TRUE(models[0] == "Logon");
    EXPECT_FALSE(directory_.Has("data/uploads/.lum-abcdef"));
    EXPECT_TRUE(directory_.Has("data/uploads/.damaged-1"));
}

/// Whatever call fails, the object knows how far the upload came, and writes it once it can.
TEST_F(UploadJournalTest, CatchesUpAfterAnyCallThatFails) {
    FaultPlan plan;
    plan.Watch(directory_.Path().string());
    FaultShimUse(&plan);
    for (uint64_t nth = 1, calls = nth; nth <= calls; ++nth) {
        UploadJournal journal("Logon");
        plan.Arm(FaultPlan::Kind::kBroken, nth);
        const bool written = journal.Append({0, 10}, error_) & journal.SetExtent({9, 9}, error_) &
                             journal.AddHandedOver(4, error_);
        calls = plan.Disarm();
        EXPECT_TRUE(written || nth <= calls);
        EXPECT_TRUE(journal.Store(error_)) << error_.GetString();
        EXPECT_EQ(Read().GetHandedOver(), 4U) << nth;
        EXPECT_EQ(Read().GetExtent(), (UploadExtent{9, 9})) << nth;
        EXPECT_TRUE(journal.FinishFirst(error_));
    }
    FaultShimUse(nullptr);
}

TEST_F(UploadJournalTest, SaysWhyItCannotBeRemoved) {
    UploadJournal journal("Logon");
    ASSERT_TRUE(journal.Append({0, 10}, error_)) << error_.GetString();
    FaultPlan plan;
    plan.Watch(directory_ / "data/uploads/Logon");
    FaultShimUse(&plan);
    plan.Arm(FaultPlan::Kind::kBroken, 1, FaultPlan::kForEver);
    EXPECT_FALSE(journal.FinishFirst(error_));
    plan.Disarm();
    FaultShimUse(nullptr);
    EXPECT_EQ(error_, directory_.At("data/uploads/Logon") + ": Input/output error");
    EXPECT_TRUE(journal.Store(error_));
    EXPECT_FALSE(directory_.Has("data/uploads/Logon"));
}

}  // namespace
