#include <gtest/gtest.h>

#include "support/AgentProcess.h"
#include "support/TempDirectory.h"

namespace {

/// The program that the package's installation calls.
class MainTest : public testing::Test {
protected:
    /// Its status; what it says is in output_.
    int Run(const std::vector<std::string>& arguments) {
        std::vector<std::string> words{BinaryDirectory() + "/bring-settings"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        Process program;
        program.Start(words, directory_ / "output");
        const int status = program.Wait();
        output_ = directory_.Read("output");
        return status;
    }

    TempDirectory directory_;
    std::string output_;
};

TEST_F(MainTest, BringsTheSettingsOfOneDirectoryToAnother) {
    directory_.Write("shipped/x.ini", "[S]\nKey = 1\n");
    directory_.MakeDirectory("own");
    EXPECT_EQ(Run({directory_ / "shipped", directory_ / "own"}), 0);
    EXPECT_EQ(output_, "");
    EXPECT_EQ(directory_.Read("own/x.ini"), "[S]\nKey = 1\n");
}

TEST_F(MainTest, SaysWhatFailed) {
    directory_.MakeDirectory("own");
    EXPECT_EQ(Run({directory_ / "missing", directory_ / "own"}), 1);
    EXPECT_EQ(output_, "bring-settings: Cannot read the directory " + directory_ / "missing" +
                           ": No such file or directory\n");
}

TEST_F(MainTest, SaysHowItIsCalled) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, {directory_ / "own"}, {directory_ / "a", directory_ / "b", "c"}}) {
        EXPECT_EQ(Run(arguments), 2);
        EXPECT_EQ(output_, "Usage: bring-settings SHIPPED-DIRECTORY CONFIGURATION-DIRECTORY\n");
        directory_.Write("output", "");
    }
}

}  // namespace
