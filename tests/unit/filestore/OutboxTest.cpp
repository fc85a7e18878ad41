#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "filestore/FileNames.h"
#include "filestore/Outbox.h"
#include "support/ResourceLimit.h"
#include "support/TempDirectory.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* kAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class OutboxTest : public testing::Test {
protected:
    /// Opens the outbox; what an interrupted run left behind.
    Outbox::LeftOvers Open() {
        Outbox::LeftOvers leftOvers;
        LumString error;
        EXPECT_TRUE(outbox_.Open(directory_.At("outbox"), directory_.At("number"), leftOvers, error))
            << error.GetString();
        return leftOvers;
    }
    /// A file to be taken over.
    ReceivedFile Made(const char* name = "made", const std::string& content = "abc") const {
        ReceivedFile file;
        file.movePath = LumString(directory_.Write(name, content));
        file.fileType = "Type";
        file.fileLabel = "Label";
        file.upstream = true;
        return file;
    }
    /// The error sentence; empty where the file was taken over.
    std::string Refusal(const ReceivedFile& file) {
        const Received received = outbox_.Receive(file);
        EXPECT_EQ(received.outcome == Received::Outcome::kDone, received.problem.IsEmpty());
        stored_ = received.path;
        outcome_ = received.outcome;
        return std::string(received.problem.View());
    }
    [[nodiscard]] nlohmann::json Description() const {
        const fs::path file(stored_.GetString());
        return nlohmann::json::parse(
            ReadWholeFile(file.parent_path() / DescriptionName(file.filename().string())));
    }
    [[nodiscard]] std::size_t CountFiles() const {
        const fs::directory_iterator files(directory_.Path() / "outbox");
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }

    TempDirectory directory_;
    Outbox outbox_;
    LumString stored_;
    Received::Outcome outcome_ = Received::Outcome::kDone;
};

TEST_F(OutboxTest, MovesTheFileAndDescribesIt) {
    EXPECT_THAT(Open().errors, IsEmpty());
    EXPECT_EQ(Refusal(Made()), "");
    EXPECT_FALSE(directory_.Has("made"));
    EXPECT_EQ(ReadWholeFile(stored_.GetString()), "abc");
    const std::string name = fs::path(stored_.GetString()).filename();
    DerivedNameParts parts;
    ASSERT_TRUE(ParseDerivedName(name, parts));
    EXPECT_EQ(parts.number, 1U);
    const nlohmann::json expected = {{"FileType", "Type"},
                                     {"FileLabel", "Label"},
                                     {"FileName", name},
                                     {"FileChecksum", kAbc},
                                     {"Upstream", true},
                                     {"Priority", 100},
                                     {"ReceivedAt", parts.receivedAt}};
    EXPECT_EQ(Description(), expected);
    EXPECT_EQ(CountFiles(), 2U);
}

TEST_F(OutboxTest, TakesWhatIsGiven) {
    Open();
    ReceivedFile file = Made();
    file.fileName = "../my file";
    file.fileChecksum = "given";
    file.upstream = false;
    file.priority = -7;
    EXPECT_EQ(Refusal(file), "");
    EXPECT_EQ(stored_, directory_.At("outbox/_._my_file"));
    EXPECT_EQ(Description()["FileChecksum"], "given");
    EXPECT_EQ(Description()["Upstream"], false);
    EXPECT_EQ(Description()["Priority"], -7);
}

TEST_F(OutboxTest, WritesDescriptionsOfTextsThatAreNoUtf8) {
    Open();
    ReceivedFile file = Made();
    file.fileType = "caf\xE9";
    EXPECT_EQ(Refusal(file), "");
    EXPECT_EQ(Description()["FileType"], "caf\uFFFD");
}

