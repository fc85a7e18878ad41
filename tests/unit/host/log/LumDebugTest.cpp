#include <algorithm>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "host/log/LumDebug.h"
#include "support/LogReader.h"
#include "support/ResourceLimit.h"
#include "support/TimeZone.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

namespace {

constexpr std::size_t kMegabyte = std::size_t{1} << 20U;

/// What error actions were called with; the actions are plain routines and have nowhere else to put it.
std::vector<std::string> heard;
LumDebug* talker = nullptr;

void Hear(const LumString& text) {
    heard.emplace_back(text.View());
}

void HearAndFail(const LumString& text) {
    heard.emplace_back(text.View());
    talker->ErrorWithNL("failed on: %S", text);
}

void HearOther(const LumString& text) {
    heard.push_back("other: " + std::string(text.View()));
    talker->ErrorWithNL("back");
}

/// A logger into lines that can be read back.
class LumDebugTest : public testing::Test {
protected:
    LumDebugTest() {
        logger_.SetContext(&lines_.Context());
        heard.clear();
        talker = &logger_;
    }

    LogLines lines_;
    LumDebug logger_{"Module", "A module"};
};

}  // namespace

TEST(LumDebugLevel, HasANameEachWay) {
    for (const auto& [level, name] :
         {std::pair(LumLogLevel::kTrace, "trace"), std::pair(LumLogLevel::kPrint, "print"),
          std::pair(LumLogLevel::kWarning, "warning"), std::pair(LumLogLevel::kError, "error")}) {
        EXPECT_EQ(LumLogLevelName(level), name);
        LumLogLevel found = LumLogLevel::kTrace;
        EXPECT_TRUE(LumLogLevelFromName(name, found));
        EXPECT_EQ(found, level);
    }
    LumLogLevel level = LumLogLevel::kWarning;
    for (const char* name : {"", "Print", "print ", "info"}) {
        EXPECT_FALSE(LumLogLevelFromName(name, level)) << name;
    }
    EXPECT_EQ(level, LumLogLevel::kWarning);
}

TEST_F(LumDebugTest, WritesEachLevelWithItsName) {
    logger_.TraceWithNL("%S: Entering", LumString("LoadModel"));
    logger_.PrintWithNL("%d of %u", -1, 2U);
    logger_.WarningWithNL("100%%");
    logger_.ErrorWithNL("%s", "text");
    EXPECT_THAT(lines_.Said(LumLogLevel::kTrace),
                ElementsAre("trace Module LoadModel: Entering", "print Module -1 of 2", "warning Module 100%",
                            "error Module text"));
    EXPECT_EQ(logger_.GetName(), "Module");
    EXPECT_EQ(logger_.GetDescription(), "A module");
}

TEST_F(LumDebugTest, DropsWhatIsBelowTheLevel) {
    lines_.Context().SetLevel(LumLogLevel::kWarning);
    logger_.TraceWithNL("a");
    logger_.PrintWithNL("b");
    logger_.WarningWithNL("c");
    EXPECT_THAT(lines_.Said(), ElementsAre("warning Module c"));
    EXPECT_FALSE(lines_.Context().IsEnabled(LumLogLevel::kPrint));
}

TEST_F(LumDebugTest, ARoutineBeginsEachOfItsLinesWithItsName) {
    const LumRoutine routine(logger_, "Routine");
    lines_.Context().SetLevel(LumLogLevel::kTrace);
    routine.Trace("Entering");
    routine.Print("%S and %d", LumString("one"), 2);
    routine.Warning("three");
    routine.Error("100%%");
    EXPECT_THAT(lines_.Said(LumLogLevel::kTrace),
                ElementsAre("trace Module Routine: Entering", "print Module Routine: one and 2",
                            "warning Module Routine: three", "error Module Routine: 100%"));
}

TEST(LumDebugContext, LeavesOutTraceAtFirst) {
    const LumDebugContext context;
    EXPECT_FALSE(context.IsEnabled(LumLogLevel::kTrace));
    EXPECT_TRUE(context.IsEnabled(LumLogLevel::kPrint));
}

