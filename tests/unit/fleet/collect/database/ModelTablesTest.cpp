#include <ctime>

#include "fleet/collect/database/ModelTables.h"
#include "unit/fleet/collect/database/DatabaseFixture.h"

namespace {

using Result = ModelTables::Result;
using testing::HasSubstr;

constexpr int64_t kMonthSeconds = 31LL * 24 * 3600;

class ModelTablesTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        SetUpTables();
    }

    static EventContent Content(const std::string& model, const std::vector<ParameterType>& parameters,
                                int64_t date = std::time(nullptr)) {
        EventContent content;
        content.model = model;
        content.parameters = parameters;
        content.dates.push_back(static_cast<int32_t>(date));
        return content;
    }
    /// Prepares the table; what was refused is in reason_, the statement in copy_.
    Result Prepare(ModelTables& tables, const EventContent& content, const std::string& device = "alpha") {
        reason_.clear();
        const Result result = tables.Prepare(database_, content, device, copy_, reason_, failure_);
        EXPECT_NE(result, Result::kFailed) << failure_.text;
        return result;
    }
    std::string Columns(const std::string& relation) const {
        return Query(
            "SELECT string_agg(attname || ' ' || format_type(atttypid, NULL), ', ' ORDER BY attnum)"
            " FROM pg_attribute WHERE attrelid = '" +
            relation + "'::regclass AND attnum > 7");
    }
    std::string Partitions(const std::string& table) const {
        return Query("SELECT count(*) FROM pg_inherits WHERE inhparent = '" + table + "'::regclass");
    }

    std::string copy_;
    std::string reason_;
};

TEST_F(ModelTablesTest, MakesATableAViewAndThisMonth) {
    ModelTables tables({});
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Count", "_INTEGER_"}, {"Ratio", "_DOUBLE_"}})),
              Result::kReady);
    EXPECT_EQ(copy_,
              "COPY lum.\"event_Reading\" (event_time, batch, position, device, event_gmt_offset,"
              " event_device_id, event_group_id, \"Count\", \"Ratio\") FROM STDIN (FORMAT binary)");
    EXPECT_EQ(Columns("lum.\"event_Reading\""), "Count integer, Ratio double precision\n");
    EXPECT_EQ(Columns("lum.v_reading"),
              "local_time timestamp without time zone, count integer, ratio double precision\n");
    EXPECT_EQ(Partitions("lum.\"event_Reading\""), "2\n");  // the month, and all that is too far away
    // Whoever looks anew finds the same, and makes nothing.
    ModelTables others({});
    const std::string first = copy_;
    ASSERT_EQ(Prepare(others, Content("Reading", {{"Count", "_INTEGER_"}, {"Ratio", "_DOUBLE_"}})),
              Result::kReady);
    EXPECT_EQ(copy_, first);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.model_column"), "2\n");
}

TEST_F(ModelTablesTest, ParametersAndModelsThatDifferInLetterCaseStayApart) {
    ModelTables tables({});
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Count", "_INTEGER_"}, {"count", "_STRING_"}})),
              Result::kReady);
    ASSERT_EQ(Prepare(tables, Content("READING", {{"Count", "_INTEGER_"}})), Result::kReady);
    EXPECT_EQ(Columns("lum.\"event_Reading\""), "Count integer, count text\n");
    EXPECT_EQ(Columns("lum.v_reading"),
              "local_time timestamp without time zone, count integer, count_text text\n");
    EXPECT_EQ(Query("SELECT view_name FROM lum.model ORDER BY model COLLATE \"C\""),
              "v_READING\nv_reading\n");
}

TEST_F(ModelTablesTest, AParameterOfSeveralTypesIsOneColumnOfTheView) {
    ModelTables tables({});
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Value", "_INTEGER_"}})), Result::kReady);
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Value", "_DOUBLE_"}})), Result::kReady);
    EXPECT_EQ(Columns("lum.\"event_Reading\""), "Value integer, Value_double double precision\n");
    EXPECT_EQ(Columns("lum.v_reading"), "local_time timestamp without time zone, value double precision\n");
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Value", "_ENUM_"}})), Result::kReady);
    EXPECT_EQ(Columns("lum.v_reading"), "local_time timestamp without time zone, value text\n");
}

