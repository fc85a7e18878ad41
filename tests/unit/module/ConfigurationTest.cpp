#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "alerts/AlertGapTable.h"
#include "events/EventUpload.h"
#include "host/log/LumDebug.h"
#include "module/Configuration.h"
#include "support/LinkedModule.h"
#include "support/ResourceLimit.h"

namespace {

using testing::Contains;

class Configuration : public testing::Test, protected LinkedModule {
protected:
    Configuration() { Initialise(); }

    static std::string Values(const std::string& values) { return R"({"Values":)" + values + "}"; }
    static Answer Set(const std::string& values) { return Call("EventLogManagerSetValues", Values(values)); }
    static std::string Get() { return Call("EventLogManagerGetValues", "").container; }
    [[nodiscard]] std::string Ini() const { return Directory().Read(kIni); }
    void WriteIni(const std::string& text) const { Directory().Write(kIni, text); }
};

const TestAgent::Answer kDone{0, "{}"};

TEST_F(Configuration, TakesDefaultsWithoutAnIniFile) {
    std::filesystem::remove(Directory().Path() / kIni);
    Log().Forget();
    LoadConfiguration();
    EXPECT_EQ(Log().Said(LumLogLevel::kTrace),
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
    EXPECT_EQ(Call("EventLogManagerSetValues", R"({"Other":1})"), kDone);
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
    Log().Forget();
    Set(R"({"AlertMinimumGap":1})");
    EXPECT_TRUE(Log().Said(LumLogLevel::kTrace).empty());
}

TEST_F(Configuration, StaysInForceWhereTheFileCannotBeRead) {
    EXPECT_EQ(Set(R"({"EnableUpload":false,"EnableAggregation":false,"AlertMinimumGap":7})"), kDone);
    std::filesystem::remove(Directory().Path() / kIni);
    std::filesystem::create_directory(Directory().Path() / kIni);
    EXPECT_EQ(Get(), R"({"Values":{"EnableUpload":false,"EnableAggregation":false,"AlertMinimumGap":7}})");
    EXPECT_EQ(Set(R"({"EnableUpload":true})"), kDone);
    EXPECT_EQ(Log().Count("error ActionHandler_EventLogManagerSetValues: Failed to write 'EnableUpload', the "
                          "file keeps the former value"),
              1U);
    EXPECT_EQ(Get(), R"({"Values":{"EnableUpload":true,"EnableAggregation":false,"AlertMinimumGap":7}})");
    std::filesystem::remove(Directory().Path() / kIni);
    EXPECT_EQ(Get(), R"({"Values":{"EnableUpload":true,"EnableAggregation":true,"AlertMinimumGap":60}})");
}

TEST_F(Configuration, HasNothingToDoWithoutAContainer) {
    const std::string before = Ini();
    EXPECT_EQ(ActionHandler_EventLogManagerSetValues(nullptr), 0U);
    EXPECT_EQ(ActionHandler_EventLogManagerGetValues(nullptr), 0U);
    EXPECT_EQ(Ini(), before);
}

}  // namespace
