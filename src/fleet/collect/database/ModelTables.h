#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/collect/batch/Content.h"
#include "fleet/collect/database/Database.h"

/// The tables of events, one a model, made as models come. Each is partitioned by month of UTC; events of
/// months that are too far away have a partition of their own. Names come from devices, so each becomes a
/// quoted name that was chosen here and is kept in lum.model and lum.model_column.

/// How much devices may bring about.
struct ModelLimits {
    int64_t models = 2000;          ///< of all devices together
    int64_t modelsOfDevice = 200;   ///< that one device was the first to send
    int64_t columns = 1000;         ///< of one table, besides the fixed ones
    int64_t columnsOfDevice = 100;  ///< that one device added to a table that was there
    int64_t oldestMonths = 60;      ///< months back that get a partition
};

/// A batch asks for more than its device may have.
class ModelRefusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Every routine throws an SqlError where the database cannot do its work.
class ModelTables {
public:
    explicit ModelTables(const ModelLimits& limits) : limits_(limits) {}

    /// Sees to it that the table of `content` has all its columns and months, and gives the COPY statement
    /// that takes its rows. Throws a ModelRefusal where that is more than `device` may have. Not to be called
    /// within a transaction.
    [[nodiscard]] std::string Prepare(Database& database, const EventContent& content,
                                      const std::string& device);

    /// Makes the partitions of this month and the next for all models.
    void MakeAhead(Database& database);
    /// Drops the partitions of months that lie more than `months` back, and what is older elsewhere.
    void DropOld(Database& database, int64_t months);

    /// What the database is believed to hold is looked up again.
    void Forget() { models_.clear(); }

private:
    struct Model {
        std::string table;
        std::string view;
        /// Column by parameter and type.
        std::map<std::pair<std::string, std::string>, std::string> columns;
        std::set<int32_t> months;
    };

    [[nodiscard]] bool IsComplete(const EventContent& content) const;
    void Load(Database& database, const std::string& name);
    void Extend(Database& database, const EventContent& content, const std::string& device);
    void MakeModel(Database& database, const std::string& name, const std::string& device);
    void AddColumns(Database& database, const EventContent& content, const std::string& device, bool isNew);
    void MakeView(Database& database, const std::string& name);
    void MakeMonths(Database& database, const std::string& name, const std::set<int32_t>& months);

    const ModelLimits limits_;
    std::map<std::string, Model> models_;
};

/// Months are counted from January of year 0.
[[nodiscard]] int32_t MonthOf(int64_t seconds);
/// "2026-11-01 00:00:00+00".
[[nodiscard]] std::string MonthStart(int32_t month);
/// The quoted name, with its schema, of a month's partition.
[[nodiscard]] std::string MonthTable(const std::string& table, int32_t month);

/// A name for what belongs to `text`: `prefix` and the text, shortened where the database could not tell it
/// from others. The same text gives the same name.
[[nodiscard]] std::string DerivedSqlName(std::string_view prefix, std::string_view text);
/// A column for a parameter, none of `taken`.
[[nodiscard]] std::string ChooseColumn(const ParameterType& parameter, const std::set<std::string>& taken);
