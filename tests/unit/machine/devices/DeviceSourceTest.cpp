#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "machine/devices/DeviceSource.h"
#include "support/ChildProcess.h"
#include "support/LogReader.h"
#include "support/OwnMounts.h"
#include "support/RefusedCall.h"
#include "support/ResourceLimit.h"
#include "support/UdevMessages.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const Device kStick{"usb", "Acme", "Stick 3", "0815"};
const Device kDisk{"block", "", "", ""};

TEST(DeviceList, SurvivesWritingAndReading) {
    DeviceList list{7, {{"/devices/a", kStick}, {"/devices/b", kDisk}}};
    DeviceList read;
    ASSERT_TRUE(read.Read(list.Write()));
    EXPECT_EQ(read.generation, 7U);
    ASSERT_EQ(read.devices.size(), 2U);
    EXPECT_EQ(read.devices["/devices/a"].product, "Stick 3");
    EXPECT_EQ(read.devices["/devices/b"].serial, "");
    ASSERT_TRUE(read.Read(DeviceList{7, {{"/devices/a\tb\n", {"usb", "\t", "\n", ""}}}}.Write()));
    ASSERT_EQ(read.devices.size(), 1U);
    EXPECT_EQ(read.devices["/devices/a b "].vendor, " ");
    EXPECT_FALSE(read.Read(""));
    EXPECT_FALSE(read.Read("nonsense\n"));
    EXPECT_EQ(read.generation, 7U);
}

TEST(DeviceSource, TheDifferenceOfTwoListsBecomesEvents) {
    const DeviceList before{7, {{"/devices/a", kStick}, {"/devices/b", kDisk}}};
    const Devices now = {{"/devices/b", kDisk}, {"/devices/c", kStick}};
    const std::vector<MachineEvent> events = CompareDevices(before, now);
    ASSERT_EQ(events.size(), 2U);
    LumContainer removed = events[0].params;
    removed.ClearName("Record");
    removed.ClearName("Time");
    EXPECT_EQ(
        removed.ToJson(),
        R"({"Action":"remove","Subsystem":"usb","Device":"/devices/a","Vendor":"Acme","Product":"Stick 3",)"
        R"("Serial":"0815"})");
    EXPECT_THAT(CompareDevices(before, before.devices), IsEmpty());
}

TEST(DeviceSource, TheSameDifferenceHasTheSameRecordsUntilItIsWrittenDown) {
    DeviceList before{7, {{"/devices/a", kStick}}};
    const uint64_t first = CompareDevices(before, {})[0].record;
    EXPECT_EQ(CompareDevices(before, {})[0].record, first);
    ++before.generation;
    EXPECT_NE(CompareDevices(before, {})[0].record, first);
}

TEST(DeviceSource, WithoutUdevItSaysSo) {
    if (::access("/run/udev/control", F_OK) == 0) {
        GTEST_SKIP() << "udev runs here";
    }
    DeviceSource source;
    LumString error;
    SourceBatch batch;
    EXPECT_FALSE(source.Open(error));
    EXPECT_EQ(error, "udev does not run: /run/udev/control: No such file or directory");
    EXPECT_FALSE(source.ReadSince("", 1, batch, error));
    EXPECT_EQ(source.GetDescriptor(), -1);
}

/// Runs `routine` with /run and a network of its own, in which udev seems to run and only the test speaks for
/// it. Its status, or -1 with the reason in `whyNot`.
int RunWithUdev(const std::function<void(const UdevMessages&)>& routine, std::string& whyNot) {
    ChildProcess child([&](const ChildProcess::Parent& parent) {
        if (!TakeOwnMounts() || unshare(CLONE_NEWNET) != 0 ||
            mount("lum-test", "/run", "tmpfs", 0, nullptr) != 0) {
            return 77;
        }
        mkdir("/run/udev", 0755);
        std::ofstream("/run/udev/control").flush();
        routine(UdevMessages());
        parent.Tell();
        return testing::Test::HasFailure() ? 1 : 0;
    });
    const int status = child.Join();
    if (status == 77) {
        whyNot = "only root may have a network of its own";
    }
    return status;
}

const UdevMessages::Properties kStickAdded = {{"ACTION", "add"},
                                              {"DEVPATH", "/devices/pci0000:00/usb9/9-1"},
                                              {"SUBSYSTEM", "usb"},
                                              {"DEVTYPE", "usb_device"},
                                              {"SEQNUM", "1"},
                                              {"ID_VENDOR", "Acme"},
                                              {"ID_MODEL", "Stick\t3\xff"},
                                              {"ID_SERIAL", "0815"}};

UdevMessages::Properties With(UdevMessages::Properties properties, const std::string& name,
                              const std::string& value) {
    for (auto& [key, text] : properties) {
        text = key == name ? value : text;
    }
    return properties;
}

