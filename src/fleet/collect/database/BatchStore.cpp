#include "fleet/collect/database/BatchStore.h"

#include <algorithm>

#include "fleet/collect/database/BatchRows.h"

namespace {

constexpr const char* kInsertKeys =
    "INSERT INTO lum.batch (device, digest, label, name, number, received_at, bytes, events, model, checksum)"
    " SELECT d, decode(g, 'hex'), l, n, u, r, b, e, m, c"
    " FROM unnest($1::text[], $2::text[], $3::text[], $4::text[], $5::bigint[], $6::timestamptz[],"
    " $7::integer[], $8::integer[], $9::text[], $10::text[]) AS t(d, g, l, n, u, r, b, e, m, c)"
    " ORDER BY d COLLATE \"C\", g COLLATE \"C\""
    " ON CONFLICT (device, digest) DO NOTHING RETURNING id, device, encode(digest, 'hex')";

constexpr const char* kInsertRejected =
    "INSERT INTO lum.rejected (device, digest, subject, label, name, reason, bytes, content)"
    " VALUES ($1, decode($2, 'hex'), $3, $4, $5, $6, $7, decode($8, 'hex'))"
    " ON CONFLICT (device, digest) DO NOTHING";

constexpr const char* kCountRejected =
    "SELECT device, count(*) FROM lum.rejected WHERE device = ANY ($1::text[]) GROUP BY device";

constexpr const char* kInsertDevices =
    "INSERT INTO lum.device (device) SELECT d FROM unnest($1::text[]) AS t(d) ORDER BY d COLLATE \"C\""
    " ON CONFLICT (device) DO NOTHING";

/// In the order of their names, so that two collectors wait for each other instead of for ever; and in a
/// statement of its own, as the next one sees what the other collector has written only then.
constexpr const char* kLockDevices =
    "SELECT count(*) FROM (SELECT 1 FROM lum.device WHERE device = ANY ($1::text[]) ORDER BY device FOR "
    "UPDATE)"
    " AS locked";

/// What is missing is kept as ranges. A device whose numbers make no sense is not worth more than a few
/// kilobytes: then the ranges become one.
constexpr const char* kUpdateDevices =
    "UPDATE lum.device d SET last_contact = now(), batches = d.batches + t.b, events = d.events + t.e,"
    " rejected = d.rejected + t.r, lowest_number = least(d.lowest_number, t.lo),"
    " highest_number = greatest(d.highest_number, t.hi),"
    " missing = CASE WHEN pg_column_size(t.gaps) > 8000 THEN int8multirange(range_merge(t.gaps))"
    " ELSE t.gaps END"
    " FROM (SELECT i.*, CASE WHEN i.lo IS NULL THEN o.missing ELSE"
    " o.missing + int8multirange(int8range(coalesce(o.highest_number + 1, i.lo),"
    " greatest(i.hi + 1, coalesce(o.highest_number + 1, i.lo)))) - i.got END AS gaps"
    " FROM unnest($1::text[], $2::bigint[], $3::bigint[], $4::bigint[], $5::bigint[], $6::bigint[],"
    " $7::text[]::int8multirange[]) AS i(d, b, e, r, lo, hi, got) JOIN lum.device o ON o.device = i.d) AS t"
    " WHERE d.device = t.d";

constexpr const char* kNoteProgress =
    "INSERT INTO lum.progress AS p (collector, stream_made, sequence)"
    " VALUES ($1, to_timestamp($2::bigint / 1e9), $3)"
    " ON CONFLICT (collector) DO UPDATE SET sequence = CASE WHEN p.stream_made = EXCLUDED.stream_made"
    " THEN greatest(p.sequence, EXCLUDED.sequence) ELSE EXCLUDED.sequence END,"
    " stream_made = EXCLUDED.stream_made, at = now()";

/// The rows of a batch that is to be stored, and where its number stands in each; null for other batches.
CopyRows* RowsOf(Incoming& batch, const std::vector<std::size_t>*& batchFields) {
    if (auto* const events = std::get_if<EventContent>(&batch.content)) {
        batchFields = &events->batchFields;
        return &events->rows;
    }
    if (auto* const alert = std::get_if<AlertContent>(&batch.content)) {
        batchFields = &alert->batchFields;
        return &alert->rows;
    }
    return nullptr;
}

}  // namespace