TEST_F(LumDebugTest, AMessageIsAlwaysOneLine) {
    logger_.PrintWithNL("%S", LumString(std::string_view("a\nb\rc\td\0e\x1b[0mf\x7f", 15)));
    EXPECT_THAT(lines_.Said(), ElementsAre("print Module a\\nb\\rc\\td\\x00e\\x1b[0mf\\x7f"));
}

TEST_F(LumDebugTest, KeepsUtf8AndEscapesTheRest) {
    logger_.PrintWithNL("M\u00fcller \u20ac \U0001F600 \u009b \xff\xc3 \ufffd");
    EXPECT_THAT(lines_.Said(),
                ElementsAre("print Module M\u00fcller \u20ac \U0001F600 \\xc2\\x9b \\xff\\xc3 \ufffd"));
}

TEST_F(LumDebugTest, ALongMessageIsWrittenWhole) {
    const LumString text(std::string(kMegabyte, 'x'));
    logger_.PrintWithNL("%S", text);
    EXPECT_THAT(lines_.Said(), ElementsAre("print Module " + std::string(text.View())));
}

TEST(LumDebugContext, StampsTheLocalTimeWithItsZone) {
    const std::pair<const char*, const char*> zones[] = {
        {"Asia/Kolkata", "\\+05:30"}, {"UTC", "\\+00:00"}, {"<AAA>3:30", "-03:30"}, {"<BBB>0:30", "-00:30"}};
    for (const auto& [name, offset] : zones) {
        const TimeZone zone(name);
        const TempDirectory directory;
        LumDebugContext context;
        LumString error;
        ASSERT_TRUE(context.OpenFile(directory.At("log"), kMegabyte, 1, error));
        context.Write(LumLogLevel::kPrint, "Host", "text");
        EXPECT_THAT(directory.Read("log"),
                    MatchesRegex(std::string("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}"
                                             "\\.[0-9]{3}") +
                                 offset + " print Host text\n"));
    }
}

TEST(LumDebugContext, WritesToStandardErrorAsWell) {
    const TempDirectory directory;
    const int file = open(directory.At("stderr").GetString(), O_CREAT | O_WRONLY, 0600);
    const int before = dup(STDERR_FILENO);
    dup2(file, STDERR_FILENO);
    LumDebug logger("Module", "");
    logger.WarningWithNL("to the default context");
    logger.SetContext(nullptr);
    logger.WarningWithNL("again");
    dup2(before, STDERR_FILENO);
    close(before);
    close(file);
    EXPECT_THAT(directory.Read("stderr"), MatchesRegex("[^ ]+ warning Module to the default context\n"
                                                       "[^ ]+ warning Module again\n"));
}

TEST_F(LumDebugTest, PassesErrorsToTheAction) {
    logger_.SetErrorActionInvokeAddress(Hear);
    logger_.WarningWithNL("a");
    logger_.ErrorWithNL("%S: %d", LumString("b"), 1);
    logger_.SetErrorActionInvokeAddress(nullptr);
    logger_.ErrorWithNL("c");
    EXPECT_THAT(heard, ElementsAre("b: 1"));
}

TEST_F(LumDebugTest, PassesTheTextItselfRatherThanItsEscapes) {
    logger_.SetErrorActionInvokeAddress(Hear);
    logger_.ErrorWithNL("a\nb");
    EXPECT_THAT(heard, ElementsAre("a\nb"));
}

TEST_F(LumDebugTest, CallsTheActionAfterTheLineIsWritten) {
    static const LogLines* lines = nullptr;
    static std::size_t before = 0;
    lines = &lines_;
    logger_.SetErrorActionInvokeAddress([](const LumString&) { before = lines->Said().size(); });
    logger_.ErrorWithNL("a");
    EXPECT_EQ(before, 1U);
}

