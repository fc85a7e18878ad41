#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "alerts/AlertGapTable.h"
#include "events/EventUpload.h"
#include "module/Configuration.h"
#include "support/ResourceLimit.h"
#include "support/TestHost.h"

namespace {

using testing::Contains;

class Configuration : public testing::Test {
protected:
    Configuration() { TestHost::Initialise(); }

    static std::string Values(const std::string& values) { return R"({"Values":)" + values + "}"; }
    static TestHost::Answer Set(const std::string& values) {
        return TestHost::Call("EventLogManagerSetValues", Values(values));
    }
    static std::string Get() { return TestHost::Call("EventLogManagerGetValues", "").container; }
    [[nodiscard]] std::string Ini() const { return host_.Directory().Read(TestHost::kIni); }
    void WriteIni(const std::string& text) const { host_.Directory().Write(TestHost::kIni, text); }

    const TestHost host_;
};

const TestHost::Answer kDone{0, "{}"};

TEST_F(Configuration, TakesDefaultsWithoutAnIniFile) {
    std::filesystem::remove(host_.Directory().Path() / TestHost::kIni);
    const std::size_t before = host_.Log().size();
    LoadConfiguration();
    const std::vector<std::string> log = host_.Log();
    EXPECT_EQ(std::vector<std::string>(log.begin() + static_cast<std::ptrdiff_t>(before), log.end()),
              (std::vector<std::string>{"trace LoadConfiguration: Entering",
                                        "trace LoadConfiguration: Upload flag is 1",
                                        "trace LoadConfiguration: Aggregation flag is 1",
                                        "trace LoadConfiguration: Alert minimum gap is 60"}));
}

TEST_F(Configuration, ChangesOneSettingAndLeavesTheOthers) {
    WriteIni("[EventLogManager]\nEnableUpload = 0\n");
    EXPECT_EQ(Set(R"({"AlertMinimumGap":120})"), kDone);
    EXPECT_EQ(AlertMinimumGap.load(), 120);
    EXPECT_EQ(Ini().find("EnableAggregation"), std::string::npos);
    EXPECT_EQ(Get(), R"({"Values":{"EnableUpload":false,"EnableAggregation":true,"AlertMinimumGap":120}})");
}

TEST_F(Configuration, WritesSwitchesAsOneAndZero) {
    WriteIni("[EventLogManager]\n");
    EXPECT_EQ(Set(R"({"EnableUpload":false,"EnableAggregation":true})"), kDone);
    EXPECT_FALSE(UploadEnabled.load());
    LumString text;
    EXPECT_EQ(Ini(), "[EventLogManager]\nEnableUpload = 0\nEnableAggregation = 1\n");
}

TEST_F(Configuration, ChangesNothingWithoutValues) {
    const std::string before = Ini();
    EXPECT_EQ(TestHost::Call("EventLogManagerSetValues", R"({"Other":1})"), kDone);
    EXPECT_EQ(Set(R"({"Colour":"red"})"), kDone);
    EXPECT_EQ(Ini(), before);
}

TEST_F(Configuration, KeepsASettingOfTheWrongKindAndWritesTheOneInForce) {
    WriteIni("[EventLogManager]\n");
    EXPECT_EQ(Set(R"({"EnableUpload":0,"AlertMinimumGap":true})"), kDone);
    EXPECT_TRUE(UploadEnabled.load());
    EXPECT_EQ(AlertMinimumGap.load(), 60);
    EXPECT_EQ(Ini(), "[EventLogManager]\nEnableUpload = 1\nAlertMinimumGap = 60\n");
}

TEST_F(Configuration, ReadsTheFileAgainForEachAnswer) {
    WriteIni("[EventLogManager]\nAlertMinimumGap = 7\n");
    EXPECT_EQ(Get(), R"({"Values":{"EnableUpload":true,"EnableAggregation":true,"AlertMinimumGap":7}})");
}

TEST_F(Configuration, ForgetsWhatCouldNotBeWritten) {
    {
        const ResourceLimit full(RLIMIT_FSIZE, 0);
        EXPECT_EQ(Set(R"({"AlertMinimumGap":5})"), kDone);
    }
    EXPECT_EQ(AlertMinimumGap.load(), 5);
    Get();
    EXPECT_EQ(AlertMinimumGap.load(), 60);
}

TEST_F(Configuration, LogsNothingWhenSettingsChange) {
    const std::size_t before = host_.Log().size();
    Set(R"({"AlertMinimumGap":1})");
    EXPECT_EQ(host_.Log().size(), before);
}

TEST_F(Configuration, StaysInForceWhereTheFileCannotBeRead) {
    EXPECT_EQ(Set(R"({"EnableUpload":false,"EnableAggregation":false,"AlertMinimumGap":7})"), kDone);
    std::filesystem::remove(host_.Directory().Path() / TestHost::kIni);
    std::filesystem::create_directory(host_.Directory().Path() / TestHost::kIni);
    EXPECT_EQ(Get(), R"({"Values":{"EnableUpload":false,"EnableAggregation":false,"AlertMinimumGap":7}})");
    EXPECT_EQ(Set(R"({"EnableUpload":true})"), kDone);
    EXPECT_EQ(
        host_.CountLines("error ActionHandler_EventLogManagerSetValues: Failed to write 'EnableUpload', the "
                         "file keeps the former value"),
        1U);
    EXPECT_EQ(Get(), R"({"Values":{"EnableUpload":true,"EnableAggregation":false,"AlertMinimumGap":7}})");
    std::filesystem::remove(host_.Directory().Path() / TestHost::kIni);
    EXPECT_EQ(Get(), R"({"Values":{"EnableUpload":true,"EnableAggregation":true,"AlertMinimumGap":60}})");
}

}  // namespace
