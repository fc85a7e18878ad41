#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "events/EventQuery.h"
#include "host/container/LumContainer.h"
#include "support/LinkedModule.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

Model_t& Sample() {
    static Model_t model("Sample", "", "", "", "", ModelType::kUser, Policy::kUnknown, Policy::kNever,
                         Policy::kNever);
    if (model.GetParams().GetCount() == 0) {
        for (const char* name : {"User", "Count"}) {
            static_cast<void>(model.GetParams().Add(std::make_shared<ModelParam_t>(
                name, "", ParamType::kString, AggregationOperation::kNone, "")));
        }
    }
    return model;
}

/// What follows the table's name in the select of a query, without the semicolon.
std::string Clauses(const char* values) {
    LumContainer container;
    LumString error;
    EXPECT_TRUE(container.FromJson(values, error)) << error.GetString();
    const std::string select(BuildEventQuery(Sample(), container).select.View());
    const std::string head = "SELECT E_Date, E_DeviceID, E_GroupID, C_Count, C_User FROM Event_Sample";
    EXPECT_EQ(select.substr(0, head.size()), head);
    EXPECT_EQ(select.back(), ';');
    return select.substr(head.size(), select.size() - head.size() - 1);
}

TEST(EventQueryText, SortsByDateWithoutBeingAsked) {
    EXPECT_EQ(Clauses("{}"), " ORDER BY E_Date ASC");
    EXPECT_EQ(Clauses(R"({"SortDirection":"Desc"})"), " ORDER BY E_Date ASC");
}

TEST(EventQueryText, CountsTheWholeTable) {
    LumContainer values;
    values.SetInt32("StartDate", 100);
    EXPECT_EQ(BuildEventQuery(Sample(), values).count, "SELECT COUNT (*) FROM Event_Sample;");
}

TEST(EventQueryText, FiltersByOneDate) {
    EXPECT_EQ(Clauses(R"({"StartDate":100})"), " WHERE E_Date >= 100 ORDER BY E_Date ASC");
    EXPECT_EQ(Clauses(R"({"EndDate":200})"), " WHERE E_Date <= 200 ORDER BY E_Date ASC");
}

TEST(EventQueryText, LosesItsWhereWithBothDates) {
    EXPECT_EQ(Clauses(R"({"StartDate":100,"EndDate":200})"), " AND E_Date <= 200 ORDER BY E_Date ASC");
}

TEST(EventQueryText, MovesOnByOneRowAPage) {
    const std::string order = " ORDER BY E_Date ASC";
    EXPECT_EQ(Clauses(R"({"PageSize":10,"PageNumber":3})"), order + " LIMIT 10 OFFSET 2");
    EXPECT_EQ(Clauses(R"({"PageSize":10,"PageNumber":1})"), order + " LIMIT 10 OFFSET 0");
    EXPECT_EQ(Clauses(R"({"PageSize":10,"PageNumber":0})"), order + " LIMIT 10");
    EXPECT_EQ(Clauses(R"({"PageSize":10})"), order + " LIMIT 10");
    EXPECT_EQ(Clauses(R"({"PageSize":0,"PageNumber":3})"), order);
    EXPECT_EQ(Clauses(R"({"PageSize":-1,"PageNumber":3})"), order);
    EXPECT_EQ(Clauses(R"({"PageNumber":3})"), order);
}

TEST(EventQueryText, SortsByAFixedColumnOrAParameter) {
    EXPECT_EQ(Clauses(R"({"SortColumn":"EventDate"})"), " ORDER BY E_Date ");
    EXPECT_EQ(Clauses(R"({"SortColumn":"EventDeviceId","SortDirection":"Desc"})"),
              " ORDER BY E_DeviceId Desc");
    EXPECT_EQ(Clauses(R"({"SortColumn":"EventGroupId","SortDirection":"Asc"})"), " ORDER BY E_GroupId Asc");
    EXPECT_EQ(Clauses(R"({"SortColumn":"User","SortDirection":"Asc","PageSize":5})"),
              " ORDER BY C_User Asc LIMIT 5");
}

TEST(EventQueryText, PassesOverADirectionThatItDoesNotKnow) {
    EXPECT_EQ(Clauses(R"({"SortColumn":"EventDeviceId","SortDirection":"desc"})"), " ORDER BY E_DeviceId ");
    EXPECT_EQ(Clauses(R"({"SortColumn":"EventDeviceId","SortDirection":1})"), " ORDER BY E_DeviceId ");
}

TEST(EventQueryText, DoesNotSortByAnUnknownColumn) {
    EXPECT_EQ(Clauses(R"({"SortColumn":"eventdate","SortDirection":"Asc"})"), "");
    EXPECT_EQ(Clauses(R"({"SortColumn":"E_Date; DROP TABLE x"})"), "");
}

