#include "contract/ContainerKeys.h"
#include "fleet/collect/database/BatchStore.h"
#include "unit/fleet/collect/database/DatabaseFixture.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr int64_t kStreamMadeNs = 1'795'000'000'000'000'000;

class BatchStoreTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        SetUpTables();
    }

    /// Stores them, and gives their outcomes.
    std::vector<Outcome> Store(std::vector<Incoming> batches) {
        store_.Store(batches, kStreamMadeNs);
        std::vector<Outcome> outcomes;
        reasons_.clear();
        for (const Incoming& batch : batches) {
            outcomes.push_back(batch.outcome);
            reasons_ += batch.reason;
        }
        return outcomes;
    }
    Outcome StoreOne(Incoming batch) {
        std::vector<Incoming> batches;
        batches.push_back(std::move(batch));
        return Store(std::move(batches)).at(0);
    }
    static LumContainer Alert(const std::string& status) {
        LumContainer alert;
        alert.SetInt32(keys::kEventDate, 1'795'000'000);
        alert.SetString(keys::kAlertStatus, LumString(std::string_view(status)));
        return alert;
    }
    static std::vector<Incoming> List(Incoming first, Incoming second) {
        std::vector<Incoming> batches;
        batches.push_back(std::move(first));
        batches.push_back(std::move(second));
        return batches;
    }

    BatchStore store_{database_, {}, "c1"};
    std::string reasons_;
};

TEST_F(BatchStoreTest, StoresEachBatchOnce) {
    const LumContainer events = MakeEvents({}, 1, 3);
    EXPECT_THAT(Store(List(Batch("alpha", events), Batch("alpha", events))),
                testing::ElementsAre(Outcome::kStored, Outcome::kDuplicate));
    EXPECT_EQ(StoreOne(Batch("alpha", events)), Outcome::kDuplicate);
    // Another device's batch is another one, whatever it holds.
    EXPECT_EQ(StoreOne(Batch("beta", events)), Outcome::kStored);
    EXPECT_EQ(Query("SELECT device, count(*), count(DISTINCT batch), sum(position) FROM lum.\"event_Reading\""
                    " GROUP BY 1 ORDER BY 1"),
              "alpha|3|1|3\nbeta|3|1|3\n");
    EXPECT_EQ(Query("SELECT device, batches, events FROM lum.device ORDER BY 1"), "alpha|1|3\nbeta|1|3\n");
    EXPECT_EQ(Query("SELECT count(*) FROM lum.\"event_Reading\" e JOIN lum.batch b ON b.id = e.batch"
                    " WHERE b.device = e.device"),
              "6\n");
}

TEST_F(BatchStoreTest, WhatTheDatabaseRefusesStopsNoOtherBatch) {
    ASSERT_EQ(Query("ALTER TABLE lum.alert ADD CHECK (status <> 'bad')"), "");
    EXPECT_THAT(Store(List(Batch("alpha", Alert("bad"), 1, "EventManagerEvent"),
                           Batch("beta", Alert("good"), 1, "EventManagerEvent"))),
                testing::ElementsAre(Outcome::kRejected, Outcome::kStored));
    EXPECT_THAT(reasons_, StartsWith("the database refuses it: ERROR:"));
    EXPECT_EQ(Query("SELECT device, status FROM lum.alert"), "beta|good\n");
    EXPECT_EQ(Query("SELECT device, batches, rejected FROM lum.device ORDER BY 1"), "alpha|0|1\nbeta|1|0\n");
}

TEST_F(BatchStoreTest, ATableThatIsGonePutsItsBatchesOffAlone) {
    ASSERT_EQ(StoreOne(Batch("alpha", MakeEvents({}, 1, 1))), Outcome::kStored);
    ASSERT_EQ(Query("DROP TABLE lum.\"event_Reading\" CASCADE"), "");
    EXPECT_THAT(
        Store(List(Batch("alpha", MakeEvents({}, 2, 1)), Batch("alpha", MakeEvents({.name = "B"}, 3, 1)))),
        testing::ElementsAre(Outcome::kLater, Outcome::kStored));
    EXPECT_THAT(reasons_, HasSubstr("event_Reading"));
    EXPECT_EQ(Query("SELECT count(*) FROM lum.batch"), "2\n");
}

