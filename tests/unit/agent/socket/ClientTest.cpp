#include <array>
#include <string>
#include <vector>

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "agent/socket/Client.h"
#include "agent/socket/ControlSocket.h"
#include "host/file/FileDescriptor.h"
#include "support/ChildProcess.h"
#include "support/OwnMounts.h"
#include "support/TempDirectory.h"

namespace {

TEST(Client, HasAllItsGroupsHoweverMany) {
    ChildProcess child([](const ChildProcess::Parent& /*parent*/) {
        std::vector<gid_t> groups;
        for (gid_t group = 5000; group < 5300; ++group) {
            groups.push_back(group);
        }
        if (::setgroups(groups.size(), groups.data()) != 0) {
            return 77;
        }
        std::array<int, 2> ends{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        const FileDescriptor own(ends[0]);
        const FileDescriptor peer(ends[1]);
        const Client client = ReadClient(own.Get());
        groups.insert(groups.begin(), ::getegid());
        EXPECT_TRUE(client.isLocal);
        EXPECT_EQ(client.groups, groups);
        return testing::Test::HasFailure() ? 1 : 0;
    });
    const int status = child.Join();
    if (status == 77) {
        GTEST_SKIP() << "only root may choose its groups";
    }
    EXPECT_EQ(status, 0);
}

TEST(Client, IsNobodyWhereItIsNotOfThisMachine) {
    const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_FALSE(ReadClient(socket.Get()).isLocal);
    EXPECT_FALSE(ReadClient(-1).isLocal);
}

TEST(Client, IsCalledByItsNumberWhereItHasNoName) {
    EXPECT_EQ(UserName(4'000'000'001U), "4000000001");
    EXPECT_EQ(UserName(0), "root");
}

TEST(Client, IsFoundAmongUsersAndGroupsWithMuchToSay) {
    const TempDirectory scratch;
    const std::string users =
        scratch.Write("passwd", "long:x:54321:1:" + std::string(5000, 'x') + ":/:/bin/sh\n");
    std::string members;
    for (int i = 0; i < 1000; ++i) {
        members += (i == 0 ? "user" : ",user") + std::to_string(i);
    }
    const std::string groups = scratch.Write("group", "crowd:x:54322:" + members + "\n");
    ChildProcess child([&](const ChildProcess::Parent& /*parent*/) {
        if (!TakeOwnMounts() || !Cover("/etc/passwd", users) || !Cover("/etc/group", groups)) {
            return 77;
        }
        EXPECT_EQ(UserName(54321), "long");
        EXPECT_EQ(FindGroup("crowd"), std::optional<gid_t>(54322));
        return testing::Test::HasFailure() ? 1 : 0;
    });
    const int status = child.Join();
    if (status == 77) {
        GTEST_SKIP() << "only root may have mounts of its own";
    }
    EXPECT_EQ(status, 0);
}

}  // namespace