TEST_F(ModelTablesTest, AViewOfSomebodyElsesOnOursStaysAndEventsGoOn) {
    ModelTables tables({});
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Count", "_INTEGER_"}})), Result::kReady);
    ASSERT_EQ(Query("CREATE VIEW public.mine AS SELECT count FROM lum.v_reading"), "");
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Count", "_INTEGER_"}, {"More", "_STRING_"}})),
              Result::kReady);
    EXPECT_EQ(Columns("lum.\"event_Reading\""), "Count integer, More text\n");
    EXPECT_EQ(Columns("lum.v_reading"), "local_time timestamp without time zone, count integer\n");
    EXPECT_EQ(Query("SELECT count(*) FROM public.mine"), "0\n");
}

TEST_F(ModelTablesTest, RefusesMoreModelsThanThereMayBe) {
    ModelTables tables({.models = 2, .modelsOfDevice = 1});
    ASSERT_EQ(Prepare(tables, Content("A", {})), Result::kReady);
    EXPECT_EQ(Prepare(tables, Content("B", {})), Result::kRefused);
    EXPECT_EQ(reason_, "its device has brought 1 models already");
    ASSERT_EQ(Prepare(tables, Content("B", {}), "beta"), Result::kReady);
    EXPECT_EQ(Prepare(tables, Content("C", {}), "gamma"), Result::kRefused);
    EXPECT_EQ(reason_, "there are 2 models already");
    // Those that are there are everybody's.
    EXPECT_EQ(Prepare(tables, Content("A", {}), "gamma"), Result::kReady);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.model"), "2\n");
}

TEST_F(ModelTablesTest, RefusesMoreColumnsThanATableOrADeviceMayHave) {
    ModelTables tables({.columns = 4, .columnsOfDevice = 1});
    const std::string refusal = "it asks for more columns than the table of its model may have";
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"A", "_STRING_"}, {"B", "_STRING_"}})), Result::kReady);
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"C", "_STRING_"}})), Result::kReady);
    EXPECT_EQ(Prepare(tables, Content("Reading", {{"D", "_STRING_"}})), Result::kRefused);
    EXPECT_EQ(reason_, refusal);
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"D", "_STRING_"}}), "beta"), Result::kReady);
    EXPECT_EQ(Prepare(tables, Content("Reading", {{"E", "_STRING_"}}), "gamma"), Result::kRefused);
    EXPECT_EQ(reason_, refusal);
    EXPECT_EQ(Columns("lum.\"event_Reading\""), "A text, B text, C text, D text\n");
    EXPECT_EQ(Query("SELECT count(*) FROM lum.model_column"), "4\n");
}

TEST_F(ModelTablesTest, ATableThatSomebodyElseMadeIsNotTaken) {
    ASSERT_EQ(Query("CREATE TABLE lum.\"event_Reading\" (a integer)"), "");
    ModelTables tables({});
    EXPECT_EQ(tables.Prepare(database_, Content("Reading", {}), "alpha", copy_, reason_, failure_),
              Result::kFailed);
    EXPECT_EQ(failure_.kind, SqlFailure::Kind::kLayout);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.model"), "0\n");
}

TEST_F(ModelTablesTest, MonthsThatAreTooFarAwayGetNoPartition) {
    ModelTables tables({.oldestMonths = 2});
    const int64_t now = std::time(nullptr);
    for (const int64_t date : {int64_t{0}, now - 3 * kMonthSeconds, now + 3 * kMonthSeconds}) {
        ASSERT_EQ(Prepare(tables, Content("Reading", {}, date)), Result::kReady);
        EXPECT_EQ(Partitions("lum.\"event_Reading\""), "1\n") << date;
    }
}

