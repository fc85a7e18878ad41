#include <string>

#include <gtest/gtest.h>

#include "machine/packages/LogFile.h"
#include "support/TempDirectory.h"

namespace {

class LogFileTest : public testing::Test {
protected:
    TempDirectory directory_;
    LogFile file_;
    LumString error_;
};

TEST_F(LogFileTest, SaysWhyItCannotBeOpened) {
    EXPECT_FALSE(file_.Open("/nowhere", error_));
    EXPECT_EQ(error_, "/nowhere: No such file or directory");
    EXPECT_FALSE(file_.Open(directory_.At(""), error_));
    EXPECT_TRUE(error_.View().ends_with(": it is not a regular file")) << error_.GetString();
    EXPECT_FALSE(file_.IsAt("/nowhere"));
}

TEST_F(LogFileTest, HasNoDigestOfWhatIsNotThere) {
    directory_.Write("log", "0123456789\n");
    ASSERT_TRUE(file_.Open(directory_.At("log"), error_)) << error_.GetString();
    EXPECT_NE(file_.DigestBefore(10, 5), "");
    EXPECT_EQ(file_.DigestBefore(12, 5), "");
    EXPECT_EQ(file_.DigestBefore(1000, 5), "");
    EXPECT_FALSE(file_.Seek(12));
    std::string line;
    EXPECT_FALSE(file_.TakeTornLine(line));
}

}  // namespace
