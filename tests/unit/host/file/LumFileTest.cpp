#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file/LumFile.h"
#include "support/MemoryFault.h"
#include "support/ResourceLimit.h"
#include "support/TempDirectory.h"
#include "support/shim/FaultPlan.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

constexpr std::size_t kMegabyte = std::size_t{1} << 20U;

mode_t ModeOf(const LumString& path) {
    struct stat status {};
    return lstat(path.GetString(), &status) == 0 ? status.st_mode & 07777U : 0;
}

LumString WithNull(const LumString& path) {
    LumString text = path;
    return text.Append(std::string_view("\0hidden", 7));
}

/// The directory that is `depth` levels below the one it is given, each named "d".
void MakeDeep(const fs::path& root, int depth) {
    int directory = open(root.c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < depth; ++i) {
        ASSERT_EQ(mkdirat(directory, "d", 0700), 0);
        const int file = openat(directory, "f", O_CREAT | O_WRONLY, 0600);
        ASSERT_GE(file, 0);
        close(file);
        const int next = openat(directory, "d", O_RDONLY | O_DIRECTORY);
        ASSERT_GE(next, 0);
        close(directory);
        directory = next;
    }
    close(directory);
}

}  // namespace

TEST(LumDirectoryCreate, MakesMissingParentsForTheOwnerAlone) {
    const TempDirectory directory;
    EXPECT_TRUE(PathCreate(directory.At("a/b//c/")));
    EXPECT_TRUE(DirExists(directory.At("a/b/c")));
    EXPECT_EQ(ModeOf(directory.At("a")), 0700U);
    EXPECT_EQ(ModeOf(directory.At("a/b/c")), 0700U);
}

TEST(LumDirectoryCreate, IsTrueForADirectoryThatIsThere) {
    const TempDirectory directory;
    EXPECT_TRUE(PathCreate(directory.At("")));
    EXPECT_TRUE(PathCreate("/"));
    directory.MakeDirectory("real");
    fs::create_directory_symlink("real", directory.Path() / "link");
    EXPECT_TRUE(PathCreate(directory.At("link/below")));
    EXPECT_TRUE(DirExists(directory.At("real/below")));
}

TEST(LumDirectoryCreate, FailsWhereAFileIsInTheWay) {
    const TempDirectory directory;
    directory.Write("file", "");
    EXPECT_FALSE(PathCreate(directory.At("file")));
    EXPECT_FALSE(PathCreate(directory.At("file/below")));
    EXPECT_FALSE(PathCreate(""));
    EXPECT_FALSE(PathCreate(WithNull(directory.At("null"))));
    EXPECT_FALSE(directory.Has("null"));
}

TEST(LumDirectoryCreate, SyncsTheEntryOfEachDirectoryThatItMakes) {
    const TempDirectory directory;
    FaultPlan plan;
    plan.Watch(directory.Path().string());
    FaultShimUse(&plan);
    // The first call is for the directory that is there already, whatever comes of it.
    for (uint64_t nth = 2; nth <= 5; ++nth) {
        plan.Arm(FaultPlan::Kind::kBroken, nth);
        EXPECT_FALSE(PathCreate(directory.At("a/b"))) << nth;
        EXPECT_EQ(errno, EIO) << nth;
        plan.Disarm();
        fs::remove_all(directory.Path() / "a");
    }
    plan.Arm(FaultPlan::Kind::kBroken, 1);
    EXPECT_TRUE(PathCreate(directory.At("a/b")));
    EXPECT_EQ(plan.Disarm(), 5U) << "two made, two synced";
    FaultShimUse(nullptr);
}

TEST(LumDirectoryExists, TellsDirectoriesFromTheRest) {
    const TempDirectory directory;
    directory.Write("file", "");
    fs::create_directory_symlink(".", directory.Path() / "link");
    EXPECT_TRUE(DirExists(directory.At(".")));
    EXPECT_TRUE(DirExists(directory.At("link")));
    EXPECT_FALSE(DirExists(directory.At("file")));
    EXPECT_FALSE(DirExists(directory.At("missing")));
    EXPECT_FALSE(DirExists(""));
    EXPECT_FALSE(DirExists(WithNull(directory.At("."))));
}

