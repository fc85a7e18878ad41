#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "machine/EventStore.h"
#include "support/LoadedModule.h"

namespace {

using testing::Contains;
using testing::IsEmpty;

class EventStoreTest : public testing::Test {
protected:
    EventStoreTest() {
        agent_.DropShipped("PackageHistory");
        agent_.Start();
    }

    LoadedModule agent_;
};

TEST_F(EventStoreTest, KnowsTheParametersOfAModelThatIsThere) {
    EXPECT_THAT(ListParams("PackageHistory"), Contains("Record"));
    EXPECT_THAT(ListParams("Nobody"), IsEmpty());
}

TEST_F(EventStoreTest, AnEventOfAModelThatIsNotThereIsRefused) {
    MachineEvent event;
    event.model = "Nobody";
    EXPECT_EQ(StoreEvent(event), StoreResult::kRefused);
    RecordSet records;
    EXPECT_FALSE(ReadRecords("Nobody", 1, records));
}

TEST_F(EventStoreTest, WithoutTheEventLogNothingIsStored) {
    agent_.Stop();
    MachineEvent event;
    event.model = "PackageHistory";
    EXPECT_EQ(StoreEvent(event), StoreResult::kRefused);
    EXPECT_THAT(ListParams("PackageHistory"), IsEmpty());
}

/// A number that is none, or was never written, is not a record.
TEST_F(EventStoreTest, ReadsTheRecordsThatAreThere) {
    for (const char* const record : {"00000000000000ff", "0000000000000000", "nonsense"}) {
        ASSERT_EQ(LoadedModule::Create("PackageHistory",
                                       R"({"Time":1,"Action":"install","Package":"a","Record":")" +
                                           std::string(record) + "\"}"),
                  0U);
    }
    RecordSet records;
    ASSERT_TRUE(ReadRecords("PackageHistory", 100, records));
    EXPECT_TRUE(records.Contains(255));
    EXPECT_FALSE(records.Contains(0));
    RecordSet last;
    ASSERT_TRUE(ReadRecords("PackageHistory", 1, last));
    EXPECT_FALSE(last.Contains(255));
}

}  // namespace
