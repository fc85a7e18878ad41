#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "client/text/LineReader.h"

namespace {

TEST(LineReader, ReadsLinesAndCountsThem) {
    std::istringstream in("one\n\nthree\r\nlast");
    LineReader reader(in);
    std::string line;
    ASSERT_EQ(reader.Next(line), LineReader::Line::kText);
    EXPECT_EQ(line, "one");
    EXPECT_EQ(reader.GetNumber(), 1U);
    EXPECT_EQ(reader.GetBytes(), 4U);
    ASSERT_EQ(reader.Next(line), LineReader::Line::kText);
    EXPECT_EQ(line, "");
    ASSERT_EQ(reader.Next(line), LineReader::Line::kText);
    ASSERT_EQ(reader.Next(line), LineReader::Line::kText);
    EXPECT_EQ(line, "last");
    EXPECT_EQ(reader.GetNumber(), 4U);
    EXPECT_EQ(reader.Next(line), LineReader::Line::kEnd);
}

TEST(LineReader, PassesOverWhatIsTooLong) {
    std::istringstream in("12345\n1234\n123456789012\n1\n");
    LineReader reader(in, 4);
    std::string line;
    EXPECT_EQ(reader.Next(line), LineReader::Line::kTooLong);
    ASSERT_EQ(reader.Next(line), LineReader::Line::kText);
    EXPECT_EQ(line, "1234");
    EXPECT_EQ(reader.Next(line), LineReader::Line::kTooLong);
    EXPECT_EQ(reader.GetNumber(), 3U);
    ASSERT_EQ(reader.Next(line), LineReader::Line::kText);
    EXPECT_EQ(line, "1");
    EXPECT_EQ(reader.Next(line), LineReader::Line::kEnd);
}

}  // namespace
