#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "fleet/collect/batch/Incoming.h"
#include "fleet/collect/database/Database.h"
#include "fleet/collect/database/ModelTables.h"
#include "fleet/wire/Receipt.h"

/// Puts batches into the database, each once. One thread.
class BatchStore {
public:
    /// Bytes that are kept of a rejected batch, and rejected batches that are kept of a device.
    static constexpr std::size_t kKeptBytes = 65'536;
    static constexpr int64_t kKeptRejects = 1'000;

    BatchStore(Database& database, const ModelLimits& limits, std::string collector)
        : database_(database), tables_(limits), collector_(std::move(collector)) {}

    /// Decides the outcome of every batch and stores it: all in one transaction or, where one of them makes
    /// that fail, each in a transaction of its own. `streamMadeNs` says which stream they came from. False,
    /// with `failure`, where the database cannot do its work; then what is not kOpen is decided for good.
    [[nodiscard]] bool Store(std::vector<Incoming>& batches, int64_t streamMadeNs, SqlFailure& failure);

    /// What the database knows of batches of `device`: kHeld or kRejected. Those it does not know are left
    /// out.
    [[nodiscard]] bool LookUp(const std::string& device, const std::vector<AskLine>& questions,
                              std::map<std::string, ReceiptLine>& answers, SqlFailure& failure);

    [[nodiscard]] ModelTables& GetTables() { return tables_; }

private:
    using Group = std::vector<Incoming*>;

    [[nodiscard]] bool StoreTogether(const Group& batches, int64_t streamMadeNs, SqlFailure& failure);
    [[nodiscard]] bool StoreAlone(Incoming& batch, int64_t streamMadeNs, SqlFailure& failure);
    [[nodiscard]] bool PrepareTables(const Group& batches, std::map<const Incoming*, std::string>& statements,
                                     SqlFailure& failure);
    [[nodiscard]] bool InsertKeys(const Group& batches, SqlFailure& failure);
    [[nodiscard]] bool CopyRowsOf(const Group& batches,
                                  const std::map<const Incoming*, std::string>& statements,
                                  SqlFailure& failure);
    /// How many rejected batches are kept of each device that has one among `batches`.
    [[nodiscard]] bool CountRejected(const Group& batches, std::map<std::string, int64_t>& kept,
                                     SqlFailure& failure);
    [[nodiscard]] bool InsertRejected(const Group& batches, SqlFailure& failure);
    [[nodiscard]] bool NoteContacts(const Group& batches, SqlFailure& failure);
    [[nodiscard]] bool NoteProgress(const Group& batches, int64_t streamMadeNs, SqlFailure& failure);

    Database& database_;
    ModelTables tables_;
    const std::string collector_;
};
