#include <gtest/gtest.h>

#include "fleet/wire/Subjects.h"

namespace {

// The bucket is the first byte of SHA-256("alpha"),
// 8ed3f6ad685b959ead7022518e1af76cd816f8e8ec7ccdda1ed4018e8f2223f8.
TEST(Subjects, OfABatchNamesBucketDeviceAndLabel) {
    EXPECT_EQ(BucketOf("alpha"), "8e");
    EXPECT_EQ(BatchSubject("alpha", "EventLogManagerEvents"), "lum.v1.8e.alpha.EventLogManagerEvents");
}

TEST(Subjects, ALabelIsOneToken) {
    EXPECT_EQ(BatchSubject("alpha", "a.b c>*\n"), "lum.v1.8e.alpha.a_b_c___");
    EXPECT_EQ(SubjectLabel(""), "file");
    EXPECT_EQ(SubjectLabel(std::string(200, 'x')), std::string(100, 'x'));
}

TEST(Subjects, OfABatchIsTakenApart) {
    BatchSubjectParts parts;
    ASSERT_TRUE(ParseBatchSubject("lum.v1.8e.alpha.EventManagerEvent", parts));
    EXPECT_EQ(parts.device, "alpha");
    EXPECT_EQ(parts.label, "EventManagerEvent");
}

TEST(Subjects, OfAnotherShapeIsNotThatOfABatch) {
    BatchSubjectParts parts{"before", "before"};
    for (const char* const subject :
         {"", "lum.v1.8e", "lum.v1.8e.alpha", "lum.v1.8f.alpha.Label", "lum.v2.8e.alpha.Label",
          "lum.v1.8e.alpha.La.bel", "lum.v1.8e..Label", "lum.v1.8e.alpha.", "xlum.v1.8e.alpha.Label"}) {
        EXPECT_FALSE(ParseBatchSubject(subject, parts)) << subject;
    }
    EXPECT_EQ(parts.device, "before");
}

TEST(Subjects, ADeviceAsksOnItsOwn) {
    EXPECT_EQ(AskSubject("alpha"), "lum.ask.alpha");
    EXPECT_EQ(DeviceOfAsk("lum.ask.alpha"), "alpha");
    EXPECT_EQ(DeviceOfAsk("lum.ask.a.b"), "");
    EXPECT_EQ(DeviceOfAsk("lum.asked.alpha"), "");
}

TEST(Subjects, ADeviceHearsOnOne) {
    EXPECT_EQ(DeviceInbox("alpha"), "lum.to.alpha.>");
    EXPECT_EQ(ReceiptSubject("alpha"), "lum.to.alpha.receipt");
    EXPECT_EQ(AckSubject("alpha", 7), "lum.to.alpha.ack.7");
}

TEST(Subjects, AnAcknowledgementBearsItsNumber) {
    uint64_t number = 0;
    ASSERT_TRUE(ParseAckSubject("lum.to.alpha.ack.18446744073709551615", number));
    EXPECT_EQ(number, 18446744073709551615U);
    for (const char* const subject :
         {"lum.to.alpha.receipt", "lum.to.alpha.ack.", "lum.to.alpha.ack.7x", "other.alpha.ack.7"}) {
        EXPECT_FALSE(ParseAckSubject(subject, number)) << subject;
    }
}

}  // namespace