TEST_F(OutboxTest, RefusesEverythingButARegularFile) {
    Open();
    ReceivedFile file;
    file.movePath = "made";
    EXPECT_EQ(Refusal(file), "made: it is not an absolute path");
    file.movePath = LumString(std::string("/made\0x", 7));
    EXPECT_THAT(Refusal(file), HasSubstr("it is not an absolute path"));
    file.movePath = directory_.At("missing");
    EXPECT_EQ(Refusal(file), directory_ / "missing: it cannot be opened: No such file or directory");
    directory_.MakeDirectory("directory");
    file.movePath = directory_.At("directory");
    EXPECT_EQ(Refusal(file), directory_ / "directory: it is not a regular file");
    ASSERT_EQ(mkfifo((directory_ / "pipe").c_str(), 0600), 0);
    file.movePath = directory_.At("pipe");
    EXPECT_EQ(Refusal(file), directory_ / "pipe: it is not a regular file");
    Made();
    fs::create_symlink(directory_ / "made", directory_ / "link");
    file.movePath = directory_.At("link");
    EXPECT_EQ(Refusal(file), directory_ / "link: it is a symbolic link");
    EXPECT_EQ(CountFiles(), 0U);
}

TEST_F(OutboxTest, RefusesWhileItIsNotOpen) {
    EXPECT_EQ(Refusal(Made()), directory_ / "made: the outbox is not open");
    EXPECT_TRUE(directory_.Has("made"));
}

TEST_F(OutboxTest, NeverReplacesAFile) {
    Open();
    ReceivedFile file = Made();
    file.fileName = "same.cbor";
    EXPECT_EQ(Refusal(file), "");
    file = Made("second", "other");
    file.fileName = "same.cbor";
    EXPECT_EQ(Refusal(file), directory_ / "second: the name same.cbor is taken");
    file.fileName = "same.json";
    EXPECT_EQ(Refusal(file), directory_ / "second: the name same.json is taken");
    EXPECT_EQ(directory_.Read("outbox/same.cbor"), "abc");
    EXPECT_EQ(directory_.Read("second"), "other");

    static_cast<void>(directory_.Write("outbox/alone.cbor", "kept"));
    file.fileName = "alone.cbor";
    EXPECT_THAT(Refusal(file), HasSubstr("it cannot be moved to"));
    EXPECT_EQ(directory_.Read("outbox/alone.cbor"), "kept");
    EXPECT_EQ(directory_.Read("second"), "other");
}

TEST_F(OutboxTest, PutsTheFileBackWhereItCannotBeDescribed) {
    Open();
    const ReceivedFile file = Made();
    Refusal(Made("first"));  // the numbers of the block are written down
    const std::string before = directory_.Read("number");
    {
        const ResourceLimit full(RLIMIT_FSIZE, 8);
        EXPECT_THAT(Refusal(file), HasSubstr("made: its description "));
    }
    EXPECT_EQ(directory_.Read("made"), "abc");
    EXPECT_EQ(CountFiles(), 2U);
    EXPECT_EQ(directory_.Read("number"), before);
}

TEST_F(OutboxTest, MakesItsDirectoryAgain) {
    Open();
    Refusal(Made("first"));
    fs::remove_all(directory_.Path() / "outbox");
    static_cast<void>(directory_.Write("outbox", "a file in its place"));
    EXPECT_THAT(Refusal(Made()), HasSubstr("the outbox is not open; "));
    EXPECT_EQ(outcome_, Received::Outcome::kFailed);
    EXPECT_EQ(directory_.Read("made"), "abc");
    fs::remove(directory_.Path() / "outbox");
    EXPECT_EQ(Refusal(Made()), "");
    EXPECT_EQ(CountFiles(), 2U);
}

