#include "fleet/collect/database/ModelTables.h"

#include <algorithm>
#include <ctime>

#include "fleet/collect/database/Schema.h"

namespace {

constexpr int kMonthsAhead = 1;

std::string TableName(const std::string& table) {
    return "lum." + QuotedName(table);
}

std::string OtherTable(const std::string& table) {
    return "lum_month." + QuotedName(table + "_other");
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    for (char& letter : lower) {
        letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    }
    return lower;
}

int64_t CountOf(const SqlRows& rows) {
    return rows.empty() || rows[0].empty() ? 0 : std::stoll(rows[0][0]);
}

bool RunCount(Database& database, const std::string& statement, const SqlValues& values, int64_t& count,
              SqlFailure& failure) {
    SqlRows rows;
    const bool good = database.Run(statement, values, rows, failure);
    count = CountOf(rows);
    return good;
}

std::string CreateTable(const std::string& table) {
    const std::string name = TableName(table);
    return "CREATE TABLE " + name +
           " (event_time timestamptz NOT NULL, batch bigint NOT NULL, position integer NOT NULL,"
           " device text COLLATE \"C\" NOT NULL, event_gmt_offset integer NOT NULL,"
           " event_device_id integer NOT NULL, event_group_id integer NOT NULL)"
           " PARTITION BY RANGE (event_time);"
           "CREATE INDEX ON " +
           name + " USING brin (event_time);" + "CREATE TABLE " + OtherTable(table) + " PARTITION OF " +
           name + " DEFAULT";
}

/// One column of a view: all columns of a parameter as one.
std::string ViewColumn(const std::vector<std::pair<std::string, std::string>>& typedColumns) {
    if (typedColumns.size() == 1) {
        return QuotedName(typedColumns[0].second);
    }
    const bool numbers = std::all_of(typedColumns.begin(), typedColumns.end(), [](const auto& column) {
        const std::string_view type = ColumnType(column.first);
        return type == "integer" || type == "double precision";
    });
    std::string text = "coalesce(";
    for (const auto& [type, column] : typedColumns) {
        text += text.back() == '(' ? "" : ", ";
        text += QuotedName(column) + (numbers ? "::double precision" : "::text");
    }
    return text + ")";
}

std::string CreateMonth(const std::string& table, int32_t month) {
    const std::string part = MonthTable(table, month);
    const std::string name = TableName(table);
    const std::string from = "'" + MonthStart(month) + "'";
    const std::string to = "'" + MonthStart(month + 1) + "'";
    const std::string range = "event_time >= " + from + " AND event_time < " + to;
    // What came for the month while it was too far away moves in.
    return "CREATE TABLE " + part + " (LIKE " + name + " INCLUDING ALL);" + "WITH moved AS (DELETE FROM " +
           OtherTable(table) + " WHERE " + range + " RETURNING *) INSERT INTO " + part +
           " SELECT * FROM moved;" + "ALTER TABLE " + name + " ATTACH PARTITION " + part +
           " FOR VALUES FROM (" + from + ") TO (" + to + ")";
}

}  // namespace

bool ModelTables::Load(Database& database, const std::string& name, SqlFailure& failure) {
    SqlRows rows;
    if (!database.Run("SELECT table_name, view_name FROM lum.model WHERE model = $1", {name}, rows,
                      failure)) {
        return false;
    }
    models_.erase(name);
    if (rows.empty()) {
        return true;
    }
    Model model;
    model.table = rows[0][0];
    model.view = rows[0][1];
    if (!database.Run("SELECT parameter, type, column_name FROM lum.model_column WHERE model = $1", {name},
                      rows, failure)) {
        return false;
    }
    for (const auto& row : rows) {
        model.columns[{row[0], row[1]}] = row[2];
    }
    if (!database.Run("SELECT right(c.relname, 6) FROM pg_inherits i JOIN pg_class c ON c.oid = i.inhrelid"
                      " JOIN pg_class p ON p.oid = i.inhparent JOIN pg_namespace n ON n.oid = p.relnamespace"
                      " WHERE n.nspname = 'lum' AND p.relname = $1 AND c.relname ~ '_[0-9]{6}$'",
                      {model.table}, rows, failure)) {
        return false;
    }
    constexpr int monthsPerYear = 12;
    constexpr int yearDigits = 4;
    for (const auto& row : rows) {
        const int year = std::stoi(row[0].substr(0, yearDigits));
        model.months.insert(year * monthsPerYear + std::stoi(row[0].substr(yearDigits)) - 1);
    }
    models_[name] = std::move(model);
    return true;
}