TEST(LumDirectoryDelete, DeletesAnEmptyDirectoryAlone) {
    const TempDirectory directory;
    directory.MakeDirectory("empty");
    directory.MakeDirectory("full/below");
    EXPECT_TRUE(DirDelete(directory.At("empty/"), false, false));
    EXPECT_FALSE(directory.Has("empty"));
    EXPECT_FALSE(DirDelete(directory.At("full"), false, true));
    EXPECT_TRUE(directory.Has("full/below"));
}

TEST(LumDirectoryDelete, DeletesATreeWithEverythingInIt) {
    const TempDirectory directory;
    directory.MakeDirectory("tree/a/b/c");
    directory.MakeDirectory("tree/a/x");
    directory.MakeDirectory("tree/.lum-deleted-1/y");
    directory.Write("tree/file", "1");
    directory.Write("tree/a/b/file", "2");
    directory.Write("tree/.lum-deleted-1/file", "3");
    ASSERT_EQ(mkfifo(directory.At("tree/a/pipe").GetString(), 0600), 0);
    EXPECT_TRUE(DirDelete(directory.At("tree"), true, false));
    EXPECT_EQ(directory.CountEntries(), 0U);
}

TEST(LumDirectoryDelete, CountsAMissingDirectoryAsDeletedWithForceOnly) {
    const TempDirectory directory;
    for (const bool recursive : {false, true}) {
        EXPECT_TRUE(DirDelete(directory.At("missing"), recursive, true));
        EXPECT_FALSE(DirDelete(directory.At("missing"), recursive, false));
        EXPECT_EQ(errno, ENOENT);
    }
}

TEST(LumDirectoryDelete, RefusesPathsThatNameMoreThanADirectory) {
    const TempDirectory directory;
    directory.MakeDirectory("a/b");
    for (const bool recursive : {false, true}) {
        for (const char* path : {"", "/", "//", "/.", "/./", ".", "./"}) {
            EXPECT_FALSE(DirDelete(path, recursive, true)) << path;
        }
        EXPECT_FALSE(DirDelete(directory.At("a/.."), recursive, true));
        EXPECT_FALSE(DirDelete(directory.At("a/b/../b"), recursive, true));
        EXPECT_FALSE(DirDelete(WithNull(directory.At("a")), recursive, true));
    }
    EXPECT_TRUE(directory.Has("a/b"));
    directory.MakeDirectory("..dots..");
    EXPECT_TRUE(DirDelete(directory.At("..dots../."), true, false));
}

TEST(LumDirectoryDelete, DeletesLinksAndNeverFollowsThem) {
    const TempDirectory directory;
    directory.MakeDirectory("outside");
    directory.Write("outside/kept", "1");
    directory.MakeDirectory("tree/below");
    fs::create_directory_symlink(directory.Path() / "outside", directory.Path() / "tree/link");
    fs::create_directory_symlink(directory.Path() / "outside", directory.Path() / "tree/below/link");
    EXPECT_TRUE(DirDelete(directory.At("tree"), true, false));
    EXPECT_FALSE(directory.Has("tree"));
    EXPECT_TRUE(directory.Has("outside/kept"));
}

TEST(LumDirectoryDelete, RefusesALinkInPlaceOfTheDirectory) {
    const TempDirectory directory;
    directory.MakeDirectory("real");
    directory.Write("real/kept", "1");
    fs::create_directory_symlink("real", directory.Path() / "link");
    directory.Write("file", "");
    for (const char* name : {"link", "link/", "link/.", "link//", "file"}) {
        for (const bool recursive : {false, true}) {
            EXPECT_FALSE(DirDelete(directory.At(name), recursive, true)) << name;
        }
    }
    EXPECT_TRUE(directory.Has("real/kept"));
    EXPECT_TRUE(directory.Has("link"));
    EXPECT_TRUE(directory.Has("file"));
}

