#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "events/EventAggregation.h"
#include "events/EventRetention.h"
#include "events/EventUpload.h"
#include "host/container/LumContainer.h"
#include "store/DatabaseScope.h"
#include "support/CallRecord.h"
#include "support/FileStoreStandIn.h"
#include "support/StartedModule.h"

// What each piece of work on events does under DatabaseMutex, and what no longer.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class EventLock : public testing::Test, protected StartedModule {
protected:
    void DropTable() const { Change("DROP TABLE Event_Logon"); }

    const std::shared_ptr<Model_t> logon_ = Add({.params = {{"User"}}});
};

using EventCreationLock = EventLock;
using EventQueryLock = EventLock;
using EventUploadLock = EventLock;
using EventRetentionLock = EventLock;
using EventAggregationLock = EventLock;

TEST_F(EventCreationLock, IsHeldForOneStatementOutsideOfATransaction) {
    const CallRecord record;
    EXPECT_EQ(Create("Logon", R"({"User":"ann"})"), 0U);
    EXPECT_THAT(record.All("SQL "), ElementsAre(StartsWith("SQL INSERT INTO Event_Logon ")));
    EXPECT_THAT(record.WithoutLock("SQL "), IsEmpty());
    EXPECT_THAT(record.WithoutLock("trace "),
                Contains(HasSubstr(": Event created with success for model 'Logon'")));
}

TEST_F(EventQueryLock, CoversTheRowsAndTheirCountButNotTheAnswer) {
    ASSERT_EQ(Create("Logon", R"({"User":"ann"})"), 0U);
    const CallRecord record;
    EXPECT_EQ(Query(R"({"ModelName":"Logon"})").status, 0U);
    EXPECT_THAT(record.UnderLock(""),
                ElementsAre(StartsWith("SQL SELECT E_Date"), StartsWith("SQL SELECT COUNT")));
    EXPECT_THAT(record.WithoutLock("put "), Contains("put EventDate"));
}

TEST_F(EventUploadLock, IsGivenBackBeforeTheFilesAreSent) {
    ASSERT_EQ(Create("Logon", R"({"User":"ann"})"), 0U);
    bool wasHeld = true;
    const FileStoreStandIn store([&wasHeld](const LumContainer&, const LumContainer&) {
        wasHeld = DatabaseMutex.IsHeldByThisThread();
        return 0U;
    });
    const CallRecord record;
    EXPECT_TRUE(UploadEvents(logon_, 0, 2147483647, false));
    EXPECT_FALSE(wasHeld);
    EXPECT_THAT(record.UnderLock("put "), IsEmpty()) << "the rows are read without it";
    EXPECT_THAT(record.WithoutLock("SQL "), IsEmpty());
}

TEST_F(EventUploadLock, IsGivenBackBeforeAFailureIsSaid) {
    DropTable();
    const CallRecord record;
    EXPECT_FALSE(UploadEvents(logon_, 0, 100, false));
    EXPECT_THAT(record.WithoutLock("error "),
                Contains("error UploadEvents: Failed to upload events for model 'Logon', SQL error"));
}

TEST_F(EventUploadLock, IsGivenBackBeforeWhatWaitsIsMeasuredAndSent) {
    bool isTaking = false;
    bool wasHeld = false;
    const FileStoreStandIn store([&](const LumContainer&, const LumContainer&) {
        wasHeld = wasHeld || DatabaseMutex.IsHeldByThisThread();
        return isTaking ? 0U : 1U;
    });
    Change("INSERT INTO Event_Logon (E_Date, E_DeviceId, E_GroupId) VALUES (1, 0, 0), (11, 0, 0)");
    EXPECT_TRUE(UploadEvents(logon_, 0, 10, false));
    EXPECT_TRUE(UploadEvents(logon_, 10, 20, false));  // has to be measured once the first one was sent
    isTaking = true;
    const CallRecord record;
    ResumeUploads();
    EXPECT_THAT(record.All("SQL SELECT COUNT"), testing::SizeIs(1));
    EXPECT_THAT(record.WithoutLock("SQL "), IsEmpty());
    EXPECT_FALSE(wasHeld);
    EXPECT_THAT(record.UnderLock("put "), IsEmpty());
    EXPECT_THAT(record.All("sync"), Not(IsEmpty()));
    EXPECT_THAT(record.UnderLock("sync"), IsEmpty()) << "of the journal";
}

TEST_F(EventRetentionLock, IsGivenBackBeforeTheOutcomeIsSaid) {
    const CallRecord record;
    EXPECT_TRUE(DeleteEvents(logon_, 0, 100, false));
    EXPECT_THAT(record.WithoutLock("SQL "), IsEmpty());
    EXPECT_THAT(record.WithoutLock("trace "),
                Contains("trace DeleteEvents: Events have been deleted with success for model 'Logon'"));
    DropTable();
    EXPECT_FALSE(DeleteEvents(logon_, 0, 100, false));
    EXPECT_THAT(record.WithoutLock("error "),
                Contains("error DeleteEvents: Failed to delete events for model 'Logon', SQL error"));
}

TEST_F(EventAggregationLock, IsGivenBackBeforeTheOutcomeIsSaid) {
    const auto sums = Add({.name = "Sums",
                           .type = ModelType::kAutomatic,
                           .source = "Logon",
                           .aggregation = Policy::kHourly,
                           .params = {{.name = "User", .source = "User"}}});
    const CallRecord record;
    EXPECT_TRUE(AggregateEvents(sums, 0, 7200, true));
    EXPECT_THAT(record.All("SQL "),
                ElementsAre("SQL BEGIN", StartsWith("SQL UPDATE RegisteredModel SET RM_LastAggregation"),
                            StartsWith("SQL INSERT INTO Event_Sums "), "SQL COMMIT"));
    EXPECT_THAT(record.WithoutLock("SQL "), IsEmpty());
    EXPECT_THAT(record.WithoutLock("trace "),
                Contains(HasSubstr("has been aggregated into model 'Sums' with success")));
    DropTable();
    EXPECT_FALSE(AggregateEvents(sums, 7200, 14400, true));
    EXPECT_THAT(record.WithoutLock("error "), Contains(HasSubstr("into model 'Sums', SQL error")));
}

}  // namespace
