#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "fleet/forward/ForwardSettings.h"
#include "support/RefusedCall.h"
#include "support/TempDirectory.h"

namespace {

class ForwardSettingsTest : public testing::Test {
protected:
    std::optional<int> Read(std::vector<const char*> words) {
        words.insert(words.begin(), "lumforward");
        testing::internal::CaptureStderr();
        const std::optional<int> status =
            ReadForwardSettings(static_cast<int>(words.size()), words.data(), settings_);
        said_ = testing::internal::GetCapturedStderr();
        return status;
    }

    ForwardSettings settings_;
    std::string said_;
};

TEST_F(ForwardSettingsTest, HasItsStateInTheOutboxUnlessToldOtherwise) {
    EXPECT_EQ(Read({"--device", "alpha", "--outbox", "/box"}), std::nullopt);
    EXPECT_EQ(settings_.stateFile, "/box/.lumforward.json");
    EXPECT_EQ(settings_.broker.clientName, "lumforward alpha");
    EXPECT_EQ(Read({"--device", "alpha", "--state-file", "/state"}), std::nullopt);
    EXPECT_EQ(settings_.stateFile, "/state");
}

TEST_F(ForwardSettingsTest, RefusesANameThatIsNotATokenOfASubject) {
    for (const char* const name : {"a.b", "a b", "*", "ä"}) {
        EXPECT_EQ(Read({"--device", name}), 2) << name;
        EXPECT_NE(said_.find("a name has 1 to 64 letters, digits, '_' and '-'"), std::string::npos) << said_;
    }
}

TEST_F(ForwardSettingsTest, IsCalledAsItsMachineUnlessToldOtherwise) {
    const std::string id = ReadWholeFile("/etc/machine-id");
    if (id.size() != 33) {
        GTEST_SKIP() << "this machine has no id";
    }
    EXPECT_EQ(Read({}), std::nullopt) << said_;
    EXPECT_EQ(settings_.device + "\n", id);
}

TEST_F(ForwardSettingsTest, SaysThatItsMachineHasNoName) {
    const char* const word = "lumforward";
    std::optional<int> status;
    testing::internal::CaptureStderr();
    const bool isRefused =
        RunRefused(SYS_openat, EMFILE, [&] { status = ReadForwardSettings(1, &word, settings_); });
    said_ = testing::internal::GetCapturedStderr();
    if (!isRefused) {
        GTEST_SKIP() << "the system does not let a call be refused";
    }
    EXPECT_EQ(status, 2);
    EXPECT_EQ(said_, "lumforward: /etc/machine-id: Too many open files; name the device with --device\n");
}

TEST_F(ForwardSettingsTest, RefusesToSpeakInTheClearOverANetwork) {
    EXPECT_EQ(Read({"--device", "alpha", "--servers", "nats://broker.example:4222"}), 2);
    EXPECT_NE(said_.find("would be spoken to in the clear"), std::string::npos) << said_;
}

TEST_F(ForwardSettingsTest, KeepsNumbersWithinTheirBounds) {
    EXPECT_EQ(Read({"--device", "alpha", "--window", "0"}), 2);
    EXPECT_EQ(Read({"--device", "alpha", "--window", "7"}), std::nullopt);
    EXPECT_EQ(settings_.window, 7);
}

}  // namespace
