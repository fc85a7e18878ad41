#include <atomic>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include "agent/socket/ControlSocket.h"
#include "support/AgentProcess.h"
#include "support/HttpClient.h"
#include "support/RefusedCall.h"
#include "support/TempDirectory.h"

namespace {

/// A group that this process may give a file to, and for root not the one that new files have.
gid_t AnotherGroup() {
    return ::geteuid() == 0 ? 1 : ::getegid();
}

class ControlSocketFile : public testing::Test {
protected:
    [[nodiscard]] bool Exists() const {
        struct stat status = {};
        return ::lstat(path_.c_str(), &status) == 0;
    }
    [[nodiscard]] mode_t GetMode() const {
        struct stat status = {};
        return ::lstat(path_.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
    }
    [[nodiscard]] bool Open(std::optional<gid_t> group = std::nullopt) {
        return socket_.Open(LumString(std::string_view(path_)), {group, {}}, error_);
    }
    /// A socket at the path, of a type that is not served; its file outlives it.
    [[nodiscard]] FileDescriptor Bind(int type) const {
        FileDescriptor made(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path_.c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(::bind(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        return made;
    }

    TempDirectory scratch_;
    const std::string path_ = scratch_ / "agent.sock";
    ControlSocket socket_;
    LumString error_;
};

TEST_F(ControlSocketFile, ListensForTheOwnerAlone) {
    ASSERT_TRUE(Open()) << error_.GetString();
    EXPECT_EQ(GetMode(), 0600U);
    EXPECT_TRUE(HttpClient(path_).IsConnected());
}

TEST_F(ControlSocketFile, OpensToItsGroupOnly) {
    const gid_t group = AnotherGroup();
    ASSERT_TRUE(Open(group)) << error_.GetString();
    struct stat status = {};
    ASSERT_EQ(::lstat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0660U);
    EXPECT_EQ(status.st_gid, group);
}

TEST_F(ControlSocketFile, LeavesNothingWhereItMayNotBeGivenToItsGroup) {
    constexpr uid_t nobody = 65534;
    const bool isRoot = ::geteuid() == 0;
    if (isRoot) {
        ASSERT_EQ(::chown(scratch_.Path().c_str(), nobody, nobody), 0);
        ASSERT_EQ(::seteuid(nobody), 0);
    }
    constexpr gid_t foreign = 54'321;
    const bool isOpen = Open(foreign);
    if (isRoot) {
        ASSERT_EQ(::seteuid(0), 0);
    }
    EXPECT_FALSE(isOpen);
    EXPECT_EQ(error_,
              ("Cannot open the control socket " + path_ + " to its group: Operation not permitted").c_str());
    EXPECT_FALSE(Exists());
}

TEST_F(ControlSocketFile, IsNeverOpenToOthersNotEvenUnderAnOpenUmask) {
    const gid_t group = AnotherGroup();
    const mode_t before = ::umask(0);
    std::atomic<bool> isDone = false;
    std::set<std::pair<mode_t, gid_t>> seen;
    std::thread watcher([&] {
        while (!isDone) {
            struct stat status = {};
            if (::lstat(path_.c_str(), &status) == 0) {
                seen.emplace(status.st_mode & 07777U, status.st_gid);
            }
        }
    });
    for (int i = 0; i < 1500; ++i) {
        ASSERT_TRUE(Open(group)) << error_.GetString();
        socket_.RemoveFile();
    }
    isDone = true;
    watcher.join();
    ::umask(before);
    for (const auto& [mode, owner] : seen) {
        EXPECT_EQ(mode & 0117U, 0U) << std::oct << mode;
        EXPECT_TRUE((mode & 0060U) == 0 || owner == group) << "open to group " << owner;
    }
}

TEST_F(ControlSocketFile, ReplacesOneThatNobodyServes) {
    Bind(SOCK_STREAM).Close();
    ASSERT_TRUE(Open()) << error_.GetString();
    EXPECT_TRUE(HttpClient(path_).IsConnected());
}

TEST_F(ControlSocketFile, RefusesToReplaceOneThatIsServed) {
    ControlSocket other;
    ASSERT_TRUE(other.Open(LumString(std::string_view(path_)), {}, error_));
    EXPECT_FALSE(Open());
    EXPECT_EQ(error_, ("Cannot make the control socket " + path_ + ": another process serves it").c_str());
    EXPECT_TRUE(HttpClient(path_).IsConnected());
}

TEST_F(ControlSocketFile, RefusesToReplaceASocketOfAnotherKind) {
    const FileDescriptor other = Bind(SOCK_DGRAM);
    EXPECT_FALSE(Open());
    EXPECT_TRUE(Exists());
}

TEST_F(ControlSocketFile, RefusesToReplaceWhatIsNoSocket) {
    scratch_.Write("agent.sock", "precious");
    EXPECT_FALSE(Open());
    EXPECT_EQ(error_,
              ("Cannot make the control socket " + path_ + ": something that is not a socket is in the way")
                  .c_str());
    EXPECT_EQ(ReadWholeFile(path_), "precious");
    std::filesystem::remove(path_);
    std::filesystem::create_symlink(scratch_ / "elsewhere", path_);
    EXPECT_FALSE(Open());
}

TEST_F(ControlSocketFile, RefusesAPathThatFitsIntoNoAddress) {
    const std::string longest = "/tmp/" + std::string(102, 'x');
    EXPECT_TRUE(ControlSocket::Check(LumString(std::string_view(longest)), error_));
    const std::string tooLong = longest + "x";
    EXPECT_FALSE(ControlSocket::Check(LumString(std::string_view(tooLong)), error_));
    EXPECT_EQ(error_,
              ("The path of the control socket has 108 bytes, it must have 1 to 107: " + tooLong).c_str());
    EXPECT_FALSE(ControlSocket::Check("", error_));
}

TEST_F(ControlSocketFile, SaysWhyItCannotBeMade) {
    const std::string missing = scratch_ / "missing/agent.sock";
    EXPECT_FALSE(socket_.Open(LumString(std::string_view(missing)), {}, error_));
    EXPECT_EQ(error_, ("Cannot make the control socket " + missing + ": No such file or directory").c_str());
    scratch_.Write("file", "");
    const std::string under = scratch_ / "file/agent.sock";
    EXPECT_FALSE(ControlSocket::Check(LumString(std::string_view(under)), error_));
    EXPECT_EQ(error_, ("Cannot make the control socket " + under + ": Not a directory").c_str());
}

TEST_F(ControlSocketFile, LeavesNothingWhereTheSystemRefusesACall) {
    const struct {
        long call;
        int reason;
        std::string sentence;
    } refusals[] = {
        {SYS_listen, EADDRINUSE, "Cannot listen on the control socket " + path_ + ": Address already in use"},
        {SYS_lsetxattr, ENOTSUP,
         "Cannot open the control socket " + path_ + " to its group: Operation not supported"}};
    for (const auto& [call, reason, sentence] : refusals) {
        const bool isRefused = RunRefused(call, reason, [this] {
            EXPECT_FALSE(socket_.Open(LumString(std::string_view(path_)), {std::nullopt, {4242}}, error_));
        });
        if (!isRefused) {
            GTEST_SKIP() << "the system does not let a call be refused";
        }
        EXPECT_EQ(error_, sentence.c_str());
        EXPECT_FALSE(Exists());
    }
}

TEST_F(ControlSocketFile, ChecksWithoutMakingAnything) {
    EXPECT_TRUE(ControlSocket::Check(LumString(std::string_view(path_)), error_));
    EXPECT_FALSE(Exists());
    Bind(SOCK_STREAM).Close();
    EXPECT_TRUE(ControlSocket::Check(LumString(std::string_view(path_)), error_));
    EXPECT_TRUE(Exists());
}

TEST_F(ControlSocketFile, RemovesItsFileButNoOther) {
    ASSERT_TRUE(Open());
    socket_.RemoveFile();
    EXPECT_FALSE(Exists());
    ASSERT_TRUE(Open());
    std::filesystem::remove(path_);
    scratch_.Write("agent.sock", "another's");
    socket_.RemoveFile();
    EXPECT_TRUE(Exists());
}

TEST(ControlSocketGroup, IsFoundByNameAndByNumber) {
    EXPECT_EQ(FindGroup("root"), std::optional<gid_t>(0));
    EXPECT_EQ(FindGroup("4242"), std::optional<gid_t>(4242));
    EXPECT_EQ(FindGroup("no such group"), std::nullopt);
    EXPECT_EQ(FindGroup("42x"), std::nullopt);
    EXPECT_EQ(FindGroup(""), std::nullopt);
}

TEST_F(ControlSocketFile, IsOpenToFurtherGroupsByAnAccessList) {
    ASSERT_TRUE(socket_.Open(LumString(std::string_view(path_)), {std::nullopt, {4242, 4141, 4242}}, error_))
        << error_.GetString();
    EXPECT_EQ(GetMode(), 0660U) << "the list's mask stands in the group's place";
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can take on another user's rights";
    }
    ASSERT_EQ(::chmod(std::filesystem::path(path_).parent_path().c_str(), 0755), 0);
    const auto mayConnect = [this](const std::string& groups) {
        return RunShell("setpriv --reuid 4000 --regid 4000 " + groups +
                        " curl -sS --max-time 2 --unix-socket " + path_ +
                        " http://a/ 2>&1 >/dev/null || true")
                   .find("timed out") != std::string::npos;
    };
    EXPECT_TRUE(mayConnect("--groups 4141"));
    EXPECT_TRUE(mayConnect("--groups 4242"));
    EXPECT_FALSE(mayConnect("--groups 4343"));
    EXPECT_FALSE(mayConnect("--clear-groups"));
}

}  // namespace
