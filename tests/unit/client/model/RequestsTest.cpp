#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include <gtest/gtest.h>

#include "client/ClientError.h"
#include "client/model/Requests.h"

namespace {

using Json = nlohmann::ordered_json;

const ModelDefinition kModel{
    "Visit", "", "", "", true, {{"Who", std::string(kTypeString)}, {"Long", std::string(kTypeInteger)}}};

/// The parameters as JSON, or the sentence that is thrown in their place.
std::string Shown(const std::function<Json()>& read) {
    try {
        return read().dump();
    } catch (const ClientError& error) {
        return error.what();
    }
}

std::string FromLine(const std::string& line) {
    return Shown([&] { return ImportEventParams(kModel, line); });
}

TEST(Requests, ReadALineOfAnExport) {
    EXPECT_EQ(FromLine(R"({"EventDate":5,"EventDeviceId":1,"EventGroupId":2,"Who":"ann","Long":"7"})"),
              R"({"EventDeviceId":1,"EventGroupId":2,"Who":"ann","Long":7})");
    EXPECT_EQ(FromLine(R"({"Who":null})"), "{}");
    EXPECT_EQ(FromLine(R"({"Whom":null})"), "model 'Visit' has no parameter 'Whom'; did you mean 'Who'?");
    EXPECT_EQ(FromLine(R"({"Long":[]})"),
              "parameter 'Long': a value of type _INTEGER_ cannot be a JSON array");
    EXPECT_EQ(FromLine("5"), "it is not a JSON object");
    EXPECT_EQ(FromLine("{"), "it is not JSON");
}

TEST(Requests, ReadAssignments) {
    const auto from = [](std::vector<std::string> words) {
        return Shown([&] { return CreateEventParams(kModel, 3, std::nullopt, words); });
    };
    EXPECT_EQ(from({"Who=a=b", "Long=7"}), R"({"EventDeviceId":3,"Who":"a=b","Long":7})");
    EXPECT_EQ(from({"EventGroupId=2"}), R"({"EventDeviceId":3,"EventGroupId":2})");
    EXPECT_EQ(from({"EventDeviceId=4"}), "parameter 'EventDeviceId': it is given twice");
    EXPECT_EQ(from({"=7"}), "'=7' is not of the form PARAM=VALUE");
}

TEST(Requests, AskForEventsByOneBoundAlone) {
    EventsRequestFields fields;
    fields.model = "Visit";
    fields.until = 9;
    fields.rows = 2;
    fields.skip = 4294967295U;
    fields.sort = "Who";
    fields.descending = true;
    EXPECT_EQ(EventsRequest(fields).dump(),
              R"({"Values":{"ModelName":"Visit","EndDate":9,"PageSize":2,"PageNumber":4294967296,)"
              R"("SortColumn":"Who","SortDirection":"Desc"}})");
    fields.since = 5;
    EXPECT_EQ(EventsRequest(fields).dump(),
              R"({"Values":{"ModelName":"Visit","StartDate":5,"PageSize":2,"PageNumber":4294967296,)"
              R"("SortColumn":"Who","SortDirection":"Desc"}})");
}

TEST(Requests, AreNoLongerThanTheyHaveToBe) {
    EXPECT_EQ(PurgeRequest("Visit", std::nullopt).dump(), R"({"Values":{"ModelName":"Visit"}})");
    EXPECT_EQ(PurgeRequest("Visit", 5).dump(), R"({"Values":{"ModelName":"Visit","EndDate":5}})");
    EXPECT_EQ(AlertRequest("Full", std::nullopt).dump(), R"({"Description":"Full","Values":{}})");
    EXPECT_EQ(AlertRequest("Full", "bad").dump(), R"({"Description":"Full","Values":{"Status":"bad"}})");
}

}  // namespace
