#include "fleet/collect/database/ModelTables.h"

#include <algorithm>
#include <ctime>

#include "fleet/collect/database/Schema.h"
#include "host/text/LumPattern.h"

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
    std::transform(lower.begin(), lower.end(), lower.begin(), LumFoldCase);
    return lower;
}

int64_t Count(Database& database, const std::string& statement, const SqlValues& values) {
    return std::stoll(database.Run(statement, values).at(0).at(0));
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

void ModelTables::Load(Database& database, const std::string& name) {
    models_.erase(name);
    const SqlRows found =
        database.Run("SELECT table_name, view_name FROM lum.model WHERE model = $1", {name});
    if (found.empty()) {
        return;
    }
    Model model{found[0][0], found[0][1], {}, {}};
    for (const auto& row :
         database.Run("SELECT parameter, type, column_name FROM lum.model_column WHERE model = $1", {name})) {
        model.columns[{row[0], row[1]}] = row[2];
    }
    constexpr int monthsPerYear = 12;
    constexpr int yearDigits = 4;
    for (const auto& row :
         database.Run("SELECT right(c.relname, 6) FROM pg_inherits i JOIN pg_class c ON c.oid = i.inhrelid"
                      " JOIN pg_class p ON p.oid = i.inhparent JOIN pg_namespace n ON n.oid = p.relnamespace"
                      " WHERE n.nspname = 'lum' AND p.relname = $1 AND c.relname ~ '_[0-9]{6}$'",
                      {model.table})) {
        const int year = std::stoi(row[0].substr(0, yearDigits));
        model.months.insert(year * monthsPerYear + std::stoi(row[0].substr(yearDigits)) - 1);
    }
    models_[name] = std::move(model);
}

bool ModelTables::IsComplete(const EventContent& content) const {
    const auto found = models_.find(content.model);
    return found != models_.end() &&
           std::all_of(content.parameters.begin(), content.parameters.end(), [&](const auto& parameter) {
               return found->second.columns.contains({parameter.name, parameter.type});
           });
}

std::string ModelTables::Prepare(Database& database, const EventContent& content, const std::string& device) {
    if (!IsComplete(content)) {
        Load(database, content.model);
    }
    if (!IsComplete(content)) {
        Extend(database, content, device);
    }
    const std::set<int32_t>& months = models_.at(content.model).months;
    const int32_t now = MonthOf(std::time(nullptr));
    std::set<int32_t> missing;
    for (const int32_t date : content.dates) {
        const int32_t month = MonthOf(date);
        if (month <= now + kMonthsAhead && month > now - limits_.oldestMonths && !months.contains(month)) {
            missing.insert(month);
        }
    }
    if (!missing.empty()) {
        MakeMonths(database, content.model, missing);
    }
    // Making months reads the model anew: what was found before is gone.
    const Model& model = models_.at(content.model);
    std::string statement = "COPY " + TableName(model.table) + " (" + std::string(FixedEventColumns());
    for (const ParameterType& parameter : content.parameters) {
        statement += ", " + QuotedName(model.columns.at({parameter.name, parameter.type}));
    }
    return statement + ") FROM STDIN (FORMAT binary)";
}

void ModelTables::Extend(Database& database, const EventContent& content, const std::string& device) {
    try {
        Transaction transaction(database);
        database.RunScript(kLockLayout);
        Load(database, content.model);  // another collector may have done it by now
        const bool isNew = !models_.contains(content.model);
        if (isNew) {
            MakeModel(database, content.model, device);
        }
        AddColumns(database, content, device, isNew);
        MakeView(database, content.model);
        transaction.Commit();
    } catch (const std::runtime_error&) {
        models_.erase(content.model);
        throw;
    }
}

void ModelTables::MakeModel(Database& database, const std::string& name, const std::string& device) {
    const int64_t all = Count(database, "SELECT count(*) FROM lum.model", {});
    const int64_t own = Count(database, "SELECT count(*) FROM lum.model WHERE introduced_by = $1", {device});
    if (all >= limits_.models) {
        throw ModelRefusal("there are " + std::to_string(all) + " models already");
    }
    if (own >= limits_.modelsOfDevice) {
        throw ModelRefusal("its device has brought " + std::to_string(own) + " models already");
    }
    Model model{DerivedSqlName("event_", name), DerivedSqlName("v_", LowerCase(name)), {}, {}};
    if (!database.Run("SELECT 1 FROM lum.model WHERE view_name = $1", {model.view}).empty()) {
        model.view = DerivedSqlName("v_", name);  // differs from another model in letter case alone
    }
    database.RunScript(CreateTable(model.table));
    database.Run(
        "INSERT INTO lum.model (model, table_name, view_name, introduced_by)"
        " VALUES ($1, $2, $3, $4)",
        {name, model.table, model.view, device});
    models_[name] = std::move(model);
}

void ModelTables::AddColumns(Database& database, const EventContent& content, const std::string& device,
                             bool isNew) {
    Model& model = models_.at(content.model);
    int64_t own =
        Count(database, "SELECT count(*) FROM lum.model_column WHERE model = $1 AND introduced_by = $2",
              {content.model, isNew ? "" : device});
    std::set<std::string> taken;
    for (const auto& [parameter, column] : model.columns) {
        taken.insert(column);
    }
    std::string added;
    for (const ParameterType& parameter : content.parameters) {
        if (model.columns.contains({parameter.name, parameter.type})) {
            continue;
        }
        if (static_cast<int64_t>(taken.size()) >= limits_.columns ||
            (!isNew && ++own > limits_.columnsOfDevice)) {
            throw ModelRefusal("it asks for more columns than the table of its model may have");
        }
        const std::string column = ChooseColumn(parameter, taken);
        added += added.empty() ? " ADD COLUMN " : ", ADD COLUMN ";
        added += QuotedName(column) + " " + std::string(ColumnType(parameter.type));
        database.Run(
            "INSERT INTO lum.model_column (model, parameter, type, column_name, introduced_by)"
            " VALUES ($1, $2, $3, $4, $5)",
            {content.model, parameter.name, parameter.type, column, isNew ? "" : device});
        taken.insert(column);
        model.columns[{parameter.name, parameter.type}] = column;
    }
    if (!added.empty()) {
        database.RunScript("ALTER TABLE " + TableName(model.table) + added);
    }
}

void ModelTables::MakeView(Database& database, const std::string& name) {
    std::vector<std::string> order;
    std::map<std::string, std::vector<std::pair<std::string, std::string>>> columns;
    for (const auto& row : database.Run(
             "SELECT parameter, type, column_name FROM lum.model_column WHERE model = $1 ORDER BY position",
             {name})) {
        if (columns[row[0]].empty()) {
            order.push_back(row[0]);
        }
        columns[row[0]].emplace_back(row[1], row[2]);
    }
    const Model& model = models_.at(name);
    const std::string view = "lum." + QuotedName(model.view);
    std::string statement = "CREATE VIEW " + view + " AS SELECT " + std::string(FixedEventColumns()) +
                            ", (event_time AT TIME ZONE 'UTC') + make_interval(secs => event_gmt_offset)"
                            " AS local_time";
    std::set<std::string> taken;
    for (const std::string& parameter : order) {
        const std::string column = ChooseColumn({LowerCase(parameter), columns[parameter][0].first}, taken);
        taken.insert(column);
        statement += ", " + ViewColumn(columns[parameter]) + " AS " + QuotedName(column);
    }
    statement += " FROM " + TableName(model.table);
    database.RunScript("SAVEPOINT view");
    try {
        database.RunScript("DROP VIEW IF EXISTS " + view + ";" + statement);
    } catch (const SqlError&) {
        // Somebody's own view stands on this one: it stays as it was, and the events go on.
        database.RunScript("ROLLBACK TO SAVEPOINT view");
    }
}

void ModelTables::MakeMonths(Database& database, const std::string& name, const std::set<int32_t>& months) {
    Transaction transaction(database);
    database.RunScript(kLockLayout);
    Load(database, name);
    Model& model = models_[name];
    for (const int32_t month : months) {
        if (!model.months.contains(month)) {
            database.RunScript(CreateMonth(model.table, month));
        }
    }
    transaction.Commit();
    model.months.insert(months.begin(), months.end());
}

void ModelTables::MakeAhead(Database& database) {
    const int32_t now = MonthOf(std::time(nullptr));
    for (const auto& row : database.Run("SELECT model FROM lum.model")) {
        Load(database, row[0]);
        const std::set<int32_t>& months = models_.at(row[0]).months;
        if (!months.contains(now) || !months.contains(now + kMonthsAhead)) {
            MakeMonths(database, row[0], {now, now + kMonthsAhead});
        }
    }
}

void ModelTables::DropOld(Database& database, int64_t months) {
    const int32_t first = MonthOf(std::time(nullptr)) - static_cast<int32_t>(months);
    const SqlValues cutoff{MonthStart(first)};
    for (const auto& row : database.Run("SELECT model FROM lum.model")) {
        Transaction transaction(database);
        database.RunScript(kLockLayout);
        Load(database, row[0]);
        Model& model = models_.at(row[0]);
        for (auto month = model.months.begin(); month != model.months.end() && *month < first;) {
            database.RunScript("DROP TABLE " + MonthTable(model.table, *month));
            month = model.months.erase(month);
        }
        database.Run("DELETE FROM " + OtherTable(model.table) + " WHERE event_time < $1", cutoff);
        transaction.Commit();
    }
    database.Run("DELETE FROM lum.alert WHERE event_time < $1", cutoff);
    database.Run("DELETE FROM lum.rejected WHERE rejected_at < $1", cutoff);
    database.Run("DELETE FROM lum.batch WHERE stored_at < $1", cutoff);
    database.Run("DELETE FROM lum.progress WHERE at < $1", cutoff);
}
