#include <atomic>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "host/ini/IniFile.h"
#include "support/LogReader.h"
#include "support/ResourceLimit.h"
#include "support/TempDirectory.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr std::size_t kMaxBytes = std::size_t{4} << 20U;

/// An ini file of a given content, and what the host logs about it.
class IniFileTest : public testing::Test {
protected:
    void Content(std::string_view content) { directory_.Write("x.ini", content); }
    [[nodiscard]] std::string Content() const { return directory_.Read("x.ini"); }

    [[nodiscard]] std::string Text(const LumString& section, const LumString& key) const {
        LumString value;
        return ini_.GetEntryValue(section, key, value, "(none)") ? value.GetString() : "(none)";
    }
    /// The value, or `defaultValue` with a star where that was taken.
    [[nodiscard]] std::string Int(const LumString& key, int32_t defaultValue = 7) const {
        int32_t value = 99;
        const bool found = ini_.GetEntryValue("S", key, value, defaultValue);
        return std::to_string(value) + (found ? "" : "*");
    }
    [[nodiscard]] std::string Bool(const LumString& key, bool defaultValue) const {
        bool value = !defaultValue;
        const bool found = ini_.GetEntryValue("S", key, value, defaultValue);
        return std::string(value ? "true" : "false") + (found ? "" : "*");
    }
    [[nodiscard]] std::vector<std::string> Entries(const LumString& section) const {
        std::vector<std::string> list;
        for (const auto& [key, value] : ini_.GetEntries(section)) {
            list.push_back(std::string(key.View()) + "=" + std::string(value.View()));
        }
        return list;
    }
    /// The one line that was logged.
    [[nodiscard]] std::string OnlyLine() const {
        const std::vector<std::string> lines = log_.Said();
        return lines.size() == 1 ? lines.front() : std::to_string(lines.size()) + " lines";
    }

    TempDirectory directory_;
    IniFile ini_{directory_.At("x.ini")};
    HostLogLines log_;
};

}  // namespace

TEST_F(IniFileTest, ReadsTextAsItStands) {
    Content(
        "; comment\n# comment\n[S]\nplain = value\n  padded\t=\t two  words \t\nempty=\n"
        "sql = insert into T values ('a;b', 'c=d'); # no comment\nquoted = \"q\"\nM\u00fcller = \u20ac\n"
        "multi = <<<END\nEND = x\n;off = 1\nno value\n= no key\n");
    EXPECT_EQ(Text("S", "plain"), "value");
    EXPECT_EQ(Text("S", "padded"), "two  words");
    EXPECT_EQ(Text("S", "empty"), "");
    EXPECT_EQ(Text("S", "sql"), "insert into T values ('a;b', 'c=d'); # no comment");
    EXPECT_EQ(Text("S", "quoted"), "\"q\"");
    EXPECT_EQ(Text("S", "M\u00fcller"), "\u20ac");
    EXPECT_EQ(Text("S", "multi"), "<<<END");
    EXPECT_EQ(Text("S", "off"), "(none)");
    EXPECT_EQ(Text("S", "no value"), "(none)");
    EXPECT_EQ(Text("S", ""), "(none)");
    EXPECT_EQ(Text("s", "PLAIN"), "value");
    EXPECT_EQ(Text("T", "plain"), "(none)");
    EXPECT_THAT(log_.Said(), IsEmpty());
}

TEST_F(IniFileTest, TellsKeysOfOneSectionFromThoseOfAnother) {
    Content("k = 0\n[A]\nk = 1\n[ B ] trailing\nk = 2\n[a]\nj = 3\n");
    EXPECT_EQ(Text("", "k"), "0");
    EXPECT_EQ(Text("A", "k"), "1");
    EXPECT_EQ(Text("B", "k"), "2");
    EXPECT_EQ(Text("A", "j"), "3");
}

TEST_F(IniFileTest, ReadsEveryLineEndAndAByteOrderMark) {
    Content("\xEF\xBB\xBF[S]\r\na = 1\r\nb = 2\rc = 3\nd = 4");
    EXPECT_THAT(Entries("S"), ElementsAre("a=1", "b=2", "c=3", "d=4"));
}

