#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Sqlite.h"
#include "support/TempDirectory.h"
#include "unit/client/AsNobody.h"
#include "unit/client/RunClient.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// A database with the tables that a query looks at: a model with three events, and one that has lost its
/// table.
class QueryCommand : public testing::Test {
protected:
    QueryCommand() {
        database_.Run(
            "CREATE TABLE RegisteredModel (RM_ModelName TEXT); INSERT INTO RegisteredModel VALUES ('Visit'), "
            "('Lost');"
            "CREATE TABLE Event_Visit (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, "
            "C_Who TEXT);"
            "INSERT INTO Event_Visit VALUES (1, 5, 0, 'ann'), (2, 6, 0, x'fe'), (3, 7, 0, NULL)");
    }

    [[nodiscard]] ClientRun Query(const std::string& sql, const std::string& output = "table") const {
        return RunClient("", {"query", sql, "--database", path_, "--output", output});
    }

    const TempDirectory scratch_;
    const std::string path_ = scratch_ / "a \"quoted\".sqlite3";
    const Sqlite database_{path_};
};

TEST_F(QueryCommand, ShowsEveryKindOfValueInEachForm) {
    const std::string sql = "SELECT EventId, Who, 0.5 AS Half FROM v_Visit";
    EXPECT_EQ(Query(sql).out,
              "EventId  Who  Half\n-------  ---  ----\n1        ann  0.5\n2        \uFFFD    0.5\n3          "
              "   0.5\n3 rows\n");
    EXPECT_EQ(Query(sql, "json").out,
              "[\n  {\"EventId\":1,\"Who\":\"ann\",\"Half\":0.5},\n  "
              "{\"EventId\":2,\"Who\":\"\uFFFD\",\"Half\":0.5},\n"
              "  {\"EventId\":3,\"Who\":null,\"Half\":0.5}\n]\n");
    EXPECT_EQ(Query("SELECT EventId FROM v_Visit", "jsonl").out,
              "{\"EventId\":1}\n{\"EventId\":2}\n{\"EventId\":3}\n");
    EXPECT_THAT(Query(sql, "csv").out, StartsWith("EventId,Who,Half\n1,ann,0.5\n"));
}

TEST_F(QueryCommand, ShowsALongTableInParts) {
    const std::string out =
        Query("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300) SELECT i FROM n")
            .out;
    EXPECT_THAT(out, StartsWith("i\n---\n1\n2\n"));
    EXPECT_THAT(out, HasSubstr("\n256\n257\n"));
    EXPECT_THAT(out, EndsWith("\n300\n300 rows\n"));
}

TEST_F(QueryCommand, NamesTheViewThatWasMeant) {
    EXPECT_EQ(Query("SELECT * FROM v_Vist").err, "lumctl: no such table: v_Vist; did you mean 'v_Visit'?\n");
    EXPECT_EQ(Query("SELECT * FROM Vist").err, "lumctl: no such table: Vist; did you mean 'v_Visit'?\n");
    EXPECT_EQ(Query("SELECT * FROM v_Lost").err, "lumctl: no such table: v_Lost\n")
        << "there is no such view";
    EXPECT_EQ(Query("SELECT Whom FROM v_Visit").err, "lumctl: no such column: Whom\n");
}

TEST_F(QueryCommand, SaysWhatBroughtItToAnEnd) {
    const ClientRun run =
        Query("SELECT abs(x) FROM (SELECT 1 AS x UNION ALL SELECT -9223372036854775807 - 1)", "csv");
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.out, "abs(x)\n1\n");
    EXPECT_EQ(run.err, "lumctl: integer overflow\n");
}

TEST_F(QueryCommand, RefusesADatabaseWhoseModelsCannotBeShown) {
    database_.Run("INSERT INTO RegisteredModel VALUES ('VISIT')");
    EXPECT_THAT(Query("SELECT 1").err,
                EndsWith("it is not a database of events: view \"v_Visit\" already exists\n"));
    database_.Run(
        "DELETE FROM RegisteredModel; INSERT INTO RegisteredModel VALUES ('Odd');"
        "CREATE VIEW Event_Odd AS SELECT * FROM missing");
    EXPECT_THAT(Query("SELECT 1").err,
                EndsWith("it is not a database of events: no such table: main.missing\n"));
}

TEST_F(QueryCommand, SaysHowToReadAFileThatIsClosed) {
    std::filesystem::permissions(scratch_.Path(), std::filesystem::perms(0755));
    std::filesystem::permissions(path_, std::filesystem::perms::none);
    const AsNobody nobody;
    const ClientRun run = Query("SELECT 1");
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.err,
              "lumctl: " + path_ +
                  ": Permission denied; query reads the database file itself, which is open to the agent's "
                  "user and root: use sudo\n");
}

}  // namespace