/// What a client may have moved: regular files below one directory, and nothing that a link leads to.
TEST_F(OutboxTest, TakesConfinedFilesFromBelowTheirDirectoryAlone) {
    Open();
    directory_.MakeDirectory("elsewhere");
    directory_.MakeDirectory("tmp/deep/er");
    static_cast<void>(directory_.Write("elsewhere/secret", "secret"));
    fs::create_symlink(directory_ / "elsewhere", directory_ / "tmp/linked");
    fs::create_symlink(directory_ / "elsewhere/secret", directory_ / "tmp/link");
    ReceivedFile file;
    file.confinedTo = directory_.At("tmp");
    for (const char* const path :
         {"elsewhere/secret", "tmp/linked/secret", "tmp/link", "tmp/../elsewhere/secret", "tmp/deep/../link",
          "tmp/", "tmp", "tmp//deep", "tmp/deep", "tmpother", "tmp/missing"}) {
        file.movePath = LumString(directory_.Path().string() + "/" + path);
        EXPECT_NE(Refusal(file), "") << path;
        EXPECT_EQ(outcome_, Received::Outcome::kRefused) << path;
    }
    EXPECT_EQ(CountFiles(), 0U);
    EXPECT_EQ(directory_.Read("elsewhere/secret"), "secret");
    static_cast<void>(directory_.Write("tmp/deep/er/file", "abc"));
    file.movePath = directory_.At("tmp/deep/er/file");
    EXPECT_EQ(Refusal(file), "");
    EXPECT_FALSE(directory_.Has("tmp/deep/er/file"));
    EXPECT_EQ(ReadWholeFile(stored_.GetString()), "abc");
    // The same directory under another name.
    fs::create_symlink(directory_ / "tmp", directory_ / "alias");
    static_cast<void>(directory_.Write("tmp/file", "abc"));
    file.confinedTo = directory_.At("alias");
    file.movePath = directory_.At("tmp/file");
    EXPECT_EQ(Refusal(file), "");
}

TEST_F(OutboxTest, RefusesAlertsBeforeEventsWhereItIsFull) {
    outbox_.SetMaxBytes(5200);
    Open();
    const std::string kilobyte(1000, 'x');
    EXPECT_EQ(Refusal(Made("a", kilobyte)), "");
    EXPECT_EQ(Refusal(Made("b", kilobyte)), "");
    EXPECT_EQ(Refusal(Made("c", kilobyte)), "");
    EXPECT_EQ(Refusal(Made("d", kilobyte)), directory_ / "d: the outbox is full");
    EXPECT_EQ(outcome_, Received::Outcome::kFailed);
    EXPECT_TRUE(directory_.Has("d"));
    ReceivedFile events = Made("e", kilobyte);
    events.fileType = "EventLogManagerEvents";
    EXPECT_EQ(Refusal(events), "");
    events.movePath = Made("f", kilobyte).movePath;
    EXPECT_EQ(Refusal(events), directory_ / "f: the outbox is full");
    EXPECT_EQ(CountFiles(), 8U);
}

TEST_F(OutboxTest, RefusesWithoutANumber) {
    Outbox::LeftOvers leftOvers;
    LumString error;
    ASSERT_TRUE(outbox_.Open(directory_.At("outbox"), directory_.At("missing/number"), leftOvers, error));
    EXPECT_THAT(Refusal(Made()), HasSubstr("made: no number for it: "));
    EXPECT_EQ(directory_.Read("made"), "abc");
}

TEST_F(OutboxTest, KeepsItsNumbersGrowing) {
    Open();
    Refusal(Made());
    outbox_.Close();
    Outbox next;
    Outbox::LeftOvers leftOvers;
    LumString error;
    ASSERT_TRUE(next.Open(directory_.At("outbox"), directory_.At("number"), leftOvers, error));
    const Received second = next.Receive(Made());
    ASSERT_EQ(second.outcome, Received::Outcome::kDone);
    stored_ = second.path;
    EXPECT_THAT(stored_.GetString(), HasSubstr("Z-2-Label.cbor"));
}

TEST_F(OutboxTest, NumbersBehindItsFilesWhereTheirRecordIsGone) {
    static_cast<void>(directory_.Write("outbox/20261121T011025Z-41-A.cbor", "abc"));
    static_cast<void>(directory_.Write("number", "nonsense"));
    EXPECT_THAT(Open().errors, ElementsAre(directory_.At("number") + ": its content is not a number"));
    Refusal(Made());
    EXPECT_THAT(stored_.GetString(), HasSubstr("Z-42-Label.cbor"));
}

