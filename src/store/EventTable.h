#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/container/LumContainer.h"
#include "host/database/Database.h"
#include "host/text/LumString.h"
#include "host/time/LumTime.h"
#include "model/Model.h"
#include "model/ParamTypes.h"

/// The layout of what the database holds of a model: how its table and columns are called, and the statements
/// on its row in RegisteredModel. Texts alone, nothing is run in here. A model's names were looked at when it
/// was registered, so they go into a statement as they stand.

/// The events of a model are in the table of this name followed by the model's.
inline constexpr std::string_view kEventTablePrefix = "Event_";
/// The value of a parameter is in the column of this name followed by the parameter's.
inline constexpr std::string_view kParamColumnPrefix = "C_";

/// The columns that every event table has besides the id of a row, in the order of the table.
inline constexpr std::string_view kEventColumns = "E_Date, E_GMT_Offset, E_DeviceId, E_GroupId";
/// The same without the offset. The database tells names apart without letter case, and these have always
/// been spelled so.
inline constexpr std::string_view kDateAndIdColumns = "E_Date, E_DeviceID, E_GroupID";

[[nodiscard]] LumString EventTable(const LumString& modelName);
/// The table that a table is copied into while it is made anew.
[[nodiscard]] LumString TransitionalTable(const LumString& table);

/// Appends ", " and the column of one parameter, or of each parameter of the model in order.
void AppendParamColumn(LumString& columns, const LumString& paramName);
void AppendParamColumns(LumString& columns, const Model_t& model);

/// Copies the parameters of rows into containers.
class ParamCells {
public:
    /// The parameters of `model` stand in the columns from `firstColumn` on, in order.
    ParamCells(const Model_t& model, uint32_t firstColumn);

    /// Copies those of the selected row into `container`, each under its name at position `index`. A
    /// parameter of a type that nobody knows is left out. Returns the bytes of the texts among them.
    std::size_t Copy(const GenSqlResult& rows, LumContainer& container, uint32_t index) const;

private:
    struct Cell {
        LumString name;
        const ParamTypeTraits* traits;
        uint32_t column;
    };

    std::vector<Cell> cells_;
};

/// One row of RegisteredModel.
struct RegisteredRow {
    LumString name;
    LumString checksum;
    bool enabled = false;
    LumSeconds lastAggregation = 0;
    LumSeconds lastUpload = 0;
};

/// The rows of RegisteredModel as ReadRegisteredRow expects them.
inline constexpr const char* kSelectRegisteredRows =
    "SELECT RM_ModelName, RM_Checksum, RM_Enabled, RM_LastAggregationTimestamp, RM_LastUploadTimestamp FROM "
    "RegisteredModel;";
/// Their names alone.
inline constexpr const char* kSelectRegisteredNames = "SELECT RM_ModelName FROM RegisteredModel";

/// The selected row of what kSelectRegisteredRows returned.
[[nodiscard]] RegisteredRow ReadRegisteredRow(const GenSqlResult& rows);

/// What registers a model: its table, its row, the indexes of its table; all or none of them are to be run.
[[nodiscard]] std::vector<LumString> RegistrationStatements(const Model_t& model);
/// What takes a model out again.
[[nodiscard]] std::vector<LumString> RemovalStatements(const LumString& modelName);

[[nodiscard]] LumString UpdateEnabled(const LumString& modelName, bool enabled);
[[nodiscard]] LumString UpdateLastAggregation(const LumString& modelName, LumSeconds time);
[[nodiscard]] LumString UpdateLastUpload(const LumString& modelName, LumSeconds time);

/// A cell of the selected row as the 32 bits that events and times have.
[[nodiscard]] int32_t ReadInt32(const GenSqlResult& rows, uint32_t column);