/// Waits for a message and reads all that have come: "add /devices/..." each.
std::vector<std::string> ReadChanges(DeviceSource& source, std::string& position) {
    std::vector<std::string> changes;
    pollfd wait = {source.GetDescriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, 30'000), 1);
    SourceBatch batch;
    LumString error;
    EXPECT_TRUE(source.ReadSince(position, 50, batch, error)) << error.GetString();
    for (const MachineEvent& event : batch.events) {
        LumString action;
        LumString device;
        EXPECT_TRUE(event.params.GetString("Action", action) && event.params.GetString("Device", device));
        changes.push_back((action + " " + device).GetString());
    }
    position = batch.position;
    return changes;
}

/// A test that is `routine`, run as above; skipped where this machine cannot.
void WithUdev(const std::function<void(const UdevMessages&)>& routine) {
    std::string whyNot;
    const int status = RunWithUdev(routine, whyNot);
    if (!whyNot.empty()) {
        GTEST_SKIP() << whyNot;
    }
    EXPECT_EQ(status, 0);
}

TEST(DeviceSource, SeesADeviceComeAndGo) {
    WithUdev([](const UdevMessages& udev) {
        DeviceSource source;
        LumString error;
        SourceBatch first;
        ASSERT_TRUE(source.Open(error)) << error.GetString();
        ASSERT_TRUE(source.ReadSince("", 50, first, error)) << error.GetString();
        EXPECT_THAT(first.events, IsEmpty()) << "what is plugged in at first was not plugged in now";
        std::string position = first.position;
        ASSERT_TRUE(udev.Send(kStickAdded));
        EXPECT_THAT(ReadChanges(source, position), ElementsAre("add /devices/pci0000:00/usb9/9-1"));
        EXPECT_NE(position.find("\tAcme\tStick\uFFFD3\uFFFD\t0815\n"), std::string::npos) << position;
        // Plugged in twice without having been out, an interface, and a device that is not one.
        ASSERT_TRUE(udev.Send(kStickAdded));
        ASSERT_TRUE(udev.Send(With(kStickAdded, "DEVTYPE", "usb_interface")));
        ASSERT_TRUE(udev.Send(With(With(With(kStickAdded, "SUBSYSTEM", "block"), "DEVTYPE", "disk"),
                                   "DEVPATH", "/devices/virtual/block/loop9")));
        ASSERT_TRUE(udev.Send(With(kStickAdded, "ACTION", "remove")));
        std::vector<std::string> changes;
        while (changes.empty()) {
            changes = ReadChanges(source, position);
        }
        EXPECT_THAT(changes, ElementsAre("remove /devices/pci0000:00/usb9/9-1"));
    });
}

TEST(DeviceSource, ABatchEndsAtItsLimit) {
    WithUdev([](const UdevMessages& udev) {
        DeviceSource source;
        LumString error;
        SourceBatch batch;
        ASSERT_TRUE(source.Open(error)) << error.GetString();
        ASSERT_TRUE(source.ReadSince("", 50, batch, error)) << error.GetString();
        std::string position = batch.position;
        ASSERT_TRUE(udev.Send(With(kStickAdded, "ACTION", "change")));
        for (const char* const place : {"/devices/usb9/1", "/devices/usb9/2", "/devices/usb9/3"}) {
            ASSERT_TRUE(udev.Send(With(kStickAdded, "DEVPATH", place)));
        }
        std::vector<std::size_t> sizes;
        for (batch.more = true; batch.more; position = batch.position) {
            batch = SourceBatch();
            ASSERT_TRUE(source.ReadSince(position, 2, batch, error)) << error.GetString();
            sizes.push_back(batch.events.size());
        }
        EXPECT_THAT(sizes, ElementsAre(2U, 1U));
    });
}

TEST(DeviceSource, SaysWhyItCannotListen) {
    WithUdev([](const UdevMessages&) {
        DeviceSource source;
        LumString error;
        bool isOpen = false;
        {
            const ResourceLimit noFiles(RLIMIT_NOFILE, 0);
            isOpen = source.Open(error);
        }
        EXPECT_FALSE(isOpen);
        EXPECT_EQ(error, "udev cannot be listened to");
        const bool isRefused = RunRefused(SYS_bind, EACCES, [&] { EXPECT_FALSE(source.Open(error)); });
        if (isRefused) {
            EXPECT_EQ(error, "udev cannot be listened to: Permission denied");
        }
        EXPECT_EQ(source.GetDescriptor(), -1);
    });
}

TEST(DeviceSource, WhatCameWhileNobodyListenedShowsAsTheDifference) {
    WithUdev([](const UdevMessages&) {
        DeviceSource source;
        LumString error;
        SourceBatch batch;
        ASSERT_TRUE(source.Open(error)) << error.GetString();
        const DeviceList before{3, {{"/devices/pci0000:00/usb9/9-1", kStick}}};
        ASSERT_TRUE(source.ReadSince(before.Write(), 50, batch, error)) << error.GetString();
        ASSERT_GE(batch.events.size(), 1U);
        LumString action;
        EXPECT_TRUE(batch.events[0].params.GetString("Action", action));
        EXPECT_EQ(action, "remove");
    });
}

TEST(DeviceSource, AFloodOfMessagesIsMadeUpForByTheDifference) {
    WithUdev([](const UdevMessages& udev) {
        DeviceSource source;
        LumString error;
        SourceBatch batch;
        ASSERT_TRUE(source.Open(error)) << error.GetString();
        ASSERT_TRUE(source.ReadSince("", 50, batch, error)) << error.GetString();
        const std::size_t there = CountIn(batch.position, "\n");
        std::string position = batch.position;
        const int bytes = 8192;
        ASSERT_EQ(setsockopt(source.GetDescriptor(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes)), 0);
        for (int i = 0; i < 1000; ++i) {
            static_cast<void>(udev.Send(With(kStickAdded, "DEVPATH", "/devices/usb9/" + std::to_string(i))));
        }
        for (batch.more = true; batch.more; position = batch.position) {
            batch = SourceBatch();
            ASSERT_TRUE(source.ReadSince(position, 50, batch, error)) << error.GetString();
        }
        EXPECT_EQ(CountIn(position, "\n"), there) << "what is not there is plugged in";
    });
}

}  // namespace
