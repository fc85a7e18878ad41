#include <ctime>

#include "fleet/collect/database/ModelTables.h"
#include "unit/fleet/collect/database/DatabaseFixture.h"

namespace {

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
    /// Prepares the table; the statement is in copy_. Says why that was refused, nothing where it was not.
    std::string Prepare(ModelTables& tables, const EventContent& content,
                        const std::string& device = "alpha") {
        try {
            copy_ = tables.Prepare(database_, content, device);
        } catch (const ModelRefusal& refusal) {
            return refusal.what();
        }
        return {};
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
};

TEST_F(ModelTablesTest, MakesATableAViewAndThisMonth) {
    ModelTables tables({});
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Count", "_INTEGER_"}, {"Ratio", "_DOUBLE_"}})), "");
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
    ASSERT_EQ(Prepare(others, Content("Reading", {{"Count", "_INTEGER_"}, {"Ratio", "_DOUBLE_"}})), "");
    EXPECT_EQ(copy_, first);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.model_column"), "2\n");
}

TEST_F(ModelTablesTest, ParametersAndModelsThatDifferInLetterCaseStayApart) {
    ModelTables tables({});
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Count", "_INTEGER_"}, {"count", "_STRING_"}})), "");
    ASSERT_EQ(Prepare(tables, Content("READING", {{"Count", "_INTEGER_"}})), "");
    EXPECT_EQ(Columns("lum.\"event_Reading\""), "Count integer, count text\n");
    EXPECT_EQ(Columns("lum.v_reading"),
              "local_time timestamp without time zone, count integer, count_text text\n");
    EXPECT_EQ(Query("SELECT view_name FROM lum.model ORDER BY model COLLATE \"C\""),
              "v_READING\nv_reading\n");
}

TEST_F(ModelTablesTest, AParameterOfSeveralTypesIsOneColumnOfTheView) {
    ModelTables tables({});
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Value", "_INTEGER_"}})), "");
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Value", "_DOUBLE_"}})), "");
    EXPECT_EQ(Columns("lum.\"event_Reading\""), "Value integer, Value_double double precision\n");
    EXPECT_EQ(Columns("lum.v_reading"), "local_time timestamp without time zone, value double precision\n");
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Value", "_ENUM_"}})), "");
    EXPECT_EQ(Columns("lum.v_reading"), "local_time timestamp without time zone, value text\n");
}

TEST_F(ModelTablesTest, AViewOfSomebodyElsesOnOursStaysAndEventsGoOn) {
    ModelTables tables({});
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Count", "_INTEGER_"}})), "");
    ASSERT_EQ(Query("CREATE VIEW public.mine AS SELECT count FROM lum.v_reading"), "");
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"Count", "_INTEGER_"}, {"More", "_STRING_"}})), "");
    EXPECT_EQ(Columns("lum.\"event_Reading\""), "Count integer, More text\n");
    EXPECT_EQ(Columns("lum.v_reading"), "local_time timestamp without time zone, count integer\n");
    EXPECT_EQ(Query("SELECT count(*) FROM public.mine"), "0\n");
}

TEST_F(ModelTablesTest, RefusesMoreModelsThanThereMayBe) {
    ModelTables tables({.models = 2, .modelsOfDevice = 1});
    ASSERT_EQ(Prepare(tables, Content("A", {})), "");
    EXPECT_EQ(Prepare(tables, Content("B", {})), "its device has brought 1 models already");
    ASSERT_EQ(Prepare(tables, Content("B", {}), "beta"), "");
    EXPECT_EQ(Prepare(tables, Content("C", {}), "gamma"), "there are 2 models already");
    // Those that are there are everybody's.
    EXPECT_EQ(Prepare(tables, Content("A", {}), "gamma"), "");
    EXPECT_EQ(Query("SELECT count(*) FROM lum.model"), "2\n");
}

