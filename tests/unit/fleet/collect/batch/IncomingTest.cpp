#include <map>

#include <gtest/gtest.h>

#include "contract/ContainerKeys.h"
#include "fleet/collect/batch/Incoming.h"
#include "fleet/wire/Subjects.h"
#include "host/text/LumSha256.h"

namespace {

class IncomingTest : public testing::Test {
protected:
    IncomingTest() {
        LumContainer alert;
        alert.SetInt32(keys::kEventDate, 1'000);
        payload_ = alert.ToCbor();
        Describe({"alpha", Sha256Hex(payload_)});
    }

    void Describe(const BatchKey& key, const std::string& label = "EventManagerEvent") {
        headers_.clear();
        for (const auto& [name, value] : MakeHeaders({key, "20261121T011025Z-7-E.cbor", label, ""})) {
            headers_[name] = value;
        }
        subject_ = BatchSubject("alpha", label);
    }
    [[nodiscard]] Incoming Read(std::size_t maxBytes = 1'000) const {
        return ReadMessage(
            subject_,
            [this](const char* name) {
                const auto found = headers_.find(name);
                return found != headers_.end() ? std::string_view(found->second) : std::string_view();
            },
            payload_, maxBytes);
    }

    std::string payload_;
    std::string subject_;
    std::map<std::string, std::string> headers_;
};

TEST_F(IncomingTest, IsOpenWhereAllFitsTogether) {
    const Incoming incoming = Read();
    EXPECT_EQ(incoming.outcome, Outcome::kOpen) << incoming.reason;
    EXPECT_EQ(incoming.info.key.device, "alpha");
    EXPECT_EQ(incoming.bytes, payload_.size());
    EXPECT_TRUE(std::holds_alternative<AlertContent>(incoming.content));
}

TEST_F(IncomingTest, BelongsToTheDeviceOfItsSubjectWhateverItsKeySays) {
    Describe({"beta", Sha256Hex(payload_)});
    const Incoming incoming = Read();
    EXPECT_EQ(incoming.outcome, Outcome::kRejected);
    EXPECT_EQ(incoming.reason, "it came from this device and its key names another one");
    EXPECT_EQ(incoming.info.key.device, "alpha");
    EXPECT_EQ(incoming.info.key.digest, Sha256Hex(payload_));
}

TEST_F(IncomingTest, SaysWhatDoesNotFit) {
    Describe({"alpha", std::string(64, 'a')});
    EXPECT_EQ(Read().reason, "its digest is not that of its content");
    Describe({"alpha", Sha256Hex(payload_)});
    headers_[kHeaderLabel] = "Other";
    EXPECT_EQ(Read().reason, "its label is not that of its subject");
    Describe({"alpha", Sha256Hex(payload_)}, "Other");
    EXPECT_EQ(Read().reason, "nobody knows what its label stands for");
    headers_.clear();
    EXPECT_EQ(Read().reason, "it does not say its format");
    subject_ = "lum.v1.00.alpha.Other";
    EXPECT_EQ(Read().reason, "its subject is not that of a batch");
    EXPECT_EQ(Read().info.key.device, "");
}

TEST_F(IncomingTest, IsNotReadWhereItIsTooLargeOrNoContainer) {
    const std::string size = std::to_string(payload_.size());
    EXPECT_EQ(Read(payload_.size()).outcome, Outcome::kOpen);
    EXPECT_EQ(Read(payload_.size() - 1).reason,
              "it has " + size + " bytes, more than " + std::to_string(payload_.size() - 1));
    payload_ = LumContainer().ToCbor();
    Describe({"alpha", Sha256Hex(payload_)});
    EXPECT_EQ(Read().reason, "it has no date");
    payload_ = "garbage";
    Describe({"alpha", Sha256Hex(payload_)});
    EXPECT_EQ(Read().reason.find("it is not a container: "), 0U) << Read().reason;
}

}  // namespace
