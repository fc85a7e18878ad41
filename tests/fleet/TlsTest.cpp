#include <fstream>

#include "fleet/FleetFixture.h"
#include "support/AgentProcess.h"
#include "support/WaitFor.h"

namespace {

/// A broker that lets only those in whose certificates it knows, and each device onto its own subjects.
class FleetTls : public FleetFixture {
protected:
    void SetUp() override {
        FleetFixture::SetUp();
        scratch_.MakeDirectory("tls");
        Shell(
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout ca.key -out "
            "ca.pem"
            " -days 2 -subj /CN=ca");
        MakeCertificate("server", "localhost", "DNS:localhost", 2);
        MakeCertificate("alpha", "alpha", "email:alpha@fleet.example", 2);
        MakeCertificate("collector", "collector", "email:collector@fleet.example", 2);
        // "8e" is the bucket of the name.
        broker_ = std::make_unique<BrokerServer>(
            scratch_ / "broker", "n1",
            "tls { cert_file: '" + At("server.pem") + "', key_file: '" + At("server.key") + "', ca_file: '" +
                At("ca.pem") +
                "', verify_and_map: true }\nauthorization { users: [ { user: \"CN=alpha\", permissions: { "
                "publish: "
                "[\"lum.v1.8e.alpha.*\", \"lum.ask.alpha\"], subscribe: [\"lum.to.alpha.>\"] } }, { user: "
                "\"CN=collector\" } ] }");
        brokerUrls_ = "tls://localhost:" + std::to_string(broker_->GetPort());
    }

    [[nodiscard]] std::string At(const std::string& name) const { return scratch_ / ("tls/" + name); }
    void Shell(const std::string& command) const {
        ASSERT_EQ(RunShell("cd '" + scratch_ / "tls" + "' && " + command + " 2>>log"), "") << command;
    }
    void MakeCertificate(const std::string& name, const std::string& subject, const std::string& other,
                         int days) {
        std::ofstream(At("extension")) << "subjectAltName=" << other << '\n';
        Shell("openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout " + name +
              ".key -out " + name + ".csr -subj /CN=" + subject);
        Shell("openssl x509 -req -in " + name + ".csr -CA ca.pem -CAkey ca.key -CAcreateserial -out " + name +
              ".pem -days " + std::to_string(days) + " -extfile extension");
    }
    [[nodiscard]] std::vector<std::string> As(const std::string& name) const {
        return {"--tls-ca", At("ca.pem"), "--tls-cert", At(name + ".pem"), "--tls-key", At(name + ".key")};
    }
};

TEST_F(FleetTls, ADeviceWithItsCertificateSendsAndHears) {
    StartServers(As("collector"));
    StartCollector(As("collector"));
    Device& device = AddDevice("alpha");
    device.DropEvents(1, 2);
    device.Start(brokerUrls_, As("alpha"));
    EXPECT_EQ(WaitForRows("SELECT device, events FROM lum.batch", "alpha|2\n"), "alpha|2\n");
    EXPECT_TRUE(WaitFor([&] { return device.CountEntries() == 0; }));
}

TEST_F(FleetTls, ADeviceMayNotSendAsAnother) {
    StartServers(As("collector"));
    StartCollector(As("collector"));
    Device& device = AddDevice("beta");
    device.DropEvents(1, 2);
    device.Start(brokerUrls_, As("alpha"));
    EXPECT_TRUE(WaitFor([&] {
        return ReadWholeFile(broker_->GetDirectory() + "/log").find("Publish Violation") !=
                   std::string::npos ||
               ReadWholeFile(broker_->GetDirectory() + "/log").find("Subscription Violation") !=
                   std::string::npos;
    }));
    EXPECT_EQ(device.CountEntries(), 1U);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.batch"), "0\n");
}

TEST_F(FleetTls, ACertificateThatRanOutIsRefusedWithALineUntilThereIsANewOne) {
    StartServers(As("collector"));
    StartCollector(As("collector"));
    MakeCertificate("old", "alpha", "email:alpha@fleet.example", 0);
    Device& device = AddDevice("alpha");
    device.DropEvents(1, 2);
    device.Start(brokerUrls_, As("old"));
    EXPECT_TRUE(
        WaitFor([&] { return device.ReadLog().find("Cannot connect to tls://") != std::string::npos; }));
    EXPECT_NE(device.ReadLog().find("/old.pem has run out"), std::string::npos) << device.ReadLog();
    EXPECT_EQ(device.CountEntries(), 1U);
    MakeCertificate("old", "alpha", "email:alpha@fleet.example", 2);
    EXPECT_EQ(WaitForRows("SELECT device, events FROM lum.batch", "alpha|2\n"), "alpha|2\n");
    EXPECT_TRUE(WaitFor([&] { return device.CountEntries() == 0; }));
}

TEST_F(FleetTls, AServerThatNobodyVouchesForIsNotSpokenTo) {
    StartServers(As("collector"));
    Shell(
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout x.key -out x.pem"
        " -days 2 -subj /CN=x");
    Device& device = AddDevice("alpha");
    device.DropEvents(1, 2);
    std::vector<std::string> arguments = As("alpha");
    arguments[1] = At("x.pem");
    device.Start(brokerUrls_, arguments);
    EXPECT_TRUE(WaitFor([&] {
        return device.ReadLog().find("unable to get local issuer certificate") != std::string::npos;
    })) << device.ReadLog();
    EXPECT_EQ(device.CountEntries(), 1U);
}

}  // namespace
