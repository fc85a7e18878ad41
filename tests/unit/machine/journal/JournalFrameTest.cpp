#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "machine/journal/JournalFrame.h"

namespace {

using Cut = JournalFrameBuffer::Cut;

TEST(JournalFrame, ComesInAnyPieces) {
    const std::string bytes = MakeFrame(JournalSaying::kGap, {"17"}) + MakeFrame(JournalSaying::kEnd);
    JournalFrameBuffer buffer;
    JournalFrame frame;
    std::string said;
    for (const char byte : bytes) {
        EXPECT_EQ(buffer.Next(frame), Cut::kIncomplete);
        buffer.Append(std::string_view(&byte, 1));
        if (buffer.Next(frame) == Cut::kFrame) {
            said += static_cast<char>(frame.saying) + std::string(frame.GetText()) + " ";
        }
    }
    EXPECT_EQ(said, "G17 C ");
}

TEST(JournalFrame, AnEntrySurvivesTheWay) {
    JournalEntry entry;
    entry.cursor = "s=1;t=2";
    entry.time = 1'780'000'000;
    entry.Add("MESSAGE", std::string_view("a\0\n\xff", 4));
    entry.Add("_UID", "0");
    entry.Add("_UID", "1000");
    JournalFrameBuffer buffer;
    buffer.Append(MakeEntryFrame(entry));
    JournalFrame frame;
    ASSERT_EQ(buffer.Next(frame), Cut::kFrame);
    JournalEntry read;
    ASSERT_TRUE(frame.ReadEntry(read));
    EXPECT_EQ(read.cursor, "s=1;t=2");
    EXPECT_EQ(read.time, 1'780'000'000);
    EXPECT_TRUE(read.Is("MESSAGE", std::string_view("a\0\n\xff", 4)));
    EXPECT_EQ(read.Get("_UID"), "0");
    EXPECT_FALSE(read.Is("_UID", "0")) << "that the field was there twice is lost";
}

TEST(JournalEntry, IsTheSameInEveryFileThatHoldsIt) {
    JournalEntry entry;
    entry.cursor = "s=1;i=2;b=3;m=4;t=5;x=6";
    EXPECT_EQ(entry.Identity(), "b=3;m=4;t=5;x=6");
    entry.cursor = "s=1;i=2";
    EXPECT_EQ(entry.Identity(), "s=1;i=2") << "it says no more";
}

TEST(JournalFrame, WhatIsNotOneIsRefused) {
    JournalFrame frame;
    JournalFrameBuffer tooLong;
    tooLong.Append(std::string_view("E\xff\xff\xff\x7f", 5));
    EXPECT_EQ(tooLong.Next(frame), Cut::kRefused);
    JournalFrameBuffer textTooLong;
    textTooLong.Append(std::string_view("E\x05\0\0\0\x09\0\0\0x", 10));
    EXPECT_EQ(textTooLong.Next(frame), Cut::kRefused);
    JournalFrameBuffer leftOver;
    leftOver.Append(std::string_view("E\x02\0\0\0xx", 7));
    EXPECT_EQ(leftOver.Next(frame), Cut::kRefused);
}

TEST(JournalFrame, AnEntryWithoutCursorTimeOrValueIsNone) {
    JournalEntry entry;
    JournalFrame frame;
    EXPECT_FALSE(frame.ReadEntry(entry));
    frame.saying = JournalSaying::kEntry;
    EXPECT_FALSE(frame.ReadEntry(entry));
    frame.texts = {"s=1", "17", "MESSAGE"};
    EXPECT_FALSE(frame.ReadEntry(entry));
    frame.texts = {"s=1", "x"};
    EXPECT_FALSE(frame.ReadEntry(entry));
    frame.texts = {"s=1", "17"};
    EXPECT_TRUE(frame.ReadEntry(entry));
}

}  // namespace