TEST_F(IniFileTest, AFileThatIsMissingOrEmptyReadsAsEmpty) {
    EXPECT_EQ(Text("S", "k"), "(none)");
    EXPECT_EQ(Int("k"), "7*");
    EXPECT_EQ(Bool("k", true), "true*");
    EXPECT_THAT(Entries("S"), IsEmpty());
    Content("");
    EXPECT_EQ(Text("S", "k"), "(none)");
    LumString value;
    EXPECT_FALSE(IniFile().GetEntryValue("S", "k", value, "default"));
    EXPECT_EQ(value, "default");
    EXPECT_EQ(ini_.GetPath(), directory_.At("x.ini"));
    EXPECT_THAT(log_.Said(), IsEmpty());
}

TEST_F(IniFileTest, ReadsIntegersStrictly) {
    Content(
        "[S]\na = 0\nb = -12\nmax = 2147483647\nmin = -2147483648\nover = 2147483648\n"
        "under = -2147483649\nhex = 0x10\ntail = 5 min\nplus = +5\nreal = 1.5\nempty =\n");
    EXPECT_EQ(Int("a"), "0");
    EXPECT_EQ(Int("b"), "-12");
    EXPECT_EQ(Int("max"), std::to_string(std::numeric_limits<int32_t>::max()));
    EXPECT_EQ(Int("min"), std::to_string(std::numeric_limits<int32_t>::min()));
    for (const char* key : {"over", "under", "hex", "tail", "plus", "real", "empty", "missing"}) {
        EXPECT_EQ(Int(key), "7*") << key;
    }
}

TEST_F(IniFileTest, ReadsBooleansInTheirFourSpellings) {
    Content(
        "[S]\na = 1\nb = TRUE\nc = Yes\nd = on\ne = 0\nf = false\ng = NO\nh = Off\n"
        "x = 2\ny = enabled\nz =\n");
    for (const char* key : {"a", "b", "c", "d"}) {
        EXPECT_EQ(Bool(key, false), "true") << key;
    }
    for (const char* key : {"e", "f", "g", "h"}) {
        EXPECT_EQ(Bool(key, true), "false") << key;
    }
    for (const char* key : {"x", "y", "z", "missing"}) {
        EXPECT_EQ(Bool(key, true), "true*") << key;
        EXPECT_EQ(Bool(key, false), "false*") << key;
    }
}

TEST_F(IniFileTest, ListsEntriesInFileOrderWithThoseThatStandTwice) {
    Content("[S]\nz = 1\na = 2\n[T]\nother = 1\n[S]\nz = 3\nm = 4\nZ = 5\n");
    EXPECT_THAT(Entries("s"), ElementsAre("z=1", "a=2", "z=3", "m=4", "Z=5"));
    EXPECT_THAT(Entries("missing"), IsEmpty());
    EXPECT_EQ(Text("S", "z"), "1");
}

TEST_F(IniFileTest, ANameWithANullByteIsNeverFound) {
    Content("[S]\nk = 1\n");
    const LumString section(std::string_view("S\0x", 3));
    const LumString key(std::string_view("k\0x", 3));
    EXPECT_EQ(Text(section, "k"), "(none)");
    EXPECT_EQ(Text("S", key), "(none)");
    EXPECT_THAT(Entries(section), IsEmpty());
}

TEST_F(IniFileTest, SaysWhatItCannotRead) {
    Content(std::string_view("[S]\nk = 1\n\0", 12));
    EXPECT_EQ(Text("S", "k"), "(none)");
    EXPECT_EQ(Text("S", "k"), "(none)") << "which is said once";
    const std::string where = "warning Host IniFile::Load: " + std::string(ini_.GetPath().View()) + ": ";
    EXPECT_EQ(OnlyLine(), where + "Not a text file");
}