TEST(LumDirectoryDelete, FollowsNoLinkThatIsSwappedIn) {
    const TempDirectory directory;
    directory.MakeDirectory("outside");
    directory.Write("outside/kept", "1");
    for (int round = 0; round < 15; ++round) {
        directory.MakeDirectory("tree/victim");
        for (int i = 0; i < 3; ++i) {
            directory.Write("tree/victim/" + std::to_string(i), "");
        }
        fs::create_directory_symlink(directory.Path() / "outside", directory.Path() / "swap");
        std::atomic<bool> stop{false};
        std::atomic<int> swaps{0};
        std::thread swapper([&] {
            const LumString victim = directory.At("tree/victim");
            while (!stop) {
                static_cast<void>(renameat2(AT_FDCWD, directory.At("swap").GetString(), AT_FDCWD,
                                            victim.GetString(), RENAME_EXCHANGE));
                ++swaps;
            }
        });
        while (swaps < 10) {
            std::this_thread::yield();
        }
        // Whether it gets everything depends on the swapper; what lies outside does not.
        static_cast<void>(DirDelete(directory.At("tree"), true, true));
        stop = true;
        swapper.join();
        ASSERT_TRUE(directory.Has("outside/kept"));
        fs::remove_all(directory.Path() / "tree");
        fs::remove_all(directory.Path() / "swap");
    }
}

TEST(LumDirectoryDelete, IsNotTrueForADirectoryThatIsStillThere) {
    const TempDirectory directory;
    constexpr int kFiles = 3'000;
    const LumString tree = directory.At("tree");
    for (int round = 0; round < 5; ++round) {
        directory.MakeDirectory("tree");
        for (int i = 0; i < kFiles; ++i) {
            directory.Write("tree/" + std::to_string(i), "");
        }
        // Somebody else deletes the same entries, so that some are gone between being listed and being
        // deleted.
        std::thread other([&] {
            for (int i = 0; i < kFiles; ++i) {
                unlink((directory.Path() / "tree" / std::to_string(i)).c_str());
            }
        });
        EXPECT_TRUE(DirDelete(tree, true, true));
        EXPECT_FALSE(DirExists(tree));
        other.join();
        fs::remove_all(tree.GetString());
    }
}

TEST(LumDirectoryDelete, GoesOnAfterAnyCallThatFails) {
    const TempDirectory directory;
    FaultPlan plan;
    plan.Watch(directory / "tree");
    FaultShimUse(&plan);
    for (const FaultPlan::Kind kind : {FaultPlan::Kind::kBroken, FaultPlan::Kind::kNoFiles}) {
        uint64_t calls = 1;
        for (uint64_t nth = 1; nth <= calls; ++nth) {
            directory.Write("tree/a/b/file", "");
            directory.Write("tree/file", "");
            plan.Arm(kind, nth);
            const bool isDeleted = DirDelete(directory.At("tree"), true, false);
            const int reason = errno;
            calls = plan.Disarm();
            EXPECT_EQ(isDeleted, calls < nth) << nth;
            EXPECT_TRUE(isDeleted || reason == EIO || reason == EMFILE) << nth << " " << reason;
            EXPECT_TRUE(DirDelete(directory.At("tree"), true, true)) << nth;
            EXPECT_FALSE(directory.Has("tree"));
        }
    }
    FaultShimUse(nullptr);
}

TEST(LumDirectoryDelete, FailsWithoutMemory) {
    const TempDirectory directory;
    directory.Write("a-tree-whose-name-is-longer-than-what-a-text-holds-in-itself/file", "");
    const LumString path = directory.At("a-tree-whose-name-is-longer-than-what-a-text-holds-in-itself");
    {
        const MemoryFault fault(1);
        EXPECT_FALSE(DirDelete(path, true, true));
        EXPECT_EQ(errno, ENOMEM);
    }
    EXPECT_TRUE(DirDelete(path, true, true));
}

TEST(LumDirectoryDelete, NeedsFewDescriptorsForADeepTree) {
    const TempDirectory directory;
    directory.MakeDirectory("tree");
    MakeDeep(directory.Path() / "tree", 300);
    const ResourceLimit limit(RLIMIT_NOFILE, 32);
    EXPECT_TRUE(DirDelete(directory.At("tree"), true, false));
    EXPECT_EQ(directory.CountEntries(), 0U);
}

TEST(LumFileCopy, CopiesTheWholeContent) {
    const TempDirectory directory;
    const std::string content = std::string(kMegabyte, 'x') + std::string(3, '\0') + "end";
    directory.Write("from", content);
    EXPECT_TRUE(FileCopy(directory.At("from"), directory.At("to"), false));
    EXPECT_EQ(directory.Read("to"), content);
    EXPECT_EQ(ModeOf(directory.At("to")), 0600U);
    EXPECT_EQ(directory.CountEntries(), 2U);
}

