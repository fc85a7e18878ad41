#include <filesystem>
#include <fstream>

#include "fleet/BrokerAccounts.h"
#include "fleet/FleetFixture.h"
#include "support/WaitFor.h"

namespace {

/// A broker that lets those in whom the fleet's account vouches for, and each device onto its own subjects.
class FleetCredentials : public FleetFixture {
protected:
    void SetUp() override {
        FleetFixture::SetUp();
        Write("collector", accounts_.MakeCredentials("collector"));
        Write("alpha", DeviceCredentials(accounts_));
        broker_ = std::make_unique<BrokerServer>(scratch_ / "broker", "n1", accounts_.GetConfiguration());
        brokerUrls_ = broker_->GetUrl();
        StartServers(As("collector"));
        StartCollector(As("collector"));
    }

    /// What device "alpha" may do, which is all that it needs: "8e" is the bucket of the name.
    static std::string DeviceCredentials(const BrokerAccounts& accounts) {
        return accounts.MakeCredentials("alpha", {"lum.v1.8e.alpha.*", "lum.ask.alpha"}, {"lum.to.alpha.>"});
    }
    [[nodiscard]] std::string At(const std::string& name) const { return scratch_ / (name + ".creds"); }
    void Write(const std::string& name, const std::string& text) const { std::ofstream(At(name)) << text; }
    [[nodiscard]] std::vector<std::string> As(const std::string& name) const {
        return {"--credentials", At(name)};
    }
    /// A device with one file of two events, whose forwarder has the credentials `as`.
    Device& StartDevice(const std::string& name, const std::string& as) {
        Device& device = AddDevice(name);
        device.DropEvents(1, 2);
        device.Start(brokerUrls_, As(as));
        return device;
    }

    BrokerAccounts accounts_;
};

TEST_F(FleetCredentials, ADeviceWithItsOwnSendsAndHears) {
    const Device& device = StartDevice("alpha", "alpha");
    EXPECT_EQ(WaitForRows("SELECT device, events FROM lum.batch", "alpha|2\n"), "alpha|2\n")
        << device.ReadLog();
    EXPECT_TRUE(WaitFor([&] { return device.CountEntries() == 0; }));
}

TEST_F(FleetCredentials, ADeviceMayNotSendAsAnother) {
    const Device& device = StartDevice("beta", "alpha");
    EXPECT_TRUE(WaitFor([&] {
        return ReadWholeFile(broker_->GetDirectory() + "/log").find(" Violation") != std::string::npos;
    }));
    EXPECT_EQ(device.CountEntries(), 1U);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.batch"), "0\n");
}

TEST_F(FleetCredentials, OnesThatNobodyVouchesForAreRefusedWithALineUntilThereAreOthers) {
    Write("foreign", DeviceCredentials(BrokerAccounts()));
    const Device& device = StartDevice("alpha", "foreign");
    EXPECT_TRUE(WaitFor([&] { return device.ReadLog().find("Cannot connect to ") != std::string::npos; }));
    EXPECT_NE(device.ReadLog().find("Authorization Violation"), std::string::npos) << device.ReadLog();
    EXPECT_EQ(device.CountEntries(), 1U);
    std::filesystem::copy_file(At("alpha"), At("foreign"), std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(WaitForRows("SELECT device, events FROM lum.batch", "alpha|2\n"), "alpha|2\n");
    EXPECT_TRUE(WaitFor([&] { return device.CountEntries() == 0; }));
}

TEST_F(FleetCredentials, AFileThatIsMissingIsNamed) {
    const Device& device = StartDevice("alpha", "missing");
    EXPECT_TRUE(WaitFor([&] { return device.ReadLog().find(At("missing")) != std::string::npos; }))
        << device.ReadLog();
    EXPECT_EQ(device.CountEntries(), 1U);
}

}  // namespace