TEST_F(ModelTablesTest, EventsMoveIntoTheirMonthOnceItHasAPartition) {
    ModelTables near({.oldestMonths = 1});
    const int64_t date = std::time(nullptr) - 3 * kMonthSeconds;
    ASSERT_EQ(Prepare(near, Content("Reading", {}, date)), Result::kReady);
    ASSERT_EQ(Query("INSERT INTO lum.\"event_Reading\" VALUES (to_timestamp(" + std::to_string(date) +
                    "), 1, 0, 'alpha', 0, 0, 0)"),
              "");
    EXPECT_EQ(Query("SELECT count(*) FROM lum_month.\"event_Reading_other\""), "1\n");
    ModelTables far({});
    ASSERT_EQ(Prepare(far, Content("Reading", {}, date)), Result::kReady);
    EXPECT_EQ(Query("SELECT count(*) FROM lum_month.\"event_Reading_other\""), "0\n");
    EXPECT_EQ(Query("SELECT count(*) FROM " + MonthTable("event_Reading", MonthOf(date))), "1\n");
}

TEST_F(ModelTablesTest, OldMonthsGoAndWithThemAllThatIsOlder) {
    ModelTables tables({});
    const int64_t now = std::time(nullptr);
    const int64_t old = now - 4 * kMonthSeconds;
    ASSERT_EQ(Prepare(tables, Content("Reading", {}, old)), Result::kReady);
    ASSERT_EQ(Prepare(tables, Content("Reading", {}, now)), Result::kReady);
    for (const char* const age : {"4 years", "0 days"}) {
        const std::string moment = "now() - interval '" + std::string(age) + "'";
        ASSERT_EQ(
            Query("INSERT INTO lum.\"event_Reading\" VALUES (" + moment +
                  ", 1, 0, 'alpha', 0, 0, 0);"
                  "INSERT INTO lum.alert (event_time, batch, device, content) VALUES (" +
                  moment +
                  ", 1, 'alpha', '{}');"
                  "INSERT INTO lum.progress VALUES ('" +
                  std::string(age) + "', now(), 1, " + moment +
                  ");"
                  "INSERT INTO lum.batch (device, digest, label, name, bytes, events, stored_at) VALUES ('" +
                  std::string(age) + "', '', '', '', 0, 0, " + moment +
                  ");"
                  "INSERT INTO lum.rejected (device, digest, subject, label, name, reason, bytes, content,"
                  " rejected_at) VALUES ('" +
                  std::string(age) + "', '', '', '', '', '', 0, '', " + moment + ")"),
            "");
    }
    ASSERT_TRUE(tables.MakeAhead(database_, failure_)) << failure_.text;
    EXPECT_EQ(Partitions("lum.\"event_Reading\""), "4\n");  // old, this one, the next one, and all others
    ASSERT_TRUE(tables.DropOld(database_, 2, failure_)) << failure_.text;
    EXPECT_EQ(Partitions("lum.\"event_Reading\""), "3\n");
    for (const char* const table :
         {"lum.\"event_Reading\"", "lum.alert", "lum.progress", "lum.batch", "lum.rejected"}) {
        EXPECT_EQ(Query("SELECT count(*) FROM " + std::string(table)), "1\n") << table;
    }
    // A month that comes again is made again.
    ASSERT_EQ(Prepare(tables, Content("Reading", {}, old)), Result::kReady);
    EXPECT_EQ(Partitions("lum.\"event_Reading\""), "4\n");
}

TEST_F(ModelTablesTest, WhatTheDatabaseCannotDoIsAFailure) {
    ModelTables tables({});
    ASSERT_EQ(Prepare(tables, Content("Reading", {})), Result::kReady);
    database_.Close();
    ASSERT_TRUE(database_.Open(server_.GetParameters("postgres"), "", failure_)) << failure_.text;
    EXPECT_FALSE(tables.MakeAhead(database_, failure_));
    EXPECT_FALSE(tables.DropOld(database_, 1, failure_));
    EXPECT_EQ(tables.Prepare(database_, Content("Other", {}), "alpha", copy_, reason_, failure_),
              Result::kFailed);
    EXPECT_THAT(failure_.text, HasSubstr("lum.model"));
}

}  // namespace