ModelTables::Result ModelTables::Prepare(Database& database, const EventContent& content,
                                         const std::string& device, std::string& copyStatement,
                                         std::string& reason, SqlFailure& failure) {
    const auto isComplete = [this, &content] {
        const auto found = models_.find(content.model);
        return found != models_.end() &&
               std::all_of(content.parameters.begin(), content.parameters.end(), [&](const auto& parameter) {
                   return found->second.columns.count({parameter.name, parameter.type}) != 0;
               });
    };
    if (!isComplete() && !Load(database, content.model, failure)) {
        return Result::kFailed;
    }
    if (!isComplete()) {
        const Result result = Extend(database, content, device, reason, failure);
        if (result != Result::kReady) {
            models_.erase(content.model);
            return result;
        }
    }
    const std::set<int32_t>& months = models_.at(content.model).months;
    const int32_t now = MonthOf(std::time(nullptr));
    std::set<int32_t> missing;
    for (const int32_t date : content.dates) {
        const int32_t month = MonthOf(date);
        if (month <= now + kMonthsAhead && month > now - limits_.oldestMonths && months.count(month) == 0) {
            missing.insert(month);
        }
    }
    if (!missing.empty() && !MakeMonths(database, content.model, missing, failure)) {
        return Result::kFailed;
    }
    // Making months reads the model anew: what was found before is gone.
    const Model& model = models_.at(content.model);
    copyStatement = "COPY " + TableName(model.table) + " (" + std::string(FixedEventColumns());
    for (const ParameterType& parameter : content.parameters) {
        copyStatement += ", " + QuotedName(model.columns.at({parameter.name, parameter.type}));
    }
    copyStatement += ") FROM STDIN (FORMAT binary)";
    return Result::kReady;
}

ModelTables::Result ModelTables::Extend(Database& database, const EventContent& content,
                                        const std::string& device, std::string& reason, SqlFailure& failure) {
    Transaction transaction(database);
    // Another collector may have done it by the time that the lock is ours.
    if (!transaction.Begin(failure) || !database.RunScript(kLockLayout, failure) ||
        !Load(database, content.model, failure)) {
        return Result::kFailed;
    }
    const bool isNew = models_.count(content.model) == 0;
    if (isNew) {
        const Result made = MakeModel(database, content.model, device, reason, failure);
        if (made != Result::kReady) {
            return made;
        }
    }
    const Result added = AddColumns(database, content, device, isNew, reason, failure);
    if (added != Result::kReady) {
        return added;
    }
    return MakeView(database, content.model, failure) && transaction.Commit(failure) ? Result::kReady
                                                                                     : Result::kFailed;
}

ModelTables::Result ModelTables::MakeModel(Database& database, const std::string& name,
                                           const std::string& device, std::string& reason,
                                           SqlFailure& failure) {
    int64_t all = 0;
    int64_t own = 0;
    if (!RunCount(database, "SELECT count(*) FROM lum.model", {}, all, failure) ||
        !RunCount(database, "SELECT count(*) FROM lum.model WHERE introduced_by = $1", {device}, own,
                  failure)) {
        return Result::kFailed;
    }
    if (all >= limits_.models || own >= limits_.modelsOfDevice) {
        reason = all >= limits_.models ? "there are " + std::to_string(all) + " models already"
                                       : "its device has brought " + std::to_string(own) + " models already";
        return Result::kRefused;
    }
    Model model;
    model.table = DerivedSqlName("event_", name);
    model.view = DerivedSqlName("v_", LowerCase(name));
    SqlRows rows;
    if (!database.Run("SELECT 1 FROM lum.model WHERE view_name = $1", {model.view}, rows, failure)) {
        return Result::kFailed;
    }
    if (!rows.empty()) {
        model.view = DerivedSqlName("v_", name);  // differs from another model in letter case alone
    }
    if (!database.RunScript(CreateTable(model.table), failure) ||
        !database.Run("INSERT INTO lum.model (model, table_name, view_name, introduced_by)"
                      " VALUES ($1, $2, $3, $4)",
                      {name, model.table, model.view, device}, failure)) {
        return Result::kFailed;
    }
    models_[name] = std::move(model);
    return Result::kReady;
}

ModelTables::Result ModelTables::AddColumns(Database& database, const EventContent& content,
                                            const std::string& device, bool isNew, std::string& reason,
                                            SqlFailure& failure) {
    Model& model = models_.at(content.model);
    int64_t own = 0;
    if (!RunCount(database, "SELECT count(*) FROM lum.model_column WHERE model = $1 AND introduced_by = $2",
                  {content.model, isNew ? "" : device}, own, failure)) {
        return Result::kFailed;
    }
    std::set<std::string> taken;
    for (const auto& [parameter, column] : model.columns) {
        taken.insert(column);
    }
    std::string added;
    for (const ParameterType& parameter : content.parameters) {
        if (model.columns.count({parameter.name, parameter.type}) != 0) {
            continue;
        }
        if (static_cast<int64_t>(taken.size()) >= limits_.columns ||
            (!isNew && ++own > limits_.columnsOfDevice)) {
            reason = "it asks for more columns than the table of its model may have";
            return Result::kRefused;
        }
        const std::string column = ChooseColumn(parameter, taken);
        added += added.empty() ? " ADD COLUMN " : ", ADD COLUMN ";
        added += QuotedName(column) + " " + std::string(ColumnType(parameter.type));
        if (!database.Run("INSERT INTO lum.model_column (model, parameter, type, column_name, introduced_by)"
                          " VALUES ($1, $2, $3, $4, $5)",
                          {content.model, parameter.name, parameter.type, column, isNew ? "" : device},
                          failure)) {
            return Result::kFailed;
        }
        taken.insert(column);
        model.columns[{parameter.name, parameter.type}] = column;
    }
    if (!added.empty() && !database.RunScript("ALTER TABLE " + TableName(model.table) + added, failure)) {
        return Result::kFailed;
    }
    return Result::kReady;
}

