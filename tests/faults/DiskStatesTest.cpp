#include <set>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/container/LumContainer.h"
#include "host/file/FileDescriptor.h"
#include "host/file/LumFile.h"
#include "host/ini/IniFile.h"
#include "support/DiskStates.h"
#include "support/TempDirectory.h"

namespace {

/// Work on files in a directory, and what the disk may hold after it.
class DiskStatesTest : public testing::Test {
protected:
    DiskStatesTest() { DiskRecordBegin(place_.c_str(), 0); }

    [[nodiscard]] std::string At(const std::string& name) const { return (place_ / name).string(); }

    [[nodiscard]] FileDescriptor Open(const std::string& name) const {
        return FileDescriptor(open(At(name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    }

    void SyncPlace() const {
        const FileDescriptor directory(open(place_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        ASSERT_EQ(fsync(directory.Get()), 0);
    }

    /// What is in the file in each of many states: "-" where it is not there.
    std::set<std::string> Contents(const std::string& name, bool ignoreSyncs = false) {
        std::vector<DiskCall> calls;
        DiskRecordEnd(&calls);
        states_.Take(std::move(calls), ignoreSyncs);
        std::set<std::string> contents;
        for (uint64_t seed = 0; seed < 100; ++seed) {
            const std::string state = scratch_ / ("state" + std::to_string(seed));
            states_.Build(states_.Calls().size(), seed, state);
            const std::string path = state + "/" + name;
            contents.insert(access(path.c_str(), F_OK) == 0 ? ReadWholeFile(path) : "-");
        }
        return contents;
    }

    const TempDirectory scratch_;
    const std::filesystem::path place_ = [this] {
        scratch_.MakeDirectory("place");
        scratch_.Write("place/old", "old");
        return scratch_.Path() / "place";
    }();

private:
    DiskStates states_{place_};
};

using Set = std::set<std::string>;

}  // namespace

TEST_F(DiskStatesTest, KeepsWhatWasSynced) {
    const FileDescriptor file = Open("new");
    ASSERT_EQ(write(file.Get(), "ab", 2), 2);
    ASSERT_EQ(fdatasync(file.Get()), 0);
    SyncPlace();
    EXPECT_EQ(Contents("new"), Set{"ab"});
}

TEST_F(DiskStatesTest, LosesNamesWhoseDirectoryWasNotSynced) {
    const FileDescriptor file = Open("new");
    ASSERT_EQ(write(file.Get(), "ab", 2), 2);
    ASSERT_EQ(fdatasync(file.Get()), 0);
    EXPECT_EQ(Contents("new"), (Set{"-", "ab"}));
}

TEST_F(DiskStatesTest, TearsWhatWasNotSynced) {
    const FileDescriptor file = Open("new");
    SyncPlace();
    ASSERT_EQ(pwrite(file.Get(), "ab", 2, 511), 2);
    EXPECT_EQ(Contents("new"), (Set{"", std::string(511, '\0'), std::string(511, '\0') + "a",
                                    std::string(511, '\0') + "ab", std::string(512, '\0') + "b"}));
}

TEST_F(DiskStatesTest, MayForgetATruncationThatWasNotSynced) {
    const FileDescriptor file = Open("old");
    ASSERT_EQ(ftruncate(file.Get(), 1), 0);
    EXPECT_EQ(Contents("old"), (Set{"o", "old"}));
}

TEST_F(DiskStatesTest, SyncsWhatWasWrittenBeforeItBegan) {
    const FileDescriptor file = Open("old");
    ASSERT_EQ(pwrite(file.Get(), "1", 1, 0), 1);
    ASSERT_EQ(fsync(file.Get()), 0);
    ASSERT_EQ(pwrite(file.Get(), "2", 1, 1), 1);
    EXPECT_EQ(Contents("old"), (Set{"1ld", "12d"}));
}

TEST_F(DiskStatesTest, MovesWholly) {
    ASSERT_TRUE(PathCreate(LumString(At("directory"))));
    ASSERT_EQ(rename(At("old").c_str(), At("directory/moved").c_str()), 0);
    EXPECT_EQ(Contents("old"), (Set{"-", "old"}));
}

TEST_F(DiskStatesTest, MayBringBackWhatWasDeleted) {
    ASSERT_TRUE(FileDelete(LumString(At("old")), false));
    EXPECT_EQ(Contents("old"), (Set{"-", "old"}));
}

TEST_F(DiskStatesTest, BringsNothingBackThatWasDeletedForGood) {
    ASSERT_TRUE(FileDeleteForGood(LumString(At("old"))));
    EXPECT_EQ(Contents("old"), Set{"-"});
}

TEST_F(DiskStatesTest, ReplacesAFileAsAWhole) {
    LumString error;
    ASSERT_TRUE(FileReplace(LumString(At("old")), "new", error));
    EXPECT_EQ(Contents("old"), Set{"new"});
}

TEST_F(DiskStatesTest, LosesMoreWithoutSyncs) {
    LumString error;
    ASSERT_TRUE(FileReplace(LumString(At("old")), "new", error));
    const Set contents = Contents("old", true);
    EXPECT_TRUE(contents.contains("old"));
    EXPECT_TRUE(contents.contains(""));
}

TEST_F(DiskStatesTest, CopiesAndMovesDownToTheDisk) {
    ASSERT_TRUE(FileCopy(LumString(At("old")), LumString(At("copy")), true));
    EXPECT_EQ(Contents("copy"), Set{"old"});
}

TEST_F(DiskStatesTest, MovesDownToTheDisk) {
    const FileDescriptor file = Open("new");
    ASSERT_EQ(write(file.Get(), "ab", 2), 2);
    ASSERT_TRUE(FileMove(LumString(At("new")), LumString(At("moved"))));
    EXPECT_EQ(Contents("moved"), Set{"ab"});
}

TEST_F(DiskStatesTest, SavesAContainerDownToTheDisk) {
    const LumString before = GetTempDirectory();
    SetTempDirectory(LumString(place_.string()));
    LumContainer content;
    content.SetString("Text", LumString(std::string(2000, 'x')));
    const std::string path = content.SaveToTempFile().GetString();
    SetTempDirectory(before);
    EXPECT_EQ(Contents(path.substr(path.rfind('/') + 1)), (Set{"-", ReadWholeFile(path)}));
}

TEST_F(DiskStatesTest, WritesAnIniFileDownToTheDisk) {
    scratch_.Write("place/some.ini", "[Section]\nKey = 1\n");
    IniFile ini(LumString(At("some.ini")));
    ASSERT_TRUE(ini.WriteEntryValue("Section", "Key", 2));
    EXPECT_EQ(Contents("some.ini"), Set{ReadWholeFile(At("some.ini"))});
}

TEST_F(DiskStatesTest, MakesDirectoriesDownToTheDisk) {
    ASSERT_TRUE(PathCreate(LumString(At("one/two"))));
    LumString error;
    ASSERT_TRUE(FileReplace(LumString(At("one/two/file")), "content", error));
    EXPECT_EQ(Contents("one/two/file"), Set{"content"});
}