TEST(LumFileCopy, ReplacesTheTargetOrKeepsIt) {
    const TempDirectory directory;
    directory.Write("from", "new");
    directory.Write("to", "old");
    EXPECT_FALSE(FileCopy(directory.At("from"), directory.At("to"), true));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(directory.Read("to"), "old");
    EXPECT_TRUE(FileCopy(directory.At("from"), directory.At("to"), false));
    EXPECT_EQ(directory.Read("to"), "new");
    EXPECT_TRUE(FileCopy(directory.At("from"), directory.At("fresh"), true));
    EXPECT_EQ(directory.Read("fresh"), "new");
    EXPECT_EQ(directory.CountEntries(), 3U);
}

TEST(LumFileCopy, FailsForWhatIsNoRegularFile) {
    const TempDirectory directory;
    directory.Write("from", "x");
    directory.MakeDirectory("directory");
    ASSERT_EQ(mkfifo(directory.At("pipe").GetString(), 0600), 0);
    EXPECT_FALSE(FileCopy(directory.At("missing"), directory.At("to"), false));
    EXPECT_FALSE(FileCopy(directory.At("directory"), directory.At("to"), false));
    EXPECT_FALSE(FileCopy(directory.At("pipe"), directory.At("to"), false));
    EXPECT_FALSE(FileCopy(directory.At("from"), directory.At("directory"), false));
    EXPECT_FALSE(FileCopy(directory.At("from"), directory.At("missing/to"), false));
    EXPECT_FALSE(FileCopy("", directory.At("to"), false));
    EXPECT_FALSE(FileCopy(directory.At("from"), "", false));
    EXPECT_FALSE(FileCopy(WithNull(directory.At("from")), directory.At("to"), false));
    EXPECT_EQ(directory.CountEntries(), 3U);
}

TEST(LumFileCopy, LeavesNothingBehindOnAFullDisk) {
    const TempDirectory directory;
    directory.Write("from", std::string(kMegabyte, 'x'));
    directory.Write("to", "old");
    const ResourceLimit limit(RLIMIT_FSIZE, 1000);
    EXPECT_FALSE(FileCopy(directory.At("from"), directory.At("to"), false));
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(directory.Read("to"), "old");
    EXPECT_EQ(directory.CountEntries(), 2U);
}

/// Runs `work -> bool` once for each call by which it changes something in `directory`, and has that call
/// fail: `work` must fail too, and `undo` is called after each. How many such calls there are.
template <class Work, class Undo>
uint64_t CallsThatMatter(const TempDirectory& directory, Work&& work, Undo&& undo) {
    FaultPlan plan;
    plan.Watch(directory.Path().string());
    FaultShimUse(&plan);
    uint64_t calls = 0;
    bool isDone = false;
    for (uint64_t nth = 1; !isDone; ++nth) {
        plan.Arm(FaultPlan::Kind::kBroken, nth);
        isDone = work();
        calls = plan.Disarm();
        EXPECT_EQ(isDone, calls < nth) << nth;
        undo();
    }
    FaultShimUse(nullptr);
    return calls;
}

TEST(LumFileCopy, IsSyncedBeforeItHasItsNameAndItsNameAfterwards) {
    const TempDirectory directory;
    directory.Write("from", "content");
    EXPECT_EQ(CallsThatMatter(
                  directory, [&] { return FileCopy(directory.At("from"), directory.At("to"), false); },
                  [&] { fs::remove(directory / "to"); }),
              5U)
        << "made, written, synced, named, the name synced";
}

TEST(LumFileMove, SyncsTheFileAndItsNewName) {
    const TempDirectory directory;
    const auto put = [&] {
        fs::remove(directory / "to");
        directory.Write("from", "content");
    };
    put();
    EXPECT_EQ(CallsThatMatter(
                  directory, [&] { return FileMove(directory.At("from"), directory.At("to")); }, put),
              3U)
        << "synced, renamed, the name synced";
}

TEST(LumFileDelete, SyncsTheDirectoryWhereItIsForGood) {
    const TempDirectory directory;
    const auto put = [&] { directory.Write("file", "content"); };
    put();
    EXPECT_EQ(CallsThatMatter(
                  directory, [&] { return FileDeleteForGood(directory.At("file")); }, put),
              2U)
        << "deleted, that synced";
}

