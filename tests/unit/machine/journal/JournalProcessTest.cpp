// What happens to the program that reads the journal never happens to the process that it reads for.

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "machine/journal/SessionSource.h"
#include "support/ChildProcess.h"
#include "support/RefusedCall.h"
#include "support/WaitFor.h"
#include "unit/machine/journal/JournalSourceFixture.h"

namespace {

using testing::Contains;
using testing::HasSubstr;

class JournalProcessTest : public JournalSourceTest {
protected:
    /// More than a socket takes at once, so that the reader stops in the middle until somebody listens.
    static constexpr int kMany = 150;

    void WriteMany() {
        for (int i = 0; i < kMany; ++i) {
            AddShell("Failed password for " + std::string(3900, 'u') + std::to_string(i) +
                     " from 192.0.2.8 port 5 ssh2");
        }
        Write();
    }
    /// The program in `text` in place of the reader.
    [[nodiscard]] LumString OpenWith(const std::string& text) {
        const std::string path = directory_.Write("reader", text);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        LumString error;
        EXPECT_FALSE(SessionSource({directory_.At("journal"), LumString(path)}, 0).Open(error));
        return error;
    }
};

TEST_F(JournalProcessTest, AFileThatIsCutWhileItIsReadEndsTheReaderAlone) {
    WriteMany();
    Open<SessionSource>();
    ReadSome(5);
    const std::string path = directory_ / "journal/a.journal";
    std::filesystem::copy(path, directory_ / "copy");
    std::filesystem::resize_file(path, 8192);
    EXPECT_THAT(New(), Contains("gone"));
    EXPECT_EQ(error_, "a file of the journal was cut while it was read");
    EXPECT_EQ(source_->GetReaderId(), -1);
    // It is not a journal any more, until its content is back.
    EXPECT_FALSE(source_->Open(error_));
    std::filesystem::copy(directory_ / "copy", path, std::filesystem::copy_options::overwrite_existing);
    Open<SessionSource>();
    static_cast<void>(New());
    EXPECT_EQ(records_.size(), kMany);
    EXPECT_EQ(std::set<uint64_t>(records_.begin(), records_.end()).size(), kMany);
}

TEST_F(JournalProcessTest, AFileThatIsOverwrittenWhileItIsReadHarmsNobody) {
    WriteMany();
    Open<SessionSource>();
    ReadSome(5);
    const std::string path = directory_ / "journal/a.journal";
    const std::string content = directory_.Read("journal/a.journal");
    for (const char with : {'\0', '\xff', 'x'}) {
        // The header stays.
        std::fstream(path, std::ios::in | std::ios::out | std::ios::binary).seekp(512)
            << std::string(content.size() - 512, with);
        static_cast<void>(New());
        std::fstream(path, std::ios::in | std::ios::out | std::ios::binary) << content;
        Open<SessionSource>();
    }
    static_cast<void>(New());
    EXPECT_EQ(std::set<uint64_t>(records_.begin(), records_.end()).size(), records_.size());
}

TEST_F(JournalProcessTest, AReaderThatIsKilledIsStartedAgainAtItsPosition) {
    WriteMany();
    Open<SessionSource>();
    ReadSome(5);
    ASSERT_EQ(kill(source_->GetReaderId(), SIGKILL), 0);
    EXPECT_THAT(New(), Contains("gone"));
    EXPECT_EQ(error_, "the reader of the journal was ended by signal 9 (Killed)");
    Open<SessionSource>();
    static_cast<void>(New());
    EXPECT_EQ(records_.size(), kMany);
    EXPECT_EQ(std::set<uint64_t>(records_.begin(), records_.end()).size(), kMany);
}

TEST_F(JournalProcessTest, ASignalToEndIsForTheAgentAlone) {
    WriteMany();
    Open<SessionSource>();
    ASSERT_EQ(kill(source_->GetReaderId(), SIGTERM), 0);
    ASSERT_EQ(kill(source_->GetReaderId(), SIGINT), 0);
    EXPECT_EQ(New().size(), kMany);
}

TEST_F(JournalProcessTest, WithoutItsProgramItSaysSo) {
    LumString error;
    EXPECT_FALSE(SessionSource({directory_.At("journal"), "/nowhere/lumjournal"}, 0).Open(error));
    EXPECT_EQ(error,
              "the reader of the journal cannot be started: /nowhere/lumjournal: No such file or directory");
}

TEST_F(JournalProcessTest, WithoutADescriptorItSaysSo) {
    LumString error;
    SessionSource source(Place(), 0);
    bool isOpen = false;
    if (!RunRefused(SYS_socketpair, EMFILE, [&] { isOpen = source.Open(error); })) {
        GTEST_SKIP() << "the system does not let a call be refused";
    }
    EXPECT_FALSE(isOpen);
    EXPECT_EQ(error, "the reader of the journal cannot be started: Too many open files");
}

TEST_F(JournalProcessTest, AReaderThatCannotBeStartedAgainIsGone) {
    LumString error;
    SourceBatch batch;
    EXPECT_FALSE(SessionSource(Place(), 0).ReadSince("", 1, batch, error)) << "it was not opened";
    AddShell("Failed password for a from 192.0.2.8 port 5 ssh2");
    Write();
    const std::string link = directory_ / "lumjournal";
    std::filesystem::create_symlink(Place().reader.GetString(), link);
    source_ = std::make_unique<SessionSource>(JournalPlace{directory_.At("journal"), LumString(link)}, 0);
    ASSERT_TRUE(source_->Open(error_)) << error_.GetString();
    EXPECT_EQ(New().size(), 1U);
    std::filesystem::remove(link);
    position_.clear();
    EXPECT_THAT(New(), Contains("gone")) << "another position takes another reader";
    EXPECT_THAT(error_.GetString(), HasSubstr("the reader of the journal cannot be started: "));
}

TEST_F(JournalProcessTest, AReaderThatEndsBeforeItIsAskedIsGone) {
    WriteMany();
    Open<SessionSource>();
    ASSERT_EQ(kill(source_->GetReaderId(), SIGKILL), 0);
    ASSERT_TRUE(HasNews()) << "its end shows";
    EXPECT_THAT(New(), Contains("gone"));
    EXPECT_EQ(error_, "the reader of the journal was ended by signal 9 (Killed)");
}

TEST_F(JournalProcessTest, WhatTheReaderCouldNotReadIsSaid) {
    // It says that it has opened the journal; an entry that is none, 3 entries that are damaged, gaps of
    // unknown length and of none, and the end.
    const std::string path = directory_.Write("reader",
                                              R"(#!/bin/sh
printf 'O\0\0\0\0' >&0
read -r line
printf 'E\0\0\0\0D\5\0\0\0\1\0\0\0003G\0\0\0\0G\5\0\0\0\1\0\0\0000C\0\0\0\0' >&0
read -r line
)");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    source_ = std::make_unique<SessionSource>(JournalPlace{directory_.At("journal"), LumString(path)}, 0);
    ASSERT_TRUE(source_->Open(error_)) << error_.GetString();
    EXPECT_THAT(New(), testing::IsEmpty());
    EXPECT_EQ(position_, "");
    EXPECT_THAT(log_.Said(),
                testing::ElementsAre(
                    "warning MachineEvents Sessions: 3 damaged entries of the journal are left out",
                    "print MachineEvents Sessions: the journal no longer holds the entry that was read last; "
                    "entries after it may be gone with it"));
}

TEST_F(JournalProcessTest, AnotherProgramIsNotListenedTo) {
    EXPECT_EQ(OpenWith("#!/bin/sh\nexit 0\n"), "the reader of the journal has ended");
    EXPECT_EQ(OpenWith("#!/bin/sh\nprintf xxxxxxxxxxxx >&0\nread -r line\n"),
              "the reader of the journal talks nonsense");
}

TEST_F(JournalProcessTest, TheReaderHasNothingOfItsParentsFiles) {
    AddShell("Failed password for a from 192.0.2.8 port 5 ssh2");
    Write();
    const FileDescriptor kept(open(directory_.Write("secret", "x").c_str(), O_RDONLY));
    Open<SessionSource>();
    const std::string files = "/proc/" + std::to_string(source_->GetReaderId()) + "/fd";
    if (access(files.c_str(), R_OK | X_OK) != 0) {
        GTEST_SKIP() << "only root sees the files of a process that leaves no core";
    }
    std::vector<std::string> open;
    for (const auto& file : std::filesystem::directory_iterator(files)) {
        open.push_back(std::filesystem::read_symlink(file.path()).string());
    }
    EXPECT_THAT(open, Contains(HasSubstr("a.journal")));
    EXPECT_THAT(open, testing::Not(Contains(HasSubstr("secret"))));
}

TEST_F(JournalProcessTest, TheReaderEndsWithTheProcessThatItReadsFor) {
    AddShell("Failed password for a from 192.0.2.8 port 5 ssh2");
    Write();
    // The orphan becomes this process's own.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    pid_t reader = -1;
    {
        std::array<int, 2> pipe{};
        ASSERT_EQ(::pipe(pipe.data()), 0);
        ChildProcess parent([&](const ChildProcess::Parent& test) {
            Open<SessionSource>();
            reader = source_->GetReaderId();
            static_cast<void>(!write(pipe[1], &reader, sizeof(reader)));
            test.Tell();
            return test.Await() ? 0 : 1;
        });
        ASSERT_TRUE(parent.Await());
        ASSERT_EQ(read(pipe[0], &reader, sizeof(reader)), static_cast<ssize_t>(sizeof(reader)));
        close(pipe[0]);
        close(pipe[1]);
    }
    int status = 0;
    EXPECT_TRUE(WaitFor([&] { return waitpid(reader, &status, WNOHANG) == reader; }));
    EXPECT_TRUE(WIFEXITED(status));
}

TEST_F(JournalProcessTest, TheReaderEndsWithItsSource) {
    AddShell("Failed password for a from 192.0.2.8 port 5 ssh2");
    Write();
    Open<SessionSource>();
    const pid_t reader = source_->GetReaderId();
    source_.reset();
    EXPECT_EQ(kill(reader, 0), -1);
}

}  // namespace
