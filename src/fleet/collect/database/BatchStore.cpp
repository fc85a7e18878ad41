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

/// The rows of a batch that is to be stored; null for other batches.
ContentRows* RowsOf(Incoming& batch) {
    if (auto* const events = std::get_if<EventContent>(&batch.content)) {
        return events;
    }
    return std::get_if<AlertContent>(&batch.content);
}

}  // namespace

void BatchStore::Store(std::vector<Incoming>& batches, int64_t streamMadeNs) {
    Group all;
    for (Incoming& batch : batches) {
        all.push_back(&batch);
    }
    try {
        StoreTogether(all, streamMadeNs);
        return;
    } catch (const SqlError& error) {
        if (error.GetKind() == SqlError::Kind::kServer) {
            throw;
        }
    }
    tables_.Forget();
    for (Incoming* const batch : all) {
        StoreAlone(*batch, streamMadeNs);
    }
}

void BatchStore::StoreAlone(Incoming& batch, int64_t streamMadeNs) {
    constexpr int attempts = 3;
    std::string reason;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        try {
            StoreTogether({&batch}, streamMadeNs);
            return;
        } catch (const SqlError& error) {
            if (error.GetKind() == SqlError::Kind::kServer) {
                throw;
            }
            reason = error.what();
            if (error.GetKind() == SqlError::Kind::kData) {
                batch.Reject("the database refuses it: " + reason);
            }
        }
    }
    // Somebody has changed the tables, or holds them locked: only this batch has to wait for that.
    batch.outcome = Outcome::kLater;
    batch.reason = reason;
}

void BatchStore::StoreTogether(const Group& batches, int64_t streamMadeNs) {
    const Statements statements = PrepareTables(batches);
    try {
        Transaction transaction(database_);
        InsertKeys(batches);
        CopyRowsOf(batches, statements);
        InsertRejected(batches);
        NoteContacts(batches);
        NoteProgress(batches, streamMadeNs);
        transaction.Commit();
    } catch (const SqlError&) {
        // Nothing of it has happened; what was to be rejected still is.
        for (Incoming* const batch : batches) {
            if (batch->outcome != Outcome::kRejected) {
                batch->outcome = Outcome::kOpen;
            }
        }
        throw;
    }
}

BatchStore::Statements BatchStore::PrepareTables(const Group& batches) {
    Statements statements;
    for (Incoming* const batch : batches) {
        if (std::holds_alternative<AlertContent>(batch->content)) {
            statements[batch] =
                "COPY lum.alert (" + std::string(AlertColumns()) + ") FROM STDIN (FORMAT binary)";
        } else if (const auto* const events = std::get_if<EventContent>(&batch->content)) {
            try {
                statements[batch] = tables_.Prepare(database_, *events, batch->info.key.device);
            } catch (const ModelRefusal& refusal) {
                batch->Reject(refusal.what());
            }
        }
    }
    return statements;
}

void BatchStore::InsertKeys(const Group& batches) {
    ColumnArrays keys;
    std::map<std::string, Incoming*> byKey;
    for (Incoming* const batch : batches) {
        if (RowsOf(*batch) == nullptr) {
            continue;
        }
        batch->outcome = Outcome::kDuplicate;
        if (byKey.emplace(KeyText(batch->info.key), batch).second) {
            keys.Add(KeyRow(*batch));
        }
    }
    if (byKey.empty()) {
        return;
    }
    for (const auto& row : database_.Run(kInsertKeys, keys.Texts())) {
        Incoming& batch = *byKey.at(KeyText({row[1], row[2]}));
        batch.outcome = Outcome::kStored;
        ContentRows& copied = *RowsOf(batch);
        for (const std::size_t field : copied.batchFields) {
            OverwriteInt64(copied.rows.GetBytes(), field, std::stoll(row[0]));
        }
    }
}

void BatchStore::CopyRowsOf(const Group& batches, const Statements& statements) {
    std::map<std::string, Group> byStatement;
    for (Incoming* const batch : batches) {
        if (batch->outcome == Outcome::kStored) {
            byStatement[statements.at(batch)].push_back(batch);
        }
    }
    for (const auto& [statement, group] : byStatement) {
        database_.BeginCopy(statement);
        database_.PutCopy(CopyStart());
        for (Incoming* const batch : group) {
            database_.PutCopy(RowsOf(*batch)->rows.GetBytes());
        }
        database_.PutCopy(CopyEnd());
        database_.EndCopy();
    }
}

std::map<std::string, int64_t> BatchStore::CountRejected(const Group& batches) {
    std::map<std::string, int64_t> kept;
    for (const Incoming* const batch : batches) {
        if (batch->outcome == Outcome::kRejected) {
            kept[batch->info.key.device] = 0;
        }
    }
    if (kept.empty()) {
        return kept;
    }
    SqlValues devices;
    for (const auto& [device, count] : kept) {
        devices.emplace_back(device);
    }
    for (const auto& row : database_.Run(kCountRejected, {ArrayText(devices)})) {
        kept[row[0]] = std::stoll(row[1]);
    }
    return kept;
}

void BatchStore::InsertRejected(const Group& batches) {
    std::map<std::string, int64_t> kept = CountRejected(batches);
    for (const Incoming* const batch : batches) {
        // Who sends nothing but garbage costs no statement a batch for long.
        if (batch->outcome != Outcome::kRejected || kept[batch->info.key.device]++ >= kKeptRejects) {
            continue;
        }
        const BatchInfo& info = batch->info;
        database_.Run(kInsertRejected,
                      {info.key.device, info.key.digest, StorableText(batch->subject),
                       StorableText(info.label), StorableText(info.name), StorableText(batch->reason),
                       std::to_string(batch->bytes), HexText(batch->payload.substr(0, kKeptBytes))});
    }
}

void BatchStore::NoteContacts(const Group& batches) {
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
        return;
    }
    ColumnArrays devices;
    for (const auto& [device, contact] : contacts) {
        devices.Add(ContactRow(device, contact));
    }
    const SqlValues arrays = devices.Texts();
    database_.Run(kInsertDevices, {arrays[0]});
    database_.Run(kLockDevices, {arrays[0]});
    database_.Run(kUpdateDevices, arrays);
}

void BatchStore::NoteProgress(const Group& batches, int64_t streamMadeNs) {
    uint64_t last = 0;
    for (const Incoming* const batch : batches) {
        last = std::max(last, batch->sequence);
    }
    database_.Run(kNoteProgress, {collector_, std::to_string(streamMadeNs), std::to_string(last)});
}

std::map<std::string, ReceiptLine> BatchStore::LookUp(const std::string& device,
                                                      const std::vector<AskLine>& questions) {
    SqlValues digests;
    for (const AskLine& question : questions) {
        digests.emplace_back(question.digest);
    }
    const SqlValues values{device, ArrayText(digests)};
    std::map<std::string, ReceiptLine> answers;
    for (const auto& row :
         database_.Run("SELECT g, r.reason FROM unnest($2::text[]) AS t(g) JOIN lum.rejected r"
                       " ON r.device = $1 AND r.digest = decode(g, 'hex')",
                       values)) {
        answers[row[0]] = {BatchFate::kRejected, row[0], row[1]};
    }
    for (const auto& row : database_.Run("SELECT g FROM unnest($2::text[]) AS t(g) JOIN lum.batch b"
                                         " ON b.device = $1 AND b.digest = decode(g, 'hex')",
                                         values)) {
        answers[row[0]] = {BatchFate::kHeld, row[0], {}};
    }
    return answers;
}