TEST(LumFileReplace, IsSyncedBeforeItHasItsNameAndItsNameAfterwards) {
    const TempDirectory directory;
    LumString error;
    EXPECT_EQ(CallsThatMatter(
                  directory, [&] { return FileReplace(directory.At("file"), "content", error); },
                  [&] { fs::remove(directory / "file"); }),
              5U)
        << "made, written, synced, named, the name synced";
}

TEST(LumFileMove, GivesTheFileItsNewPath) {
    const TempDirectory directory;
    directory.Write("from", "content");
    directory.MakeDirectory("inner");
    EXPECT_TRUE(FileMove(directory.At("from"), directory.At("inner/to")));
    EXPECT_EQ(directory.Read("inner/to"), "content");
    EXPECT_FALSE(directory.Has("from"));
}

TEST(LumFileMove, KeepsWhatIsThere) {
    const TempDirectory directory;
    directory.Write("from", "new");
    directory.Write("to", "old");
    EXPECT_FALSE(FileMove(directory.At("from"), directory.At("to")));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(directory.Read("from"), "new");
    EXPECT_EQ(directory.Read("to"), "old");
}

TEST(LumFileMove, FailsForWhatIsNoRegularFile) {
    const TempDirectory directory;
    directory.Write("from", "x");
    directory.MakeDirectory("directory");
    EXPECT_FALSE(FileMove(directory.At("missing"), directory.At("to")));
    EXPECT_FALSE(FileMove(directory.At("directory"), directory.At("to")));
    EXPECT_FALSE(FileMove(directory.At("from"), directory.At("missing/to")));
    EXPECT_FALSE(FileMove("", directory.At("to")));
    EXPECT_FALSE(FileMove(directory.At("from"), WithNull(directory.At("to"))));
    EXPECT_EQ(directory.CountEntries(), 2U);
}

TEST(LumFileDelete, DeletesAFileOrALinkItself) {
    const TempDirectory directory;
    directory.Write("file", "");
    fs::create_symlink("file", directory.Path() / "link");
    EXPECT_TRUE(FileDelete(directory.At("link"), false));
    EXPECT_TRUE(directory.Has("file"));
    EXPECT_TRUE(FileDelete(directory.At("file"), false));
    EXPECT_FALSE(directory.Has("file"));
}

TEST(LumFileDelete, CountsAMissingFileAsDeletedWithTheFlagOnly) {
    const TempDirectory directory;
    EXPECT_TRUE(FileDelete(directory.At("missing"), true));
    EXPECT_FALSE(FileDelete(directory.At("missing"), false));
}

TEST(LumFileDelete, FailsForADirectory) {
    const TempDirectory directory;
    directory.MakeDirectory("directory");
    directory.Write("file", "");
    for (const bool missingIsDeleted : {false, true}) {
        EXPECT_FALSE(FileDelete(directory.At("directory"), missingIsDeleted));
        EXPECT_FALSE(FileDelete(WithNull(directory.At("file")), missingIsDeleted));
    }
    EXPECT_TRUE(directory.Has("directory"));
    EXPECT_TRUE(directory.Has("file"));
}

TEST(LumDirectoryRead, ListsEveryEntry) {
    const TempDirectory directory;
    directory.Write("a", "");
    directory.MakeDirectory("b");
    LumDirectory* const listing = OpenDirectory(directory.At(""));
    ASSERT_NE(listing, nullptr);
    std::multiset<std::string> names;
    LumString name;
    while (ReadDirectory(listing, name)) {
        names.emplace(name.View());
    }
    EXPECT_EQ(names, (std::multiset<std::string>{".", "..", "a", "b"}));
    name = "kept";
    EXPECT_FALSE(ReadDirectory(listing, name));
    EXPECT_EQ(name, "kept");
    CloseDirectory(listing);
}

TEST(LumDirectoryRead, CannotBeOpenedWhereThereIsNone) {
    const TempDirectory directory;
    directory.Write("file", "");
    EXPECT_EQ(OpenDirectory(directory.At("missing")), nullptr);
    EXPECT_EQ(OpenDirectory(directory.At("file")), nullptr);
    EXPECT_EQ(OpenDirectory(""), nullptr);
    EXPECT_EQ(OpenDirectory(WithNull(directory.At(""))), nullptr);
    LumString name;
    EXPECT_FALSE(ReadDirectory(nullptr, name));
    CloseDirectory(nullptr);
}

