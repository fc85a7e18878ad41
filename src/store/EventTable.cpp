#include "store/EventTable.h"

#include <utility>

LumString EventTable(const LumString& modelName) {
    return LumString(kEventTablePrefix) + modelName;
}

LumString TransitionalTable(const LumString& table) {
    return table + "Temp";
}

void AppendParamColumn(LumString& columns, const LumString& paramName) {
    columns += ", ";
    columns.Append(kParamColumnPrefix);
    columns += paramName;
}

void AppendParamColumns(LumString& columns, const Model_t& model) {
    ForEachParam(model, [&columns](const ModelParam_t& param, uint32_t /*position*/) {
        AppendParamColumn(columns, param.GetName());
        return true;
    });
}

ParamCells::ParamCells(const Model_t& model, uint32_t firstColumn) {
    ForEachParam(model, [this, firstColumn](const ModelParam_t& param, uint32_t position) {
        if (const ParamTypeTraits* const traits = FindParamType(param.GetType())) {
            cells_.push_back({param.GetName(), traits, firstColumn + position});
        }
        return true;
    });
}

std::size_t ParamCells::Copy(const GenSqlResult& rows, LumContainer& container, uint32_t index) const {
    std::size_t text = 0;
    for (const Cell& cell : cells_) {
        text += cell.traits->copyCell(rows, cell.column, container, cell.name, index);
    }
    return text;
}

RegisteredRow ReadRegisteredRow(const GenSqlResult& rows) {
    RegisteredRow row;
    int64_t enabled = 0;
    static_cast<void>(rows.GetColumn(0, row.name));  // the statement names all five columns
    static_cast<void>(rows.GetColumn(1, row.checksum));
    static_cast<void>(rows.GetColumn(2, enabled));
    row.enabled = enabled == 1;
    row.lastAggregation = ReadInt32(rows, 3);
    row.lastUpload = ReadInt32(rows, 4);
    return row;
}

std::vector<LumString> RegistrationStatements(const Model_t& model) {
    const LumString& name = model.GetName();
    LumString table;
    table.Printf(
        "CREATE TABLE Event_%S (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, "
        "E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL",
        name);
    ForEachParam(model, [&table](const ModelParam_t& param, uint32_t /*position*/) {
        const ParamTypeTraits* const traits = FindParamType(param.GetType());
        AppendParamColumn(table, param.GetName());
        table += " ";
        // A column of a type that nobody knows is declared without one.
        table.Append(traits != nullptr ? traits->columnType : std::string_view());
        return true;
    });
    table += ");";

    std::vector<LumString> statements(5);
    statements[0] = std::move(table);
    statements[1].Printf(
        "INSERT INTO RegisteredModel (RM_ModelName, RM_Checksum, RM_Enabled, RM_LastAggregationTimestamp, "
        "RM_LastUploadTimestamp) VALUES ('%S', '%S', 1, 0, 0);",
        name, model.GetChecksum());
    statements[2].Printf("CREATE INDEX Ix_Event_%S_Date ON Event_%S (E_Date)", name, name);
    statements[3].Printf("CREATE INDEX Ix_Event_%S_DeviceID ON Event_%S (E_DeviceID)", name, name);
    statements[4].Printf("CREATE INDEX Ix_Event_%S_GroupID ON Event_%S (E_GroupID)", name, name);
    return statements;
}

std::vector<LumString> RemovalStatements(const LumString& modelName) {
    std::vector<LumString> statements(2);
    statements[0].Printf("DROP TABLE Event_%S;", modelName);
    statements[1].Printf("DELETE FROM RegisteredModel WHERE RM_ModelName = '%S';", modelName);
    return statements;
}

LumString UpdateEnabled(const LumString& modelName, bool enabled) {
    LumString statement;
    statement.Printf("UPDATE RegisteredModel SET RM_Enabled = %d WHERE RM_ModelName = '%S';", enabled ? 1 : 0,
                     modelName);
    return statement;
}

LumString UpdateLastAggregation(const LumString& modelName, LumSeconds time) {
    LumString statement;
    statement.Printf(
        "UPDATE RegisteredModel SET RM_LastAggregationTimestamp = %ld WHERE RM_ModelName = '%S';",
        int64_t{time}, modelName);
    return statement;
}

LumString UpdateLastUpload(const LumString& modelName, LumSeconds time) {
    LumString statement;
    statement.Printf("UPDATE RegisteredModel SET RM_LastUploadTimestamp = %ld WHERE RM_ModelName = '%S';",
                     int64_t{time}, modelName);
    return statement;
}

int32_t ReadInt32(const GenSqlResult& rows, uint32_t column) {
    int64_t value = 0;
    static_cast<void>(rows.GetColumn(column, value));  // the statement names the column
    return static_cast<int32_t>(value);
}