bool BatchStore::Store(std::vector<Incoming>& batches, int64_t streamMadeNs, SqlFailure& failure) {
    Group open;
    for (Incoming& batch : batches) {
        open.push_back(&batch);
    }
    if (StoreTogether(open, streamMadeNs, failure)) {
        return true;
    }
    if (failure.kind == SqlFailure::Kind::kServer) {
        return false;
    }
    tables_.Forget();
    return std::all_of(open.begin(), open.end(),
                       [&](Incoming* batch) { return StoreAlone(*batch, streamMadeNs, failure); });
}

bool BatchStore::StoreAlone(Incoming& batch, int64_t streamMadeNs, SqlFailure& failure) {
    constexpr int attempts = 3;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (StoreTogether({&batch}, streamMadeNs, failure)) {
            return true;
        }
        if (failure.kind == SqlFailure::Kind::kServer) {
            return false;
        }
        if (failure.kind == SqlFailure::Kind::kData) {
            batch.Reject("the database refuses it: " + failure.text);
        }
    }
    // Somebody has changed the tables, or holds them locked: only this batch has to wait for that.
    batch.outcome = Outcome::kLater;
    batch.reason = failure.text;
    return true;
}

bool BatchStore::StoreTogether(const Group& batches, int64_t streamMadeNs, SqlFailure& failure) {
    std::map<const Incoming*, std::string> statements;
    if (!PrepareTables(batches, statements, failure)) {
        return false;
    }
    Transaction transaction(database_);
    const bool stored = transaction.Begin(failure) && InsertKeys(batches, failure) &&
                        CopyRowsOf(batches, statements, failure) && InsertRejected(batches, failure) &&
                        NoteContacts(batches, failure) && NoteProgress(batches, streamMadeNs, failure) &&
                        transaction.Commit(failure);
    if (!stored) {
        // Nothing of it has happened; what was to be rejected still is.
        for (Incoming* const batch : batches) {
            if (batch->outcome != Outcome::kRejected) {
                batch->outcome = Outcome::kOpen;
            }
        }
    }
    return stored;
}

bool BatchStore::PrepareTables(const Group& batches, std::map<const Incoming*, std::string>& statements,
                               SqlFailure& failure) {
    for (Incoming* const batch : batches) {
        if (std::holds_alternative<AlertContent>(batch->content)) {
            statements[batch] =
                "COPY lum.alert (" + std::string(AlertColumns()) + ") FROM STDIN (FORMAT binary)";
            continue;
        }
        const auto* const events = std::get_if<EventContent>(&batch->content);
        if (events == nullptr) {
            continue;
        }
        std::string reason;
        switch (
            tables_.Prepare(database_, *events, batch->info.key.device, statements[batch], reason, failure)) {
            case ModelTables::Result::kReady:
                break;
            case ModelTables::Result::kRefused:
                batch->Reject(reason);
                break;
            case ModelTables::Result::kFailed:
                return false;
        }
    }
    return true;
}

bool BatchStore::InsertKeys(const Group& batches, SqlFailure& failure) {
    ColumnArrays keys;
    std::map<std::string, Incoming*> byKey;
    for (Incoming* const batch : batches) {
        const std::vector<std::size_t>* fields = nullptr;
        if (RowsOf(*batch, fields) == nullptr) {
            continue;
        }
        batch->outcome = Outcome::kDuplicate;
        if (!byKey.emplace(KeyText(batch->info.key), batch).second) {
            continue;
        }
        keys.Add(KeyRow(*batch));
    }
    if (byKey.empty()) {
        return true;
    }
    SqlRows rows;
    if (!database_.Run(kInsertKeys, keys.Texts(), rows, failure)) {
        return false;
    }
    for (const auto& row : rows) {
        Incoming& batch = *byKey.at(KeyText({row[1], row[2]}));
        batch.outcome = Outcome::kStored;
        const std::vector<std::size_t>* fields = nullptr;
        CopyRows& copied = *RowsOf(batch, fields);
        for (const std::size_t field : *fields) {
            OverwriteInt64(copied.GetBytes(), field, std::stoll(row[0]));
        }
    }
    return true;
}

bool BatchStore::CopyRowsOf(const Group& batches, const std::map<const Incoming*, std::string>& statements,
                            SqlFailure& failure) {
    std::map<std::string, Group> byStatement;
    for (Incoming* const batch : batches) {
        if (batch->outcome == Outcome::kStored) {
            byStatement[statements.at(batch)].push_back(batch);
        }
    }
    for (const auto& [statement, group] : byStatement) {
        if (!database_.BeginCopy(statement, failure) || !database_.PutCopy(CopyStart(), failure)) {
            return false;
        }
        for (Incoming* const batch : group) {
            const std::vector<std::size_t>* fields = nullptr;
            if (!database_.PutCopy(RowsOf(*batch, fields)->GetBytes(), failure)) {
                return false;
            }
        }
        if (!database_.PutCopy(CopyEnd(), failure) || !database_.EndCopy(failure)) {
            return false;
        }
    }
    return true;
}

