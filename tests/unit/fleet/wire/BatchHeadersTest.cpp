#include <map>

#include <gtest/gtest.h>

#include "fleet/wire/BatchHeaders.h"

namespace {

const std::string kDigest(64, 'b');

/// What a message with these headers gives for a name.
HeaderLookup In(const std::map<std::string, std::string>& headers) {
    return [&headers](const char* name) {
        const auto found = headers.find(name);
        return found != headers.end() ? std::string_view(found->second) : std::string_view();
    };
}

TEST(BatchHeaders, AreTheKeyAndWhatTheOutboxKnows) {
    const BatchInfo batch{{"alpha", kDigest},
                          "20261121T011025Z-12-EventLogManagerEvents.cbor",
                          "EventLogManagerEvents",
                          "2026-11-21T01:10:25Z"};
    const Headers expected = {{"Nats-Msg-Id", "alpha:" + kDigest},
                              {"Lum-Name", "20261121T011025Z-12-EventLogManagerEvents.cbor"},
                              {"Lum-Label", "EventLogManagerEvents"},
                              {"Lum-Received-At", "2026-11-21T01:10:25Z"},
                              {"Lum-Format", "1"}};
    EXPECT_EQ(MakeHeaders(batch), expected);
}

TEST(BatchHeaders, HoldNoControlCharacterAndAreNotLong) {
    EXPECT_EQ(HeaderValue("a\r\nNats-Msg-Id: x\t\x7F"), "a__Nats-Msg-Id: x__");
    EXPECT_EQ(HeaderValue(std::string(1000, 'x')).size(), 255U);
}

TEST(BatchHeaders, ComeBack) {
    const std::map<std::string, std::string> headers = {{"Nats-Msg-Id", "alpha:" + kDigest},
                                                        {"Lum-Name", "n"},
                                                        {"Lum-Label", "l"},
                                                        {"Lum-Received-At", "t"},
                                                        {"Lum-Format", "1"}};
    BatchInfo batch;
    std::string error;
    ASSERT_TRUE(ReadHeaders(In(headers), batch, error)) << error;
    EXPECT_EQ(batch.key, (BatchKey{"alpha", kDigest}));
    EXPECT_EQ(batch.name + batch.label + batch.receivedAt, "nlt");
}

TEST(BatchHeaders, OfAnotherFormatAreRefused) {
    BatchInfo batch;
    std::string error;
    EXPECT_FALSE(ReadHeaders(In({}), batch, error));
    EXPECT_EQ(error, "it does not say its format");
    const std::map<std::string, std::string> later = {{"Nats-Msg-Id", "alpha:" + kDigest},
                                                      {"Lum-Format", "2"}};
    EXPECT_FALSE(ReadHeaders(In(later), batch, error));
    EXPECT_EQ(error, "its format is not one that is known");
}

TEST(BatchHeaders, WithoutAKeyAreRefused) {
    const std::map<std::string, std::string> headers = {{"Nats-Msg-Id", "alpha"}, {"Lum-Format", "1"}};
    BatchInfo batch;
    std::string error;
    EXPECT_FALSE(ReadHeaders(In(headers), batch, error));
    EXPECT_EQ(error, "its key is not a device and a digest");
}

TEST(BatchHeaders, TheNameGivesTheRunningNumber) {
    EXPECT_EQ(RunningNumberOf("20261121T011025Z-12-EventLogManagerEvents.cbor"), 12);
    EXPECT_EQ(RunningNumberOf("20261121T011025Z-1000000000000000-x.cbor"), 1'000'000'000'000'000);
    for (const char* const name :
         {"", "given-by-hand.cbor", "20261121T011025Z", "20261121T011025Z-", "20261121T011025Z-x-l.cbor",
          "20261121T011025Z-12", "20261121T011025Zx12-l", "20261121T011025Z-0-l", "20261121T011025Z-12_l",
          "20261121T011025Z--1-l", "20261121T011025Z-1000000000000001-x.cbor",
          "20261121T011025Z-99999999999999999999-x.cbor"}) {
        EXPECT_EQ(RunningNumberOf(name), 0) << name;
    }
}

}  // namespace