TEST_F(LumDebugTest, AnActionThatFailsIsNotCalledForThat) {
    logger_.SetErrorActionInvokeAddress(HearAndFail);
    logger_.ErrorWithNL("a");
    logger_.ErrorWithNL("b");
    EXPECT_THAT(heard, ElementsAre("a", "b"));
    EXPECT_THAT(lines_.Said(), ElementsAre("error Module a", "error Module failed on: a", "error Module b",
                                           "error Module failed on: b"));
}

TEST_F(LumDebugTest, AnActionThatThrowsIsSaidAndCalledTheNextTime) {
    const HostLogLines host;
    logger_.SetErrorActionInvokeAddress([](const LumString& text) {
        heard.emplace_back(text.View());
        throw std::bad_alloc();
    });
    logger_.ErrorWithNL("a");
    logger_.ErrorWithNL("b");
    EXPECT_THAT(heard, ElementsAre("a", "b"));
    EXPECT_THAT(lines_.Said(), ElementsAre("error Module a", "error Module b"));
    EXPECT_EQ(host.Count("warning Host An error line could not be passed on\n"), 2U);
}

TEST_F(LumDebugTest, TwoActionsThatFailDoNotCallEachOtherForEver) {
    LumDebug other("Other", "");
    other.SetContext(&lines_.Context());
    other.SetErrorActionInvokeAddress(HearOther);
    logger_.SetErrorActionInvokeAddress([](const LumString& text) {
        heard.emplace_back(text.View());
        static_cast<LumDebug*>(talker)->ErrorWithNL("not heard");
    });
    other.ErrorWithNL("first");
    EXPECT_THAT(heard, ElementsAre("other: first", "back"));
    EXPECT_THAT(lines_.Said(), SizeIs(3));
}

TEST_F(LumDebugTest, AnActionOnOneThreadHidesNoErrorOfAnother) {
    logger_.SetErrorActionInvokeAddress([](const LumString& text) {
        heard.emplace_back(text.View());
        if (text == "outer") {
            std::thread([] { talker->ErrorWithNL("inner"); }).join();
        }
    });
    logger_.ErrorWithNL("outer");
    EXPECT_THAT(heard, ElementsAre("outer", "inner"));
}

namespace {

/// A pipe or a pair of sockets in place of standard error, which nobody reads.
class UnreadStandardError {
public:
    explicit UnreadStandardError(bool isPipe) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(isPipe ? pipe(ends) : socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        reader_ = FileDescriptor(ends[0]);
        const FileDescriptor writer(ends[1]);
        dup2(writer.Get(), STDERR_FILENO);
    }
    UnreadStandardError(const UnreadStandardError&) = delete;
    UnreadStandardError& operator=(const UnreadStandardError&) = delete;
    ~UnreadStandardError() { dup2(before_.Get(), STDERR_FILENO); }