bool ModelTables::MakeView(Database& database, const std::string& name, SqlFailure& failure) {
    SqlRows rows;
    if (!database.Run("SELECT parameter, type, column_name FROM lum.model_column WHERE model = $1"
                      " ORDER BY position",
                      {name}, rows, failure)) {
        return false;
    }
    std::vector<std::string> order;
    std::map<std::string, std::vector<std::pair<std::string, std::string>>> columns;
    for (const auto& row : rows) {
        if (columns[row[0]].empty()) {
            order.push_back(row[0]);
        }
        columns[row[0]].emplace_back(row[1], row[2]);
    }
    const Model& model = models_.at(name);
    std::string fixed(FixedEventColumns());
    std::string statement = "CREATE VIEW lum." + QuotedName(model.view) + " AS SELECT " + fixed +
                            ", (event_time AT TIME ZONE 'UTC') + make_interval(secs => event_gmt_offset)"
                            " AS local_time";
    std::set<std::string> taken;
    for (const std::string& parameter : order) {
        const std::string column = ChooseColumn({LowerCase(parameter), columns[parameter][0].first}, taken);
        taken.insert(column);
        statement += ", " + ViewColumn(columns[parameter]) + " AS " + QuotedName(column);
    }
    statement += " FROM " + TableName(model.table);
    const std::string drop = "DROP VIEW IF EXISTS lum." + QuotedName(model.view);
    if (!database.RunScript("SAVEPOINT view", failure)) {
        return false;
    }
    if (database.RunScript(drop + ";" + statement, failure)) {
        return true;
    }
    // Somebody's own view stands on this one: it stays as it was, and the events go on.
    return database.RunScript("ROLLBACK TO SAVEPOINT view", failure);
}

bool ModelTables::MakeMonths(Database& database, const std::string& name, const std::set<int32_t>& months,
                             SqlFailure& failure) {
    Transaction transaction(database);
    if (!transaction.Begin(failure) || !database.RunScript(kLockLayout, failure) ||
        !Load(database, name, failure)) {
        return false;
    }
    Model& model = models_[name];
    for (const int32_t month : months) {
        if (model.months.insert(month).second &&
            !database.RunScript(CreateMonth(model.table, month), failure)) {
            models_.erase(name);
            return false;
        }
    }
    return transaction.Commit(failure);
}

bool ModelTables::MakeAhead(Database& database, SqlFailure& failure) {
    SqlRows rows;
    if (!database.Run("SELECT model FROM lum.model", {}, rows, failure)) {
        return false;
    }
    const int32_t now = MonthOf(std::time(nullptr));
    for (const auto& row : rows) {
        if (!Load(database, row[0], failure)) {
            return false;
        }
        const std::set<int32_t>& months = models_.at(row[0]).months;
        if ((months.count(now) == 0 || months.count(now + kMonthsAhead) == 0) &&
            !MakeMonths(database, row[0], {now, now + kMonthsAhead}, failure)) {
            return false;
        }
    }
    return true;
}

bool ModelTables::DropOld(Database& database, int64_t months, SqlFailure& failure) {
    const int32_t first = MonthOf(std::time(nullptr)) - static_cast<int32_t>(months);
    const SqlValues cutoff{MonthStart(first)};
    SqlRows rows;
    if (!database.Run("SELECT model FROM lum.model", {}, rows, failure)) {
        return false;
    }
    for (const auto& row : rows) {
        Transaction transaction(database);
        if (!transaction.Begin(failure) || !database.RunScript(kLockLayout, failure) ||
            !Load(database, row[0], failure)) {
            return false;
        }
        Model& model = models_.at(row[0]);
        for (auto month = model.months.begin(); month != model.months.end() && *month < first;) {
            if (!database.RunScript("DROP TABLE " + MonthTable(model.table, *month), failure)) {
                return false;
            }
            month = model.months.erase(month);
        }
        if (!database.Run("DELETE FROM " + OtherTable(model.table) + " WHERE event_time < $1", cutoff,
                          failure) ||
            !transaction.Commit(failure)) {
            return false;
        }
    }
    return database.Run("DELETE FROM lum.alert WHERE event_time < $1", cutoff, failure) &&
           database.Run("DELETE FROM lum.rejected WHERE rejected_at < $1", cutoff, failure) &&
           database.Run("DELETE FROM lum.batch WHERE stored_at < $1", cutoff, failure) &&
           database.Run("DELETE FROM lum.progress WHERE at < $1", cutoff, failure);
}
