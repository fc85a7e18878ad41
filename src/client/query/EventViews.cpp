#include "client/query/EventViews.h"

#include "contract/ContainerKeys.h"

namespace {

constexpr std::string_view kParameterPrefix = "C_";

std::string QuotedName(std::string_view name) {
    std::string quoted = "\"";
    for (const char letter : name) {
        quoted.append(letter == '"' ? 2 : 1, letter);
    }
    return quoted + "\"";
}

std::string LocalTime(std::string_view column) {
    return "strftime('%Y-%m-%dT%H:%M:%S', " + QuotedName(column) + ", 'unixepoch', 'localtime')";
}

/// What stands for a column in the view; empty for one that it leaves out.
std::string ViewColumn(std::string_view column, std::string_view type) {
    struct Fixed {
        std::string_view column;
        std::string_view name;
    };
    static constexpr Fixed kFixed[] = {{"E_Id", "EventId"},
                                       {"E_Date", keys::kEventDate},
                                       {"E_DeviceId", keys::kEventDeviceId},
                                       {"E_GroupId", keys::kEventGroupId}};
    std::string_view name;
    for (const Fixed& fixed : kFixed) {
        name = LumString(column) == LumString(fixed.column) ? fixed.name : name;
    }
    if (column.starts_with(kParameterPrefix)) {
        name = column.substr(kParameterPrefix.size());
    }
    if (name.empty()) {
        return {};
    }
    return (type == "TIMESTAMP" ? LocalTime(column) : QuotedName(column)) + " AS " + QuotedName(name);
}

bool Rows(DBReader& reader, const std::string& sql, std::vector<std::vector<std::string>>& rows,
          std::string& error) {
    LumString reason;
    bool done = reader.Begin(LumString(sql), reason);
    auto step = DBReader::Step::kRow;
    while (done && step == DBReader::Step::kRow) {
        step = reader.Next(reason);
        done = step != DBReader::Step::kFailed;
        if (step == DBReader::Step::kRow) {
            std::vector<std::string>& row = rows.emplace_back();
            for (uint32_t i = 0; i < reader.GetColumnCount(); ++i) {
                row.emplace_back(reader.GetText(i));
            }
        }
    }
    error = std::string(reason.View());
    return done;
}

}  // namespace

bool DefineEventViews(DBReader& reader, std::vector<std::string>& names, std::string& error) {
    std::vector<std::vector<std::string>> models;
    if (!Rows(reader, "SELECT RM_ModelName FROM RegisteredModel ORDER BY RM_ModelName", models, error)) {
        return false;
    }
    for (const std::vector<std::string>& model : models) {
        const std::string table = "Event_" + model.front();
        std::vector<std::vector<std::string>> columns;
        if (!Rows(reader, "PRAGMA table_info(" + QuotedName(table) + ")", columns, error)) {
            return false;
        }
        std::string select;
        for (const std::vector<std::string>& column : columns) {
            const std::string shown = ViewColumn(column[1], column[2]);
            select += shown.empty() ? "" : (select.empty() ? "" : ", ") + shown;
        }
        if (select.empty()) {
            continue;  // the model has lost its table
        }
        LumString reason;
        const std::string view = "v_" + model.front();
        if (!reader.DefineView(LumString(QuotedName(view)),
                               LumString("SELECT " + select + " FROM " + QuotedName(table)), reason)) {
            error = std::string(reason.View());
            return false;
        }
        names.push_back(view);
    }
    return true;
}
