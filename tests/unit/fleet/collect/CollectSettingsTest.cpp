#include <gtest/gtest.h>

#include "fleet/collect/CollectSettings.h"

namespace {

std::optional<int> Read(std::vector<const char*> words, CollectSettings& settings) {
    words.insert(words.begin(), "lumcollect");
    testing::internal::CaptureStderr();
    const std::optional<int> status =
        ReadCollectSettings(static_cast<int>(words.size()), words.data(), settings);
    static_cast<void>(testing::internal::GetCapturedStderr());
    return status;
}

TEST(CollectSettings, MeasuresTheStreamInMegabytesAndHours) {
    CollectSettings settings;
    EXPECT_EQ(Read({"--name", "c1", "--stream-megabytes", "5", "--stream-hours", "2"}, settings),
              std::nullopt);
    EXPECT_EQ(settings.stream.maxBytes, 5'000'000);
    EXPECT_EQ(settings.stream.maxAgeSeconds, 7'200);
    EXPECT_EQ(settings.stream.name, "LUM");
    EXPECT_EQ(settings.broker.clientName, "lumcollect c1");
}

TEST(CollectSettings, IsCalledAsItsHostUnlessToldOtherwise) {
    CollectSettings settings;
    EXPECT_EQ(Read({}, settings), std::nullopt);
    EXPECT_FALSE(settings.name.empty());
}

TEST(CollectSettings, RefusesWhatIsOutOfBounds) {
    CollectSettings settings;
    EXPECT_EQ(Read({"--batches", "2001"}, settings), 2);
    EXPECT_EQ(Read({"--keep-months", "-1"}, settings), 2);
    EXPECT_EQ(Read({"--servers", "nats://broker.example"}, settings), 2);
}

}  // namespace