    /// Reads what has been written.
    [[nodiscard]] std::string Read() const {
        std::string text;
        pollfd ready{reader_.Get(), POLLIN, 0};
        char buffer[4096];
        while (poll(&ready, 1, 0) == 1) {
            const ssize_t count = read(reader_.Get(), buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            text.append(buffer, static_cast<std::size_t>(count));
        }
        return text;
    }

private:
    const FileDescriptor before_{dup(STDERR_FILENO)};
    FileDescriptor reader_;
};

TEST(LumDebugContextReopen, SaysWhyTheFileCannotBeOpened) {
    const TempDirectory directory;
    LumDebugContext context;
    LumString error;
    EXPECT_TRUE(context.ReopenFile(error)) << "there is none";
    directory.MakeDirectory("log");
    ASSERT_TRUE(context.OpenFile(directory.At("log/file"), kMegabyte, 1, error)) << error.GetString();
    std::filesystem::remove_all(directory / "log");
    static_cast<void>(directory.Write("log", "a file in its place"));
    EXPECT_FALSE(context.ReopenFile(error));
    EXPECT_EQ(error, "Not a directory");
    std::filesystem::remove(directory / "log");
    directory.MakeDirectory("log");
    EXPECT_TRUE(context.ReopenFile(error)) << error.GetString();
}

}  // namespace

TEST(LumDebugContext, NeverWaitsForAStandardErrorThatNobodyReads) {
    for (const bool isPipe : {true, false}) {
        const UnreadStandardError standardError(isPipe);
        LumDebugContext context;
        constexpr int kLines = 10'000;
        for (int i = 0; i < kLines; ++i) {
            context.Write(LumLogLevel::kPrint, "Module", "line " + std::to_string(i) + std::string(100, 'x'));
        }
        const std::string before = standardError.Read();
        context.Write(LumLogLevel::kPrint, "Module", "the last one");
        const std::string after = standardError.Read();
        EXPECT_THAT(before, HasSubstr("print Module line 0x"));
        const auto written = std::count(before.begin(), before.end(), '\n');
        EXPECT_LT(written, kLines);
        EXPECT_THAT(after, HasSubstr(" warning Host " + std::to_string(kLines - written) +
                                     " lines were left out here, as nobody read standard error\n"));
        EXPECT_THAT(after, testing::EndsWith("print Module the last one\n"));
    }
}

TEST(LumDebugContext, WritesALineThatIsLongerThanAPipeWhileSomebodyReads) {
    const UnreadStandardError standardError(true);
    LumDebugContext context;
    std::atomic<bool> isWritten{false};
    std::thread writer([&] {
        context.Write(LumLogLevel::kPrint, "Module", std::string(300'000, 'x') + "end");
        isWritten = true;
    });
    std::string read;
    while (!isWritten) {
        read += standardError.Read();
    }
    writer.join();
    read += standardError.Read();
    EXPECT_THAT(read, testing::EndsWith("xend\n"));
    EXPECT_GT(read.size(), 300'000U);
}

TEST(LumDebugFile, IsMadeAgainWhereItsDirectoryWasRemoved) {
    const TempDirectory directory;
    LumDebugContext context;
    LumString error;
    directory.MakeDirectory("log");
    ASSERT_TRUE(context.OpenFile(directory.At("log/agent.log"), 1'000'000, 1, error));
    context.Write(LumLogLevel::kPrint, "Module", "first");
    std::filesystem::remove_all(directory.Path() / "log");
    context.Write(LumLogLevel::kPrint, "Module", "second");
    EXPECT_THAT(directory.Read("log/agent.log"), testing::EndsWith(" print Module second\n"));
}

TEST(LumDebugFile, IsForTheOwnerAlone) {
    const TempDirectory directory;
    directory.Write("log", "");
    chmod(directory.At("log").GetString(), 0644);
    for (const char* name : {"log", "fresh"}) {
        LumDebugContext context;
        LumString error;
        ASSERT_TRUE(context.OpenFile(directory.At(name), kMegabyte, 1, error));
        struct stat status {};
        ASSERT_EQ(stat(directory.At(name).GetString(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0600U) << name;
    }
}

TEST(LumDebugFile, CannotBeSomethingElse) {
    const TempDirectory directory;
    directory.MakeDirectory("directory");
    ASSERT_EQ(mkfifo(directory.At("pipe").GetString(), 0600), 0);
    const int reader = open(directory.At("pipe").GetString(), O_RDONLY | O_NONBLOCK);
    LumDebugContext context;
    LumString error;
    EXPECT_FALSE(context.OpenFile(directory.At("directory"), kMegabyte, 1, error));
    EXPECT_EQ(error, "Is a directory");
    EXPECT_FALSE(context.OpenFile(directory.At("missing/log"), kMegabyte, 1, error));
    EXPECT_EQ(error, "No such file or directory");
    EXPECT_FALSE(context.OpenFile(directory.At("pipe"), kMegabyte, 1, error));
    EXPECT_EQ(error, "Invalid argument");
    close(reader);
    directory.Write("file", "");
    std::filesystem::create_symlink("file", directory / "link");
    EXPECT_FALSE(context.OpenFile(directory.At("link"), kMegabyte, 1, error));
    EXPECT_EQ(error, "Too many levels of symbolic links");
    context.Write(LumLogLevel::kPrint, "Host", "goes to standard error alone");
}

TEST(LumDebugFile, IsAppendedToAndSetAsideWhenFull) {
    const TempDirectory directory;
    const auto write = [&](const std::string& text) {
        LumDebugContext context;
        LumString error;
        EXPECT_TRUE(context.OpenFile(directory.At("log"), 120, 2, error));
        context.Write(LumLogLevel::kPrint, "Host", text);
    };
    const auto lastWord = [&](const char* name) {
        const std::string content = directory.Read(name);
        return content.substr(content.find_last_of(' ') + 1);
    };
    write("1");
    write("2");
    EXPECT_EQ(lastWord("log"), "2\n");
    EXPECT_FALSE(directory.Has("log.1"));
    for (const char* text : {"3", "4", "5", "6", "7"}) {
        write(text);
    }
    EXPECT_EQ(lastWord("log"), "7\n");
    EXPECT_EQ(lastWord("log.1"), "6\n");
    EXPECT_EQ(lastWord("log.2"), "4\n");
    EXPECT_EQ(directory.CountEntries(), 3U);
}

TEST(LumDebugFile, TakesALineThatIsLargerThanItMayGrow) {
    const TempDirectory directory;
    LumDebugContext context;
    LumString error;
    ASSERT_TRUE(context.OpenFile(directory.At("log"), 10, 0, error));
    context.Write(LumLogLevel::kPrint, "Host", "first");
    context.Write(LumLogLevel::kPrint, "Host", "second");
    EXPECT_THAT(directory.Read("log"), MatchesRegex("[^ ]+ print Host second\n"));
    EXPECT_EQ(directory.CountEntries(), 1U);
}

TEST(LumDebugFile, KeepsNoHalfLineOnAFullDisk) {
    const TempDirectory directory;
    LumDebugContext context;
    LumString error;
    ASSERT_TRUE(context.OpenFile(directory.At("log"), kMegabyte, 1, error));
    context.Write(LumLogLevel::kPrint, "Host", "first");
    {
        const ResourceLimit limit(RLIMIT_FSIZE, 60);
        context.Write(LumLogLevel::kPrint, "Host", "does not fit");
    }
    context.Write(LumLogLevel::kPrint, "Host", "third");
    EXPECT_THAT(directory.Read("log"),
                MatchesRegex("[^ ]{29} print Host first\n[^ ]{29} print Host third\n"));
}

TEST(LumDebugFile, ComesBackOnceItCanBeOpenedAgain) {
    const TempDirectory directory;
    directory.MakeDirectory("logs");
    LumDebugContext context;
    LumString error;
    ASSERT_TRUE(context.OpenFile(directory.At("logs/log"), 10, 1, error));
    context.Write(LumLogLevel::kPrint, "Host", "first");
    std::filesystem::rename(directory.Path() / "logs", directory.Path() / "away");
    directory.Write("logs", "a file in the way");
    context.Write(LumLogLevel::kPrint, "Host", "lost");
    std::filesystem::remove(directory.Path() / "logs");
    std::filesystem::rename(directory.Path() / "away", directory.Path() / "logs");
    context.Write(LumLogLevel::kPrint, "Host", "second");
    EXPECT_THAT(directory.Read("logs/log"), MatchesRegex("[^ ]+ print Host second\n"));
    EXPECT_THAT(directory.Read("logs/log.1"), MatchesRegex("[^ ]+ print Host first\n"));
}

TEST_F(LumDebugTest, ManyThreadsMixNoLines) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int j = 0; j < 50; ++j) {
                logger_.PrintWithNL("%S", LumString("0123456789"));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(lines_.Said(), SizeIs(200));
    EXPECT_THAT(lines_.Said(), testing::Each("print Module 0123456789"));
}

TEST(LumDebugOfTheHost, IsTheLoggerOfTheHost) {
    EXPECT_EQ(LumHostDebug().GetName(), "Host");
    const HostLogLines lines;
    LumHostDebug().WarningWithNL("text");
    EXPECT_THAT(lines.Said(), ElementsAre("warning Host text"));
}