TEST_F(IniFileTest, NeitherReadsNorReplacesWhatIsNotAFile) {
    const std::string where = "warning Host IniFile::";
    const std::string path = ": " + std::string(ini_.GetPath().View()) + ": ";
    directory_.MakeDirectory("x.ini");
    EXPECT_EQ(Text("S", "k"), "(none)");
    EXPECT_FALSE(ini_.WriteEntryValue("S", "k", 1));
    fs::remove(directory_.Path() / "x.ini");
    ASSERT_EQ(mkfifo(ini_.GetPath().GetString(), 0600), 0);
    EXPECT_THAT(Entries("S"), IsEmpty());
    EXPECT_FALSE(ini_.DeleteEntry("S", "k"));
    EXPECT_THAT(log_.Said(), ElementsAre(where + "Load" + path + "Is a directory",
                                         where + "WriteEntryValue" + path + "Is a directory",
                                         where + "Load" + path + "Not a regular file",
                                         where + "DeleteEntry" + path + "Not a regular file"));
}

TEST_F(IniFileTest, WhatCannotBeReadAtTheMomentLeavesEveryValueAsItIs) {
    directory_.MakeDirectory("x.ini");
    bool flag = false;
    int32_t number = 99;
    LumString text("in force");
    EXPECT_FALSE(ini_.GetEntryValue("S", "k", flag, true));
    EXPECT_FALSE(ini_.GetEntryValue("S", "k", number, 7));
    EXPECT_FALSE(ini_.GetEntryValue("S", "k", text, "default"));
    EXPECT_FALSE(flag);
    EXPECT_EQ(number, 99);
    EXPECT_EQ(text, "in force");
    const std::string line =
        "warning Host IniFile::Load: " + std::string(ini_.GetPath().View()) + ": Is a directory";
    EXPECT_THAT(log_.Said(), ElementsAre(line)) << "one warning for three keys";

    fs::remove(directory_.Path() / "x.ini");
    EXPECT_FALSE(ini_.GetEntryValue("S", "k", flag, true));
    EXPECT_TRUE(flag) << "a file that is missing gives the default";
    directory_.MakeDirectory("x.ini");
    EXPECT_FALSE(ini_.GetEntryValue("S", "k", flag, false));
    EXPECT_THAT(log_.Said(), ElementsAre(line, line)) << "said again, as it could be read in between";
}

TEST_F(IniFileTest, NeitherReadsNorReplacesAFileThatIsTooLarge) {
    const std::string large = "[S]\nk = 1\n" + std::string(kMaxBytes, ';');
    Content(large);
    EXPECT_EQ(Text("S", "k"), "(none)");
    EXPECT_THAT(OnlyLine(), HasSubstr("Larger than 4194304 bytes"));
    EXPECT_FALSE(ini_.WriteEntryValue("S", "k", 2));
    EXPECT_EQ(Content(), large);
}

TEST_F(IniFileTest, AFileOfTheLargestSizeIsReadButMayNotGrow) {
    const std::string largest = "[S]\nk = 1\n" + std::string(kMaxBytes - 10, ';');
    Content(largest);
    EXPECT_EQ(Text("S", "k"), "1");
    EXPECT_TRUE(ini_.WriteEntryValue("S", "k", 2));
    EXPECT_FALSE(ini_.WriteEntryValue("S", "k", 22));
    EXPECT_THAT(OnlyLine(), HasSubstr("The file would become too large to be read"));
    EXPECT_EQ(Text("S", "k"), "2");
}