TEST(LumFileIsRegular, TellsRegularFilesFromTheRest) {
    const TempDirectory directory;
    directory.Write("file", "");
    fs::create_symlink("file", directory.Path() / "link");
    ASSERT_EQ(mkfifo(directory.At("pipe").GetString(), 0600), 0);
    EXPECT_TRUE(IsRegularFile(directory.At("file")));
    for (const char* name : {"link", "pipe", ".", "missing"}) {
        EXPECT_FALSE(IsRegularFile(directory.At(name))) << name;
    }
    EXPECT_FALSE(IsRegularFile(""));
    EXPECT_FALSE(IsRegularFile(WithNull(directory.At("file"))));
}

TEST(LumFileRead, ReadsTheWholeFile) {
    const TempDirectory directory;
    const std::string bytes = std::string("a\0b\r\n", 5) + std::string(100000, 'x');
    directory.Write("file", bytes);
    fs::create_symlink("file", directory.Path() / "link");
    for (const char* name : {"file", "link"}) {
        std::string content = "old";
        LumString error;
        EXPECT_TRUE(FileRead(directory.At(name), bytes.size(), content, error));
        EXPECT_EQ(content, bytes);
    }
}

TEST(LumFileRead, ReadsAFileThatTheSystemGivesNoSizeFor) {
    std::string content;
    LumString error;
    EXPECT_TRUE(FileRead("/proc/self/status", kMegabyte, content, error));
    EXPECT_THAT(content, HasSubstr("Pid:"));
}

TEST(LumFileRead, SaysWhyItFailsAndKeepsTheOutput) {
    const TempDirectory directory;
    directory.Write("file", "12345");
    directory.MakeDirectory("directory");
    ASSERT_EQ(mkfifo(directory.At("pipe").GetString(), 0600), 0);
    const std::pair<LumString, LumString> cases[] = {
        {directory.At("missing"), "No such file or directory"},
        {"", "No such file or directory"},
        {directory.At("directory"), "Is a directory"},
        {directory.At("pipe"), "Not a regular file"},
        {"/dev/null", "Not a regular file"},
        {directory.At("file"), "Larger than 4 bytes"},
        {directory.At("file/below"), "Not a directory"},
    };
    for (const auto& [path, reason] : cases) {
        std::string content = "old";
        LumString error;
        EXPECT_FALSE(FileRead(path, 4, content, error)) << path.GetString();
        EXPECT_EQ(error, reason.GetString());
        EXPECT_EQ(content, "old");
    }
}

TEST(LumFileRead, SaysThatReadingFailed) {
    std::string content;
    LumString error;
    // The process's own memory, which has nothing at its begin.
    EXPECT_FALSE(FileRead("/proc/self/mem", kMegabyte, content, error));
    EXPECT_EQ(error, "Input/output error");
}

TEST(LumFileReplace, MakesANewFileForTheOwnerAlone) {
    const TempDirectory directory;
    LumString error;
    EXPECT_TRUE(FileReplace(directory.At("file"), std::string_view("a\0b", 3), error));
    EXPECT_EQ(directory.Read("file"), std::string("a\0b", 3));
    EXPECT_EQ(ModeOf(directory.At("file")), 0600U);
    EXPECT_EQ(directory.CountEntries(), 1U);
}

TEST(LumFileReplace, KeepsTheModeOfTheFileThatItReplaces) {
    const TempDirectory directory;
    directory.Write("file", "old");
    fs::permissions(directory.Path() / "file", fs::perms(0644));
    LumString error;
    EXPECT_TRUE(FileReplace(directory.At("file"), "new", error));
    EXPECT_EQ(directory.Read("file"), "new");
    EXPECT_EQ(ModeOf(directory.At("file")), 0644U);
}

TEST(LumFileReplace, ReplacesALinkRatherThanItsTarget) {
    const TempDirectory directory;
    directory.Write("target", "old");
    fs::create_symlink("target", directory.Path() / "link");
    LumString error;
    EXPECT_TRUE(FileReplace(directory.At("link"), "new", error));
    EXPECT_TRUE(IsRegularFile(directory.At("link")));
    EXPECT_EQ(ModeOf(directory.At("link")), 0600U);
    EXPECT_EQ(directory.Read("target"), "old");
}

