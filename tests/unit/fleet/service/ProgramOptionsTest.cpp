#include <gtest/gtest.h>

#include "fleet/service/ProgramOptions.h"
#include "support/TempDirectory.h"

namespace {

class ProgramOptionsTest : public testing::Test {
protected:
    ~ProgramOptionsTest() override { LumDebugContext::Default().SetLevel(LumLogLevel::kPrint); }

    std::optional<int> Read(const std::vector<std::string>& words) {
        ProgramOptions options("Does something", "program", "Section");
        options.Add("--some-text", text_, "TEXT", "A text");
        options.Add("--number", number_, 1, 10, "A number");
        options.Add("--switch", switch_, "A switch");
        options.AddBroker(broker_);
        std::vector<const char*> pointers{"program"};
        for (const std::string& word : words) {
            pointers.push_back(word.c_str());
        }
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        const std::optional<int> status = options.Read(static_cast<int>(pointers.size()), pointers.data());
        said_ = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
        return status;
    }
    std::optional<int> ReadIni(const std::string& text, std::vector<std::string> words = {}) {
        words.insert(words.begin(), {"--config", scratch_.Write("program.ini", text)});
        return Read(words);
    }

    TempDirectory scratch_;
    std::string text_ = "default";
    int64_t number_ = 5;
    bool switch_ = false;
    BrokerSettings broker_;
    std::string said_;
};

TEST_F(ProgramOptionsTest, LeavesDefaultsWhereNothingIsSaid) {
    EXPECT_EQ(Read({}), std::nullopt);
    EXPECT_EQ(text_, "default");
    EXPECT_EQ(number_, 5);
    EXPECT_FALSE(switch_);
    EXPECT_EQ(said_, "");
}

TEST_F(ProgramOptionsTest, TakesTheFilesKeysInUpperCamelCase) {
    EXPECT_EQ(ReadIni("[Section]\nSomeText = a text\nNumber = 7\nSwitch = yes\nTlsKey = /key\n"),
              std::nullopt);
    EXPECT_EQ(text_, "a text");
    EXPECT_EQ(number_, 7);
    EXPECT_TRUE(switch_);
    EXPECT_EQ(broker_.keyFile, "/key");
}

TEST_F(ProgramOptionsTest, TheCommandLineWinsOverTheFile) {
    EXPECT_EQ(ReadIni("[Section]\nSomeText = of the file\nNumber = 7\n", {"--some-text", "of the line"}),
              std::nullopt);
    EXPECT_EQ(text_, "of the line");
    EXPECT_EQ(number_, 7);
}

TEST_F(ProgramOptionsTest, OtherSectionsAreOfNoConcern) {
    EXPECT_EQ(ReadIni("[Other]\nNobodyKnows = 1\n"), std::nullopt);
}

TEST_F(ProgramOptionsTest, SaysWhichSettingOfTheFileIsUnknown) {
    EXPECT_EQ(ReadIni("[Section]\nNumbr = 7\n"), 2);
    EXPECT_NE(said_.find("[Section] has no setting 'Numbr'"), std::string::npos) << said_;
}

TEST_F(ProgramOptionsTest, HoldsTheFileToTheSameBoundsAsTheCommandLine) {
    EXPECT_EQ(ReadIni("[Section]\nNumber = 11\n"), 2);
    EXPECT_NE(said_.find("11 not in range"), std::string::npos) << said_;
    EXPECT_EQ(Read({"--number", "11"}), 2);
    EXPECT_EQ(Read({"--number", "x"}), 2);
}

TEST_F(ProgramOptionsTest, AFileThatCannotBeReadIsAMistake) {
    EXPECT_EQ(Read({"--config", scratch_ / "missing.ini"}), 2);
    EXPECT_NE(said_.find("missing.ini: No such file or directory"), std::string::npos) << said_;
}

TEST_F(ProgramOptionsTest, HelpAndVersionEndTheProgramWell) {
    EXPECT_EQ(Read({"--help"}), 0);
    EXPECT_NE(said_.find("Does something"), std::string::npos);
    EXPECT_EQ(Read({"--version"}), 0);
    EXPECT_EQ(said_.find("program "), 0U);
    EXPECT_EQ(Read({"--nonsense"}), 2);
}

TEST_F(ProgramOptionsTest, SetsTheLevelOfTheLog) {
    EXPECT_EQ(Read({"--log-level", "error"}), std::nullopt);
    EXPECT_TRUE(LumDebugContext::Default().IsEnabled(LumLogLevel::kError));
    EXPECT_FALSE(LumDebugContext::Default().IsEnabled(LumLogLevel::kWarning));
    EXPECT_EQ(Read({"--log-level", "loud"}), 2);
}

}  // namespace
