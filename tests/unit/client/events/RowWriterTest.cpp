#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/events/RowWriter.h"
#include "support/TimeZone.h"

namespace {

using testing::EndsWith;

const ModelDefinition kModel{"Visit",
                             "",
                             "",
                             "",
                             true,
                             {{"Who", std::string(kTypeString)},
                              {"Real", std::string(kTypeDouble)},
                              {"Flag", std::string(kTypeBoolean)},
                              {"Gone", std::string(kTypeTimestamp)}}};
constexpr char kTwo[] =
    R"({"status":0,"container":{"Result":{"EventCount":2,"EventDate":[0,60],"EventDeviceId":[1,2],)"
    R"("Who":["a,\"b\"",null],"Real":[1.50,-2.0],"Flag":[true,false]}}})";

class RowWriterTest : public testing::Test {
protected:
    /// What a writer of the form makes of both rows.
    static std::string Written(OutputFormat format, bool bold = false) {
        const TimeZone zone("UTC");
        EventPage page;
        EXPECT_TRUE(page.Parse(kTwo));
        std::ostringstream out;
        const auto writer = MakeRowWriter(format, kModel, out, bold);
        writer->BeginPage(page);
        writer->Write(0);
        writer->Write(1);
        writer->End(2, 7);
        return out.str();
    }
};

TEST_F(RowWriterTest, LeavesOutOfJsonWhatARowDoesNotHave) {
    const std::string first = R"({"EventDate":0,"EventDeviceId":1,"Who":"a,\"b\"","Real":1.50,"Flag":true})";
    const std::string second = R"({"EventDate":60,"EventDeviceId":2,"Real":-2.0,"Flag":false})";
    EXPECT_EQ(Written(OutputFormat::kJsonLines), first + "\n" + second + "\n");
    EXPECT_EQ(Written(OutputFormat::kJson),
              "{\n  \"EventCount\": 2,\n  \"Events\": [\n    " + first + ",\n    " + second + "\n  ]\n}\n");
}

TEST_F(RowWriterTest, LeavesAFieldOfCsvEmpty) {
    EXPECT_EQ(Written(OutputFormat::kCsv),
              "EventDate,EventDeviceId,EventGroupId,Who,Real,Flag,Gone\n"
              "0,1,,\"a,\"\"b\"\"\",1.50,true,\n"
              "60,2,,,-2.0,false,\n");
}

TEST_F(RowWriterTest, ShowsATableWithItsCount) {
    const std::string table = Written(OutputFormat::kTable);
    EXPECT_THAT(table,
                EndsWith("\n2 events shown; EventCount 7 (all events of the model, whatever the filters)\n"));
    EXPECT_NE(table.find("1970-01-01T00:01:00+00:00       2                -2.0  false\n"), std::string::npos)
        << table;
    EXPECT_EQ(Written(OutputFormat::kTable, true).substr(0, 4), "\x1b[1m");
}

TEST_F(RowWriterTest, WritesARowWithoutAnyValue) {
    EventPage page;
    ASSERT_TRUE(page.Parse(R"({"status":0,"container":{"Result":{"EventCount":1,"Other":[1]}}})"));
    std::ostringstream out;
    const auto writer = MakeRowWriter(OutputFormat::kJsonLines, kModel, out, false);
    writer->BeginPage(page);
    writer->Write(0);
    writer->End(1, 1);
    EXPECT_EQ(out.str(), "{}\n");
}

TEST_F(RowWriterTest, HandsOnWhatIsMuchBeforeTheEnd) {
    EventPage page;
    ASSERT_TRUE(page.Parse(R"({"status":0,"container":{"Result":{"EventCount":1,"Who":[")" +
                           std::string(100000, 'x') + "\"]}}}"));
    std::ostringstream out;
    const auto writer = MakeRowWriter(OutputFormat::kCsv, kModel, out, false);
    writer->BeginPage(page);
    writer->Write(0);
    EXPECT_LT(out.str().size(), 1000U);
    writer->Write(0);
    EXPECT_GT(out.str().size(), 100000U);
    EXPECT_LT(out.str().size(), 200000U);
    writer->End(2, 2);
    EXPECT_GT(out.str().size(), 200000U);
}

}  // namespace
