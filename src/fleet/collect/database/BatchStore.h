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
    /// that fail, each in a transaction of its own. `streamMadeNs` says which stream they came from. Throws
    /// an SqlError where the database cannot do its work; then what is not kOpen is decided for good.
    void Store(std::vector<Incoming>& batches, int64_t streamMadeNs);

    /// What the database knows of batches of `device`, by their digests: kHeld or kRejected. Those it does
    /// not know are left out. Throws an SqlError where the database cannot be asked.
    [[nodiscard]] std::map<std::string, ReceiptLine> LookUp(const std::string& device,
                                                            const std::vector<AskLine>& questions);

    [[nodiscard]] ModelTables& GetTables() { return tables_; }

private:
    using Group = std::vector<Incoming*>;
    using Statements = std::map<const Incoming*, std::string>;

    void StoreTogether(const Group& batches, int64_t streamMadeNs);
    void StoreAlone(Incoming& batch, int64_t streamMadeNs);
    /// The COPY statement of each batch that is not rejected.
    [[nodiscard]] Statements PrepareTables(const Group& batches);
    void InsertKeys(const Group& batches);
    void CopyRowsOf(const Group& batches, const Statements& statements);
    /// How many rejected batches are kept of each device that has one among `batches`.
    [[nodiscard]] std::map<std::string, int64_t> CountRejected(const Group& batches);
    void InsertRejected(const Group& batches);
    void NoteContacts(const Group& batches);
    void NoteProgress(const Group& batches, int64_t streamMadeNs);

    Database& database_;
    ModelTables tables_;
    const std::string collector_;
};
