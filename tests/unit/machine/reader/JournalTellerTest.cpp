// The program that reads the journal, as a thread of the test's: at the other end of its socket is the test.

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "machine/journal/JournalFrame.h"
#include "machine/reader/JournalTeller.h"
#include "support/JournalFile.h"
#include "support/TempDirectory.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr int64_t kMoment = 1'780'000'000;

/// A teller at work, and what it says.
class Teller {
public:
    explicit Teller(std::string directory, std::string oldest = "0") {
        std::array<int, 2> ends{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        socket_ = FileDescriptor(ends[0]);
        thread_ = std::thread([directory = std::move(directory), oldest = std::move(oldest), end = ends[1]] {
            const FileDescriptor own(end);
            JournalQuestion question;
            if (question.Read({directory, oldest, "MESSAGE,_PID", "_COMM=a", "+", "_COMM=b", "_UID=0"})) {
                JournalTeller(question, own.Get()).Run();
            }
        });
    }
    Teller(const Teller&) = delete;
    Teller& operator=(const Teller&) = delete;
    ~Teller() {
        socket_.Close();
        thread_.join();
    }

    void Ask(const std::string& line) const {
        EXPECT_EQ(::send(socket_.Get(), line.data(), line.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(line.size()));
    }
    /// The next thing that is said, as its letter and its text; for an entry "E " and its message. Empty once
    /// there is nobody any more.
    std::string Hear() {
        JournalFrame frame;
        while (buffer_.Next(frame) == JournalFrameBuffer::Cut::kIncomplete) {
            pollfd wait = {socket_.Get(), POLLIN, 0};
            std::array<char, 4096> chunk{};
            EXPECT_EQ(::poll(&wait, 1, 60'000), 1) << "nothing comes";
            const ssize_t count = ::recv(socket_.Get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
            if (count <= 0) {
                return "";
            }
            buffer_.Append(std::string_view(chunk.data(), static_cast<std::size_t>(count)));
        }
        const char saying = static_cast<char>(frame.saying);
        if (frame.saying == JournalSaying::kEntry) {
            EXPECT_TRUE(frame.ReadEntry(entry_));
            return std::string("E ").append(entry_.Get("MESSAGE"));
        }
        return std::string(1, saying) + (frame.texts.empty() ? "" : " ") + std::string(frame.GetText());
    }
    /// All that is said up to the end of what there is.
    std::vector<std::string> HearAll() {
        std::vector<std::string> said;
        do {
            said.push_back(Hear());
        } while (!said.back().empty() && said.back() != "C" && !said.back().starts_with('F'));
        return said;
    }
    [[nodiscard]] const std::string& Cursor() const { return entry_.cursor; }

private:
    FileDescriptor socket_;
    std::thread thread_;
    JournalFrameBuffer buffer_;
    JournalEntry entry_;
};

class JournalTellerTest : public testing::Test {
protected:
    JournalTellerTest() { directory_.MakeDirectory("journal"); }

    /// Writes a journal file with all that was written before, and an entry a second for each message; all
    /// but "other" are asked for.
    void Write(const std::string& name, const std::vector<std::string>& messages) {
        for (const std::string& message : messages) {
            journal_.Add(moment_++, {{"_COMM", message == "other" ? "c" : "b"},
                                     {"_UID", "0"},
                                     {"FURTHER", "field"},
                                     {"MESSAGE", message}});
        }
        ASSERT_TRUE(journal_.Write(directory_ / ("journal/" + name)));
    }
    [[nodiscard]] std::string Journal() const { return directory_ / "journal"; }

    const TempDirectory directory_;
    JournalFile journal_;
    int64_t moment_ = kMoment;
};

TEST_F(JournalTellerTest, TellsWhatIsThereAndWhatComes) {
    Write("a.journal", {"one", "other", "two"});
    Teller teller(Journal());
    EXPECT_EQ(teller.Hear(), "O");
    teller.Ask("\n");
    EXPECT_THAT(teller.HearAll(), ElementsAre("E one", "E two", "C"));
    Write("b.journal", {"three"});
    const std::vector<std::string> further = teller.HearAll();
    EXPECT_THAT(further, testing::Contains("E three"));
    EXPECT_EQ(further.back(), "C");
}

TEST_F(JournalTellerTest, GoesOnAfterTheCursor) {
    Write("a.journal", {"one", "two", "three"});
    std::string cursor;
    {
        Teller teller(Journal());
        EXPECT_EQ(teller.Hear(), "O");
        teller.Ask("\n");
        EXPECT_EQ(teller.Hear(), "E one");
        cursor = teller.Cursor();
    }
    Teller teller(Journal());
    teller.Ask(cursor + "\n");
    EXPECT_THAT(teller.HearAll(), ElementsAre("O", "E two", "E three", "C"));
    // Older than what is wanted.
    Teller late(Journal(), std::to_string(kMoment + 2));
    late.Ask(cursor + "\n");
    EXPECT_THAT(late.HearAll(), ElementsAre("O", "E three", "C"));
}

TEST_F(JournalTellerTest, SaysThatTheEntryAtTheCursorHasGone) {
    Write("a.journal", {"one", "two"});
    std::string cursor;
    {
        Teller teller(Journal());
        teller.Ask("\n");
        EXPECT_THAT(teller.HearAll(), ElementsAre("O", "E one", "E two", "C"));
        cursor = teller.Cursor();
    }
    fs::remove(directory_ / "journal/a.journal");
    journal_ = {};
    moment_ += 100;
    Write("b.journal", {"three"});
    Teller teller(Journal());
    teller.Ask(cursor + "\n");
    const std::vector<std::string> said = teller.HearAll();
    ASSERT_EQ(said.size(), 4U);
    EXPECT_THAT(said[1], StartsWith("G"));
    EXPECT_EQ(said[2], "E three");
}

TEST_F(JournalTellerTest, BeginsAtTheOldestWithoutACursorThatIsOne) {
    Write("a.journal", {"one", "two"});
    Teller teller(Journal(), std::to_string(kMoment + 1));
    teller.Ask("nonsense\n");
    EXPECT_THAT(teller.HearAll(), ElementsAre("O", "N", "E two", "C"));
}

TEST_F(JournalTellerTest, ACursorThatIsHalfOneIsTakenAsFarAsItGoes) {
    Write("a.journal", {"one", "two"});
    // A moment alone is a place, but does not tell what has gone from there.
    Teller early(Journal());
    early.Ask("t=1\n");
    EXPECT_THAT(early.HearAll(), ElementsAre("O", "G", "E one", "E two", "C"));
    Teller broken(Journal());
    broken.Ask("s=nonsense;i=1;t=1\n");
    EXPECT_THAT(broken.HearAll(), ElementsAre("O", "N", "E one", "E two", "C"));
}

/// The journal is opened anew on the way, so that little of it is mapped.
TEST_F(JournalTellerTest, TellsALongJournalOnceAndInOrder) {
    std::vector<std::string> messages;
    for (int i = 0; i < 450; ++i) {
        messages.push_back("message " + std::to_string(i));
    }
    Write("a.journal", messages);
    Teller teller(Journal());
    EXPECT_EQ(teller.Hear(), "O");
    teller.Ask("\n");
    for (const std::string& message : messages) {
        ASSERT_EQ(teller.Hear(), "E " + message);
    }
    EXPECT_EQ(teller.Hear(), "C");
}

TEST_F(JournalTellerTest, SaysWhyThereIsNothingToRead) {
    EXPECT_THAT(Teller(directory_ / "missing").HearAll(),
                ElementsAre("F the journal cannot be opened: No such file or directory"));
    EXPECT_THAT(Teller(Journal()).HearAll(), ElementsAre("F there is no journal"));
}

TEST_F(JournalTellerTest, SaysThatTheJournalHasGone) {
    Write("a.journal", {"one"});
    Teller teller(Journal());
    teller.Ask("\n");
    EXPECT_THAT(teller.HearAll(), ElementsAre("O", "E one", "C"));
    fs::remove(directory_ / "journal/a.journal");
    EXPECT_EQ(teller.Hear(), "F the journal has gone");
    EXPECT_EQ(teller.Hear(), "");
}

TEST_F(JournalTellerTest, SaysThatALongJournalHasGoneOnTheWay) {
    // Far more than the socket holds, so that the teller waits in the middle of it.
    Write("a.journal", std::vector<std::string>(300, std::string(4000, 'x')));
    Teller teller(Journal());
    teller.Ask("\n");
    EXPECT_EQ(teller.Hear(), "O");
    fs::remove(directory_ / "journal/a.journal");
    EXPECT_EQ(teller.HearAll().back(), "F there is no journal");
}

TEST_F(JournalTellerTest, EndsWithAPeerThatAsksForNothing) {
    Write("a.journal", {"one"});
    { const Teller gone(Journal()); }
    Teller endless(Journal());
    endless.Ask(std::string(4096, 'x'));
    EXPECT_EQ(endless.Hear(), "O");
    EXPECT_EQ(endless.Hear(), "");
}

TEST(JournalTellerQuestion, IsReadFromItsWords) {
    JournalQuestion question;
    ASSERT_TRUE(question.Read({"/d", "17", "A,B", "M=1", "N=2", "+", "O=3"}));
    EXPECT_EQ(question.directory, "/d");
    EXPECT_EQ(question.oldest, 17);
    EXPECT_THAT(question.fields, ElementsAre("A", "B"));
    EXPECT_THAT(question.matches, ElementsAre(ElementsAre("M=1", "N=2"), ElementsAre("O=3")));
    EXPECT_FALSE(JournalQuestion().Read({}));
    EXPECT_FALSE(JournalQuestion().Read({"/d", "17", "A"}));
    EXPECT_FALSE(JournalQuestion().Read({"/d", "17x", "A", "M=1"}));
}

}  // namespace