TEST_F(BatchStoreTest, ADatabaseThatIsGoneDecidesNothing) {
    ASSERT_EQ(StoreOne(Batch("alpha", MakeEvents({}, 1, 1))), Outcome::kStored);
    server_.Kill();
    std::vector<Incoming> batches = List(Batch("alpha", MakeEvents({}, 2, 1)), Bytes("alpha", "garbage"));
    EXPECT_EQ(ErrorOf([&] { store_.Store(batches, kStreamMadeNs); }).GetKind(), SqlError::Kind::kServer);
    EXPECT_EQ(batches[0].outcome, Outcome::kOpen);
    EXPECT_EQ(batches[1].outcome, Outcome::kRejected);
    EXPECT_THROW(static_cast<void>(store_.LookUp("alpha", {{batches[0].info.key.digest, 1}})), SqlError);
}

TEST_F(BatchStoreTest, ADatabaseThatGoesWhileABatchIsStoredAloneDecidesNothingOfIt) {
    ASSERT_EQ(
        Query("CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql SECURITY DEFINER AS $$ BEGIN"
              " IF NEW.status = 'bad' THEN RAISE division_by_zero; END IF;"
              " PERFORM pg_terminate_backend(pg_backend_pid()); RETURN NEW; END $$;"
              " CREATE TRIGGER refuse BEFORE INSERT ON lum.alert FOR EACH ROW EXECUTE FUNCTION refuse()"),
        "");
    std::vector<Incoming> batches = List(Batch("alpha", Alert("bad"), 1, "EventManagerEvent"),
                                         Batch("beta", Alert("good"), 1, "EventManagerEvent"));
    EXPECT_EQ(ErrorOf([&] { store_.Store(batches, kStreamMadeNs); }).GetKind(), SqlError::Kind::kServer);
    EXPECT_EQ(batches[0].outcome, Outcome::kRejected);
    EXPECT_EQ(batches[1].outcome, Outcome::kOpen);
}