bool BatchStore::CountRejected(const Group& batches, std::map<std::string, int64_t>& kept,
                               SqlFailure& failure) {
    for (const Incoming* const batch : batches) {
        if (batch->outcome == Outcome::kRejected) {
            kept[batch->info.key.device] = 0;
        }
    }
    if (kept.empty()) {
        return true;
    }
    SqlValues devices;
    for (const auto& [device, count] : kept) {
        devices.emplace_back(device);
    }
    SqlRows rows;
    if (!database_.Run(kCountRejected, {ArrayText(devices)}, rows, failure)) {
        return false;
    }
    for (const auto& row : rows) {
        kept[row[0]] = std::stoll(row[1]);
    }
    return true;
}

bool BatchStore::InsertRejected(const Group& batches, SqlFailure& failure) {
    std::map<std::string, int64_t> kept;
    if (!CountRejected(batches, kept, failure)) {
        return false;
    }
    for (const Incoming* const batch : batches) {
        // Who sends nothing but garbage costs no statement a batch for long.
        if (batch->outcome != Outcome::kRejected || kept[batch->info.key.device]++ >= kKeptRejects) {
            continue;
        }
        const BatchInfo& info = batch->info;
        const std::string content = HexText(batch->payload.substr(0, kKeptBytes));
        if (!database_.Run(
                kInsertRejected,
                {info.key.device, info.key.digest, StorableText(batch->subject), StorableText(info.label),
                 StorableText(info.name), StorableText(batch->reason), std::to_string(batch->bytes), content},
                failure)) {
            return false;
        }
    }
    return true;
}

bool BatchStore::NoteContacts(const Group& batches, SqlFailure& failure) {
    std::map<std::string, Contact> contacts;
    for (const Incoming* const batch : batches) {
        Contact& contact = contacts[batch->info.key.device];
        const bool stored = batch->outcome == Outcome::kStored;
        contact.batches += stored ? 1 : 0;
        contact.events += stored ? EventsOf(*batch) : 0;
        contact.rejected += batch->outcome == Outcome::kRejected ? 1 : 0;
        if (const int64_t number = RunningNumberOf(batch->info.name); number > 0) {
            contact.numbers.insert(number);
        }
    }
    contacts.erase("");  // of a message whose subject names no device
    if (contacts.empty()) {
        return true;
    }
    ColumnArrays devices;
    for (const auto& [device, contact] : contacts) {
        devices.Add(ContactRow(device, contact));
    }
    const SqlValues arrays = devices.Texts();
    return database_.Run(kInsertDevices, {arrays[0]}, failure) &&
           database_.Run(kLockDevices, {arrays[0]}, failure) &&
           database_.Run(kUpdateDevices, arrays, failure);
}

bool BatchStore::NoteProgress(const Group& batches, int64_t streamMadeNs, SqlFailure& failure) {
    uint64_t last = 0;
    for (const Incoming* const batch : batches) {
        last = std::max(last, batch->sequence);
    }
    return database_.Run(kNoteProgress, {collector_, std::to_string(streamMadeNs), std::to_string(last)},
                         failure);
}

bool BatchStore::LookUp(const std::string& device, const std::vector<AskLine>& questions,
                        std::map<std::string, ReceiptLine>& answers, SqlFailure& failure) {
    SqlValues digests;
    for (const AskLine& question : questions) {
        digests.emplace_back(question.digest);
    }
    const SqlValues values{device, ArrayText(digests)};
    SqlRows rows;
    if (!database_.Run("SELECT g, r.reason FROM unnest($2::text[]) AS t(g) JOIN lum.rejected r"
                       " ON r.device = $1 AND r.digest = decode(g, 'hex')",
                       values, rows, failure)) {
        return false;
    }
    for (const auto& row : rows) {
        answers[row[0]] = {BatchFate::kRejected, row[0], row[1]};
    }
    if (!database_.Run("SELECT g FROM unnest($2::text[]) AS t(g) JOIN lum.batch b"
                       " ON b.device = $1 AND b.digest = decode(g, 'hex')",
                       values, rows, failure)) {
        return false;
    }
    for (const auto& row : rows) {
        answers[row[0]] = {BatchFate::kHeld, row[0], {}};
    }
    return true;
}