TEST_F(IniFileTest, WritesANewFile) {
    EXPECT_TRUE(ini_.WriteEntryValue("EventLogManager", "AlertMinimumGap", 60));
    EXPECT_EQ(Content(), "[EventLogManager]\nAlertMinimumGap = 60\n");
    struct stat status {};
    ASSERT_EQ(stat(ini_.GetPath().GetString(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(directory_.CountEntries(), 1U);
}

TEST_F(IniFileTest, KeepsEveryOtherByteWhenAKeyIsWritten) {
    Content(
        "; head\r\n\r\n[A]\r\n  Key\t= old ; not a comment  \r\n# note\r\nOther=1\r\n\r\n[B]\r\nKey = b\r\n");
    EXPECT_TRUE(ini_.WriteEntryValue("a", "KEY", "new"));
    EXPECT_EQ(Content(), "; head\r\n\r\n[A]\r\n  Key\t= new\r\n# note\r\nOther=1\r\n\r\n[B]\r\nKey = b\r\n");
}

TEST_F(IniFileTest, AddsAKeyAtTheEndOfItsSection) {
    Content("[A]\r\nk = 1\r\n; last of A\r\n\r\n; about B\r\n[B]\r\n");
    EXPECT_TRUE(ini_.WriteEntryValue("A", "j", "2"));
    EXPECT_EQ(Content(), "[A]\r\nk = 1\r\nj = 2\r\n; last of A\r\n\r\n; about B\r\n[B]\r\n");
    EXPECT_TRUE(ini_.WriteEntryValue("B", "x", ""));
    EXPECT_EQ(Content(), "[A]\r\nk = 1\r\nj = 2\r\n; last of A\r\n\r\n; about B\r\n[B]\r\nx =\r\n");
}

TEST_F(IniFileTest, AddsALineBreakWhereTheLastLineHasNone) {
    Content("[A]\nk = 1");
    EXPECT_TRUE(ini_.WriteEntryValue("A", "j", 2));
    EXPECT_EQ(Content(), "[A]\nk = 1\nj = 2\n");
    Content("[A]\nk = 1");
    EXPECT_TRUE(ini_.WriteEntryValue("A", "k", 2));
    EXPECT_EQ(Content(), "[A]\nk = 2");
}

TEST_F(IniFileTest, AddsASectionAtTheEndOfTheFile) {
    Content("[A]\nk = 1");
    EXPECT_TRUE(ini_.WriteEntryValue("B", "j", 2));
    EXPECT_EQ(Content(), "[A]\nk = 1\n\n[B]\nj = 2\n");
}

TEST_F(IniFileTest, AddsAKeyWithoutASectionAboveTheFirst) {
    Content("\xEF\xBB\xBF[A]\nk = 1\n");
    EXPECT_TRUE(ini_.WriteEntryValue("", "top", 1));
    EXPECT_TRUE(ini_.WriteEntryValue("", "next", 2));
    EXPECT_EQ(Content(), "\xEF\xBB\xBFtop = 1\nnext = 2\n[A]\nk = 1\n");
    EXPECT_EQ(Text("", "top"), "1");
}

TEST_F(IniFileTest, WritesTheFirstOfTwoEqualKeysAndDeletesBoth) {
    Content("[S]\nk = 1\nj = 2\n[T]\nk = 9\n[S]\nK = 3\n");
    EXPECT_TRUE(ini_.WriteEntryValue("S", "k", 5));
    EXPECT_EQ(Content(), "[S]\nk = 5\nj = 2\n[T]\nk = 9\n[S]\nK = 3\n");
    EXPECT_TRUE(ini_.DeleteEntry("s", "k"));
    EXPECT_EQ(Content(), "[S]\nj = 2\n[T]\nk = 9\n[S]\n");
}

TEST_F(IniFileTest, WritesAnyValueThatFitsOneLine) {
    for (const char* value : {"a;b#c=d", "[x]", "\"q\"", "<<<E", "M\u00fcller \u20ac", "=", "", "\xff\xfe"}) {
        EXPECT_TRUE(ini_.WriteEntryValue("S", "k", value));
        EXPECT_EQ(Text("S", "k"), value);
    }
    EXPECT_THAT(log_.Said(), IsEmpty());
}

TEST_F(IniFileTest, RefusesWhatWouldBeReadBackAsSomethingElse) {
    Content("[S]\nk = 1\n");
    const LumString null(std::string_view("a\0b", 3));
    const std::pair<LumString, LumString> names[] = {
        {"S", ""},    {"S", " k"}, {"S", "k "},       {"S", "a=b"},  {"S", ";k"},
        {"S", "#k"},  {"S", "[k"}, {"S", "a\nb = 2"}, {"S", "a\rb"}, {"S", null},
        {"a]b", "k"}, {" S", "k"}, {"S]\n[T", "k"},   {null, "k"},   {"\xEF\xBB\xBF", "\t"},
    };
    for (const auto& [section, key] : names) {
        EXPECT_FALSE(ini_.WriteEntryValue(section, key, 2)) << section.GetString() << '/' << key.GetString();
    }
    for (const LumString& value :
         {LumString("a\nEvil = 1"), LumString("a\r"), null, LumString(" a"), LumString("a\t")}) {
        EXPECT_FALSE(ini_.WriteEntryValue("S", "k", value)) << value.GetString();
    }
    EXPECT_EQ(Content(), "[S]\nk = 1\n");
    EXPECT_EQ(log_.Said().size(), std::size(names) + 5);
    EXPECT_EQ(directory_.CountEntries(), 1U);
}

TEST_F(IniFileTest, SaysWhyANameIsRefused) {
    EXPECT_FALSE(ini_.WriteEntryValue("S", "a\nb", 1));
    EXPECT_FALSE(ini_.DeleteEntry("S\n", "k"));
    EXPECT_FALSE(ini_.WriteEntryValue("S", "a=b", 1));
    const std::string path(ini_.GetPath().View());
    EXPECT_THAT(log_.Said(), ElementsAre("warning Host IniFile::WriteEntryValue: " + path +
                                             ": A line break or null byte in a name or value",
                                         "warning Host IniFile::DeleteEntry: " + path +
                                             ": A line break or null byte in a name or value",
                                         "warning Host IniFile::WriteEntryValue: " + path +
                                             ": The name or value would not be read back as it is"));
}

TEST_F(IniFileTest, KeysBelowABrokenHeadingBelongToNoSection) {
    Content("[S]\nk = 1\n[T\nk = 2\n");
    EXPECT_EQ(Text("S", "k"), "1");
    EXPECT_THAT(Entries("S"), ElementsAre("k=1"));
    EXPECT_TRUE(ini_.DeleteEntry("S", "k"));
    EXPECT_EQ(Content(), "[S]\n[T\nk = 2\n");
    EXPECT_TRUE(ini_.WriteEntryValue("T", "k", 3));
    EXPECT_EQ(Content(), "[S]\n[T\nk = 2\n\n[T]\nk = 3\n");
}

TEST_F(IniFileTest, DeletesAKeyWithItsLine) {
    Content("[S]\r\n; about k\r\nk = 1\r\nj = 2");
    EXPECT_TRUE(ini_.DeleteEntry("S", "K"));
    EXPECT_EQ(Content(), "[S]\r\n; about k\r\nj = 2");
    EXPECT_TRUE(ini_.DeleteEntry("S", "j"));
    EXPECT_EQ(Content(), "[S]\r\n; about k\r\n");
}

TEST_F(IniFileTest, DeletingWhatIsNotThereTouchesNothing) {
    EXPECT_TRUE(ini_.DeleteEntry("S", "k"));
    EXPECT_EQ(directory_.CountEntries(), 0U);
    Content("[S]\nk = 1\n");
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat(ini_.GetPath().GetString(), &before), 0);
    EXPECT_TRUE(ini_.DeleteEntry("S", "other"));
    EXPECT_TRUE(ini_.WriteEntryValue("S", "k", 1));
    ASSERT_EQ(stat(ini_.GetPath().GetString(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(IniFileTest, SaysWhyAFileCannotBeWritten) {
    IniFile missing(directory_.At("missing/x.ini"));
    EXPECT_FALSE(missing.WriteEntryValue("S", "k", 1));
    Content("[S]\nk = 1\n");
    {
        const ResourceLimit limit(RLIMIT_FSIZE, 5);
        EXPECT_FALSE(ini_.WriteEntryValue("S", "k", 2));
    }
    EXPECT_EQ(Content(), "[S]\nk = 1\n");
    EXPECT_FALSE(IniFile().WriteEntryValue("S", "k", 1));
    // A limited disk takes no log line either, so its reason is on standard error alone.
    const std::vector<std::string> lines = log_.Said();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "warning Host IniFile::WriteEntryValue: " +
                                 std::string(missing.GetPath().View()) + ": No such file or directory");
}

TEST_F(IniFileTest, WritesThroughALink) {
    directory_.MakeDirectory("real");
    directory_.Write("real/y.ini", "[S]\nk = 1\n");
    fs::create_symlink("real/y.ini", directory_.Path() / "x.ini");
    EXPECT_TRUE(ini_.WriteEntryValue("S", "k", 2));
    EXPECT_TRUE(fs::is_symlink(directory_.Path() / "x.ini"));
    EXPECT_EQ(directory_.Read("real/y.ini"), "[S]\nk = 2\n");
}

TEST_F(IniFileTest, WritesAFileThatIsNamedWithoutADirectory) {
    const fs::path before = fs::current_path();
    fs::current_path(directory_.Path());
    EXPECT_TRUE(IniFile("x.ini").WriteEntryValue("S", "k", 1));
    fs::current_path(before);
    EXPECT_EQ(Content(), "[S]\nk = 1\n");
}

TEST_F(IniFileTest, WaitsForAnotherWriterOfTheDirectory) {
    Content("[S]\nk = 1\n");
    const std::string lockPath = directory_.Path() / ".ini-lock";
    const FileDescriptor lock(open(lockPath.c_str(), O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(flock(lock.Get(), LOCK_EX), 0);
    std::atomic<bool> written{false};
    std::thread writer([&] {
        EXPECT_TRUE(ini_.WriteEntryValue("S", "k", 2));
        written = true;
    });
    // What the other writer does under its lock must not be lost, nor must a reader wait for it.
    directory_.Write("x.ini", "[S]\nk = 1\nother = 1\n");
    EXPECT_EQ(Text("S", "other"), "1");
    EXPECT_FALSE(written);
    ASSERT_EQ(unlink(lockPath.c_str()), 0);
    ASSERT_EQ(flock(lock.Get(), LOCK_UN), 0);
    writer.join();
    EXPECT_EQ(Content(), "[S]\nk = 2\nother = 1\n");
    EXPECT_EQ(directory_.CountEntries(), 1U) << "the lock goes with its holder";
}

TEST_F(IniFileTest, TakesOverTheLockOfAWriterThatWasKilled) {
    directory_.Write(".ini-lock", "");
    EXPECT_TRUE(ini_.WriteEntryValue("S", "k", 2));
    EXPECT_EQ(Text("S", "k"), "2");
    EXPECT_EQ(directory_.CountEntries(), 1U);
}

TEST_F(IniFileTest, WhoMayReadTheDirectoryCannotHoldUpAWriter) {
    Content("[S]\nk = 1\n");
    const FileDescriptor directory(open(directory_.Path().c_str(), O_RDONLY | O_DIRECTORY));
    const FileDescriptor file(open(ini_.GetPath().GetString(), O_RDONLY));
    ASSERT_EQ(flock(directory.Get(), LOCK_EX), 0);
    ASSERT_EQ(flock(file.Get(), LOCK_EX), 0);
    EXPECT_TRUE(ini_.WriteEntryValue("S", "k", 2));
    EXPECT_EQ(Text("S", "k"), "2");
}

TEST_F(IniFileTest, SaysWhyTheLockCannotBeHad) {
    directory_.MakeDirectory(".ini-lock");
    EXPECT_FALSE(ini_.WriteEntryValue("S", "k", 2));
    EXPECT_EQ(OnlyLine(), "warning Host IniFile::WriteEntryValue: " + std::string(ini_.GetPath().View()) +
                              ": Is a directory");
}

TEST_F(IniFileTest, ThreadsAndProcessesLoseNoKeyOfEachOther) {
    constexpr int kThreads = 4;
    constexpr int kKeys = 12;
    Content("[First]\nk = 1\n; " + std::string(20000, 'x') + "\n[Last]\nk = 1\n");
    const auto write = [this](const std::string& prefix) {
        IniFile ini(ini_.GetPath());
        bool good = true;
        for (int i = 0; i < kKeys; ++i) {
            good = ini.WriteEntryValue("Keys", LumString(prefix + std::to_string(i)), i) && good;
        }
        return good;
    };
    const pid_t child = fork();
    if (child == 0) {
        _exit(write("process") ? 0 : 1);
    }
    std::atomic<int> failures{0};
    std::atomic<bool> stop{false};
    std::thread reader([&] {
        while (!stop) {
            failures += Text("First", "k") == "1" && Text("Last", "k") == "1" ? 0 : 1;
        }
    });
    std::vector<std::thread> writers;
    for (int i = 0; i < kThreads; ++i) {
        writers.emplace_back([&, i] { failures += write("thread" + std::to_string(i) + "-") ? 0 : 1; });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    int status = 1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    stop = true;
    reader.join();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(Entries("Keys").size(), static_cast<std::size_t>((kThreads + 1) * kKeys));
    EXPECT_EQ(directory_.CountEntries(), 1U);
}