TEST_F(ModelTablesTest, RefusesMoreColumnsThanATableOrADeviceMayHave) {
    ModelTables tables({.columns = 4, .columnsOfDevice = 1});
    const std::string refusal = "it asks for more columns than the table of its model may have";
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"A", "_STRING_"}, {"B", "_STRING_"}})), "");
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"C", "_STRING_"}})), "");
    EXPECT_EQ(Prepare(tables, Content("Reading", {{"D", "_STRING_"}})), refusal);
    ASSERT_EQ(Prepare(tables, Content("Reading", {{"D", "_STRING_"}}), "beta"), "");
    EXPECT_EQ(Prepare(tables, Content("Reading", {{"E", "_STRING_"}}), "gamma"), refusal);
    EXPECT_EQ(Columns("lum.\"event_Reading\""), "A text, B text, C text, D text\n");
    EXPECT_EQ(Query("SELECT count(*) FROM lum.model_column"), "4\n");
}

TEST_F(ModelTablesTest, ATableThatSomebodyElseMadeIsNotTaken) {
    ASSERT_EQ(Query("CREATE TABLE lum.\"event_Reading\" (a integer)"), "");
    ModelTables tables({});
    EXPECT_EQ(ErrorOf([&] { Prepare(tables, Content("Reading", {})); }).GetKind(), SqlError::Kind::kLayout);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.model"), "0\n");
}

TEST_F(ModelTablesTest, MonthsThatAreTooFarAwayGetNoPartition) {
    ModelTables tables({.oldestMonths = 2});
    const int64_t now = std::time(nullptr);
    for (const int64_t date : {int64_t{0}, now - 3 * kMonthSeconds, now + 3 * kMonthSeconds}) {
        ASSERT_EQ(Prepare(tables, Content("Reading", {}, date)), "");
        EXPECT_EQ(Partitions("lum.\"event_Reading\""), "1\n") << date;
    }
}

TEST_F(ModelTablesTest, EventsMoveIntoTheirMonthOnceItHasAPartition) {
    ModelTables near({.oldestMonths = 1});
    const int64_t date = std::time(nullptr) - 3 * kMonthSeconds;
    ASSERT_EQ(Prepare(near, Content("Reading", {}, date)), "");
    ASSERT_EQ(Query("INSERT INTO lum.\"event_Reading\" VALUES (to_timestamp(" + std::to_string(date) +
                    "), 1, 0, 'alpha', 0, 0, 0)"),
              "");
    EXPECT_EQ(Query("SELECT count(*) FROM lum_month.\"event_Reading_other\""), "1\n");
    ModelTables far({});
    ASSERT_EQ(Prepare(far, Content("Reading", {}, date)), "");
    EXPECT_EQ(Query("SELECT count(*) FROM lum_month.\"event_Reading_other\""), "0\n");
    EXPECT_EQ(Query("SELECT count(*) FROM " + MonthTable("event_Reading", MonthOf(date))), "1\n");
}

TEST_F(ModelTablesTest, OldMonthsGoAndWithThemAllThatIsOlder) {
    ModelTables tables({});
    const int64_t now = std::time(nullptr);
    const int64_t old = now - 4 * kMonthSeconds;
    ASSERT_EQ(Prepare(tables, Content("Reading", {}, old)), "");
    ASSERT_EQ(Prepare(tables, Content("Reading", {}, now)), "");
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
    tables.MakeAhead(database_);
    EXPECT_EQ(Partitions("lum.\"event_Reading\""), "4\n");  // old, this one, the next one, and all others
    tables.DropOld(database_, 2);
    EXPECT_EQ(Partitions("lum.\"event_Reading\""), "3\n");
    for (const char* const table :
         {"lum.\"event_Reading\"", "lum.alert", "lum.progress", "lum.batch", "lum.rejected"}) {
        EXPECT_EQ(Query("SELECT count(*) FROM " + std::string(table)), "1\n") << table;
    }
    // A month that comes again is made again.
    ASSERT_EQ(Prepare(tables, Content("Reading", {}, old)), "");
    EXPECT_EQ(Partitions("lum.\"event_Reading\""), "4\n");
}

TEST_F(ModelTablesTest, WhatTheDatabaseCannotDoIsAFailure) {
    ModelTables tables({});
    ASSERT_EQ(Prepare(tables, Content("Reading", {})), "");
    database_.Close();
    database_.Open(server_.GetParameters("postgres"), "");
    EXPECT_THROW(tables.MakeAhead(database_), SqlError);
    EXPECT_THROW(tables.DropOld(database_, 1), SqlError);
    EXPECT_THAT(ErrorOf([&] { Prepare(tables, Content("Other", {})); }).what(), HasSubstr("lum.model"));
}

}  // namespace
