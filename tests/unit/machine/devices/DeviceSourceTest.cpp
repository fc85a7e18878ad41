#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "machine/devices/DeviceSource.h"

namespace {

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

}  // namespace