TEST_F(OutboxTest, DescribesWhatACrashLeftWithoutADescription) {
    static_cast<void>(directory_.Write("outbox/20261121T011025Z-7-Events.cbor", "abc"));
    static_cast<void>(directory_.Write("outbox/other.cbor", "abc"));
    static_cast<void>(directory_.Write("outbox/.lum-half", "abc"));
    directory_.MakeDirectory("outbox/20261121T011025Z-8-Directory.cbor");
    const Outbox::LeftOvers leftOvers = Open();
    EXPECT_THAT(leftOvers.completed, ElementsAre("20261121T011025Z-7-Events.cbor"));
    EXPECT_THAT(leftOvers.unknown, ElementsAre("other.cbor"));
    EXPECT_THAT(leftOvers.errors, IsEmpty());
    EXPECT_FALSE(directory_.Has("outbox/.lum-half"));
    stored_ = directory_.At("outbox/20261121T011025Z-7-Events.cbor");
    const nlohmann::json expected = {{"FileType", "Events"},
                                     {"FileLabel", "Events"},
                                     {"FileName", "20261121T011025Z-7-Events.cbor"},
                                     {"FileChecksum", kAbc},
                                     {"Upstream", true},
                                     {"Priority", 100},
                                     {"ReceivedAt", "2026-11-21T01:10:25Z"}};
    EXPECT_EQ(Description(), expected);
    EXPECT_THAT(Open().completed, IsEmpty());
}

/// A name that is longer than a time with its extension left out, and shorter with it.
TEST_F(OutboxTest, OpensWithANameThatItsCallerChose) {
    Open();
    for (std::size_t length = 1; length <= 40; ++length) {
        ReceivedFile file = Made();
        file.fileName = LumString(std::string(length, 'n') + ".cbor");
        EXPECT_EQ(Refusal(file), "");
    }
    const Outbox::LeftOvers leftOvers = Open();
    EXPECT_THAT(leftOvers.unknown, IsEmpty());
    EXPECT_EQ(CountFiles(), 80U);
}

TEST_F(OutboxTest, RemovesADescriptionWhoseFileNeverReachedTheDisk) {
    Open();
    const Received kept = outbox_.Receive(Made("kept"));
    const Received lost = outbox_.Receive(Made("lost"));
    ASSERT_EQ(unlink(lost.path.GetString()), 0);
    const std::string orphan = DescriptionName(fs::path(lost.path.GetString()).filename().string());
    static_cast<void>(directory_.Write("outbox/of-somebody-else.json", "{\"File\": \"none\"}"));
    static_cast<void>(directory_.Write("outbox/not-json.json", "[\"FileName\""));
    static_cast<void>(
        directory_.Write("outbox/too-long.json", "{\"FileName\": \"none\"}" + std::string(65536, ' ')));
    EXPECT_THAT(Open().orphans, ElementsAre(orphan));
    EXPECT_EQ(CountFiles(), 5U) << "the file, its description, and what is not a description";
    EXPECT_TRUE(fs::exists(kept.path.GetString()));
    EXPECT_THAT(Open().orphans, IsEmpty());
}

TEST_F(OutboxTest, SaysThatItCannotBeMade) {
    static_cast<void>(directory_.Write("outbox", "a file in its place"));
    Outbox::LeftOvers leftOvers;
    LumString error;
    EXPECT_FALSE(outbox_.Open(directory_.At("outbox"), directory_.At("number"), leftOvers, error));
    EXPECT_THAT(error.GetString(), HasSubstr("outbox: it cannot be made: "));
}

TEST_F(OutboxTest, TakesFilesOfSeveralThreads) {
    Open();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            for (int i = 0; i < 25; ++i) {
                const ReceivedFile file = Made(("t" + std::to_string(thread * 100 + i)).c_str());
                const Received received = outbox_.Receive(file);
                EXPECT_EQ(received.outcome, Received::Outcome::kDone) << received.problem.GetString();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(CountFiles(), 200U);
}

TEST_F(OutboxTest, DoesNotBeginAgainAfterTheLastNumber) {
    static_cast<void>(directory_.Write("outbox/20261121T011025Z-18446744073709551615-A.cbor", "abc"));
    Open();
    EXPECT_THAT(Refusal(Made()), HasSubstr("the numbers have come to their end"));
}

}  // namespace