class EventQuery : public testing::Test, protected LinkedModule {
protected:
    EventQuery() {
        StartWith({.name = "Sample",
                   .params = {{.name = "A", .defaultText = "x"},
                              {.name = "B", .type = ParamType::kDouble, .defaultText = "0.5"},
                              {.name = "C", .type = ParamType::kBoolean, .defaultText = "1"},
                              {.name = "D", .type = ParamType::kTimestamp, .defaultText = "9"}}});
        Log().Forget();
    }
    void Insert(int date, int device, const char* a) const {
        Change(
            "INSERT INTO Event_Sample (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_A, C_B, C_C, "
            "C_D) VALUES (" +
            std::to_string(date) + ", 0, " + std::to_string(device) + ", 1, '" + a + "', 2.0, 1, 3)");
    }
};

TEST_F(EventQuery, AnswersRowsAsListsUnderTheNamesOfTheParameters) {
    Insert(200, 2, "b");
    Insert(100, 1, "a");
    EXPECT_EQ(Query(R"({"ModelName":"Sample"})"),
              (Answer{0, R"({"Result":{"EventCount":2,"EventDate":[100,200],"EventDeviceId":[1,2],)"
                         R"("EventGroupId":[1,1],"A":["a","b"],"B":[2.0,2.0],"C":[true,true],"D":[3,3]}})"}));
}

TEST_F(EventQuery, AnswersTheCountAloneForAnEmptyTable) {
    EXPECT_EQ(Query(R"({"ModelName":"Sample"})"), (Answer{0, R"({"Result":{"EventCount":0}})"}));
}

TEST_F(EventQuery, CountsTheWholeTableWhateverIsSelected) {
    Insert(100, 1, "a");
    Insert(200, 1, "b");
    EXPECT_THAT(Query(R"({"ModelName":"Sample","StartDate":150})").container,
                HasSubstr(R"("EventCount":2,"EventDate":[200],)"));
    EXPECT_THAT(Query(R"({"ModelName":"Sample","EndDate":100})").container,
                HasSubstr(R"("EventCount":2,"EventDate":[100],)"));
}

TEST_F(EventQuery, FailsWithBothDatesAndLeavesTheContainerAsItWas) {
    const std::string arguments = R"({"ModelName":"Sample","StartDate":1,"EndDate":2})";
    EXPECT_EQ(Query(arguments), (Answer{1, R"({"Values":)" + arguments + "}"}));
    EXPECT_THAT(Said(), ElementsAre(StartsWith("error DBConnection: near \"AND\": syntax error")));
}

TEST_F(EventQuery, SortsByAParameter) {
    Insert(100, 1, "a");
    Insert(200, 1, "b");
    EXPECT_THAT(Query(R"({"ModelName":"Sample","SortColumn":"A","SortDirection":"Desc"})").container,
                HasSubstr(R"("A":["b","a"])"));
}

TEST_F(EventQuery, RefusesMissingArguments) {
    EXPECT_EQ(ActionHandler_EventLogManagerGetEvents(nullptr), 13U);
    EXPECT_EQ(Call("EventLogManagerGetEvents", "{}").status, 13U);
    EXPECT_THAT(Said(), IsEmpty());
    EXPECT_EQ(Query("{}").status, 13U);
    EXPECT_EQ(Query(R"({"ModelName":"Other"})").status, 13U);
    const std::string routine = "error ActionHandler_EventLogManagerGetEvents: ";
    EXPECT_THAT(Said(), ElementsAre(routine + "Failed to get model name", routine + "Unknown model 'Other'"));
}

TEST_F(EventQuery, SaysThatTheLockCannotBeHad) {
    const DatabaseLockout lockout;
    EXPECT_EQ(Query(R"({"ModelName":"Sample"})").status, 1U);
    EXPECT_THAT(Said(), ElementsAre("error ActionHandler_EventLogManagerGetEvents: Failed to lock database"));
}

TEST_F(EventQuery, AnswersACountOfZeroWhereItCannotBeRead) {
    Insert(1, 1, "old");
    Insert(9, 1, "new");
    // The rows from 5 on can be read, and a walk through all of them fails.
    Database().Run(
        "ALTER TABLE Event_Sample RENAME TO Kept; CREATE VIEW Event_Sample AS SELECT * FROM Kept WHERE CASE "
        "WHEN "
        "E_Date < 5 THEN abs(-9223372036854775808) ELSE 1 END");
    const Answer answer = Query(R"({"ModelName":"Sample","StartDate":5})");
    EXPECT_EQ(answer.status, 0U);
    EXPECT_THAT(answer.container, StartsWith(R"({"Result":{"EventCount":0,"EventDate":[9],)"));
}

TEST_F(EventQuery, FailsWhereTheTableIsGone) {
    Change("DROP TABLE Event_Sample");
    EXPECT_EQ(Query(R"({"ModelName":"Sample"})").status, 1U);
}

}  // namespace