TEST_F(BatchStoreTest, KeepsTheFirstBytesOfWhatIsRejectedAndOnlySoManyOfADevice) {
    ASSERT_EQ(StoreOne(Bytes("alpha", std::string(100'000, 'x'))), Outcome::kRejected);
    EXPECT_EQ(Query("SELECT bytes, length(content) FROM lum.rejected"), "100000|65536\n");
    ASSERT_EQ(Query("INSERT INTO lum.rejected (device, digest, subject, label, name, reason, bytes, content)"
                    " SELECT 'alpha', n::text::bytea, '', '', '', '', 0, '' FROM generate_series(2, 1000) n"),
              "");
    EXPECT_EQ(StoreOne(Bytes("alpha", "more")), Outcome::kRejected);
    EXPECT_EQ(StoreOne(Bytes("beta", "more")), Outcome::kRejected);
    EXPECT_EQ(Query("SELECT device, count(*) FROM lum.rejected GROUP BY 1 ORDER BY 1"),
              "alpha|1000\nbeta|1\n");
    EXPECT_EQ(Query("SELECT device, rejected FROM lum.device ORDER BY 1"), "alpha|2\nbeta|1\n");
}

TEST_F(BatchStoreTest, AMessageOfNoDeviceMakesNone) {
    Incoming stray = ReadMessage(
        "lum.v1.00.alpha.E", [](const char*) { return std::string_view(); }, "x", 10);
    EXPECT_EQ(StoreOne(std::move(stray)), Outcome::kRejected);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.device"), "0\n");
    EXPECT_EQ(Query("SELECT device, reason FROM lum.rejected"), "|its subject is not that of a batch\n");
}

TEST_F(BatchStoreTest, NotesHowFarTheStreamHasCome) {
    const auto noted = [this] { return Query("SELECT collector, sequence FROM lum.progress"); };
    std::vector<Incoming> batches =
        List(Batch("alpha", MakeEvents({}, 1, 1)), Batch("alpha", MakeEvents({}, 2, 1)));
    batches[0].sequence = 9;
    batches[1].sequence = 8;
    store_.Store(batches, kStreamMadeNs);
    EXPECT_EQ(noted(), "c1|9\n");
    batches[0].sequence = 5;
    store_.Store(batches, kStreamMadeNs);
    EXPECT_EQ(noted(), "c1|9\n");
    // Another stream counts anew.
    store_.Store(batches, kStreamMadeNs + 1'000'000'000);
    EXPECT_EQ(noted(), "c1|8\n");
}

TEST_F(BatchStoreTest, KnowsWhatItHoldsAndWhatItRejected) {
    const Incoming held = Batch("alpha", MakeEvents({}, 1, 1));
    const Incoming rejected = Bytes("alpha", "garbage");
    ASSERT_EQ(StoreOne(Batch("alpha", MakeEvents({}, 1, 1))), Outcome::kStored);
    ASSERT_EQ(StoreOne(Bytes("alpha", "garbage")), Outcome::kRejected);
    const std::string& heldDigest = held.info.key.digest;
    const std::string& rejectedDigest = rejected.info.key.digest;
    const std::vector<AskLine> questions{{heldDigest, 1}, {rejectedDigest, 2}, {std::string(64, '0'), 3}};
    std::map<std::string, ReceiptLine> answers = store_.LookUp("alpha", questions);
    EXPECT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[heldDigest], (ReceiptLine{BatchFate::kHeld, heldDigest, ""}));
    EXPECT_EQ(answers[rejectedDigest].fate, BatchFate::kRejected);
    EXPECT_THAT(answers[rejectedDigest].reason, StartsWith("it is not a container"));
    EXPECT_TRUE(store_.LookUp("beta", questions).empty());
}

TEST_F(BatchStoreTest, MissingNumbersThatMakeNoSenseBecomeOneRange) {
    constexpr int numbers = 1'000;
    std::vector<Incoming> batches;
    for (int i = 1; i <= numbers; ++i) {
        batches.push_back(Batch("alpha", MakeEvents({}, i, 1), i * 1'000));
    }
    store_.Store(batches, kStreamMadeNs);
    EXPECT_EQ(Query("SELECT first_missing, last_missing FROM lum.gap"), "1001|999999\n");
    EXPECT_EQ(Query("SELECT lowest_number, highest_number, batches FROM lum.device"), "1000|1000000|1000\n");
}

TEST_F(BatchStoreTest, ATimeThatIsNoneIsLeftOut) {
    for (const char* const time :
         {"2026-02-30T01:10:25Z", "2026-11-21T24:10:25Z", "2026-11-21T01:60:25Z", "2026-11-21T01:10:60Z",
          "0000-11-21T01:10:25Z", "now", "infinity", "2026-11-21 01:10:25Z", "2026-11-21T01:10:25+"}) {
        Incoming batch = Batch("alpha", MakeEvents({.checksum = time}, 1, 1));
        batch.info.receivedAt = time;
        ASSERT_EQ(StoreOne(std::move(batch)), Outcome::kStored) << time;
    }
    EXPECT_EQ(Query("SELECT count(*), count(received_at) FROM lum.batch"), "9|0\n");
    Incoming leapDay = Batch("alpha", MakeEvents({}, 1, 1));
    leapDay.info.receivedAt = "2028-02-29T23:59:59Z";
    ASSERT_EQ(StoreOne(std::move(leapDay)), Outcome::kStored);
    EXPECT_EQ(Query("SELECT received_at FROM lum.batch WHERE received_at IS NOT NULL"),
              "2028-02-29 23:59:59+00\n");
}

}  // namespace