TEST(LumFileReplace, WorksOnANameInTheCurrentDirectoryAndOnTheLongestName) {
    const TempDirectory directory;
    const fs::path before = fs::current_path();
    fs::current_path(directory.Path());
    LumString error;
    EXPECT_TRUE(FileReplace("file", "1", error));
    fs::current_path(before);
    EXPECT_EQ(directory.Read("file"), "1");
    EXPECT_TRUE(FileReplace(directory.At(std::string(255, 'n')), "2", error));
    EXPECT_EQ(directory.Read(std::string(255, 'n')), "2");
}

TEST(LumFileReplace, KeepsTheOldFileWhereItFails) {
    const TempDirectory directory;
    directory.Write("file", "old");
    directory.MakeDirectory("directory");
    ASSERT_EQ(mkfifo(directory.At("pipe").GetString(), 0600), 0);
    LumString error;
    EXPECT_FALSE(FileReplace(directory.At("directory"), "x", error));
    EXPECT_EQ(error, "Is a directory");
    EXPECT_FALSE(FileReplace(directory.At("pipe"), "x", error));
    EXPECT_EQ(error, "Invalid argument");
    EXPECT_FALSE(FileReplace(directory.At("missing/file"), "x", error));
    EXPECT_EQ(error, "No such file or directory");
    EXPECT_FALSE(FileReplace("", "x", error));
    EXPECT_FALSE(FileReplace(WithNull(directory.At("file")), "x", error));
    {
        const ResourceLimit limit(RLIMIT_FSIZE, 10);
        EXPECT_FALSE(FileReplace(directory.At("file"), std::string(1000, 'x'), error));
        EXPECT_EQ(error, "File too large");
    }
    EXPECT_EQ(directory.Read("file"), "old");
    EXPECT_EQ(directory.CountEntries(), 3U);
}

TEST(LumFileReplace, LeavesUnfinishedFilesToWhoeverOwnsTheDirectory) {
    const TempDirectory directory;
    directory.Write(".lum-a1b2c3", "half");
    directory.Write("lum-a1b2c3", "whole");
    directory.MakeDirectory(".lum-directory");
    DirRemoveLeftovers(directory.At(""));
    EXPECT_FALSE(directory.Has(".lum-a1b2c3"));
    EXPECT_EQ(directory.CountEntries(), 2U);
    DirRemoveLeftovers(directory.At("missing"));
    DirRemoveLeftovers("");
}

namespace {

/// A temporary directory that files are made in while the object lives.
class LumTempFile : public testing::Test {
protected:
    LumTempFile() { SetTempDirectory(directory_.At("tmp")); }
    ~LumTempFile() override { SetTempDirectory(before_); }

    const TempDirectory directory_;
    const LumString before_ = GetTempDirectory();
};

}  // namespace

TEST_F(LumTempFile, LiesInTheTemporaryDirectoryForTheOwnerAlone) {
    EXPECT_EQ(before_, fs::temp_directory_path().c_str());
    directory_.MakeDirectory("tmp");
    LumString first;
    LumString second;
    const FileDescriptor firstFile = OpenTempFile(first);
    const FileDescriptor secondFile = OpenTempFile(second);
    ASSERT_TRUE(firstFile.IsOpen());
    ASSERT_TRUE(secondFile.IsOpen());
    EXPECT_TRUE(FileWriteAll(firstFile.Get(), "x"));
    EXPECT_NE(first, second);
    EXPECT_EQ(fs::path(first.View()).parent_path(), directory_.Path() / "tmp");
    EXPECT_EQ(ModeOf(first), 0600U);
}

TEST_F(LumTempFile, MakesTheDirectoryAgainWhenItIsMissing) {
    LumString path;
    EXPECT_TRUE(OpenTempFile(path).IsOpen());
    EXPECT_EQ(ModeOf(directory_.At("tmp")), 0700U);
    EXPECT_TRUE(fs::exists(path.GetString()));
}

TEST_F(LumTempFile, CannotBeMadeWhereAFileIsInTheWay) {
    directory_.Write("tmp", "");
    LumString path = "kept";
    EXPECT_FALSE(OpenTempFile(path).IsOpen());
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(path, "kept");
}
