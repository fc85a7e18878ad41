#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "fleet/collect/batch/Incoming.h"
#include "fleet/collect/database/Database.h"

/// What of a batch goes into the rows of lum.batch, lum.device and lum.rejected, as values of a statement.

[[nodiscard]] int64_t EventsOf(const Incoming& batch);

/// `bytes` as hexadecimal digits.
[[nodiscard]] std::string HexText(std::string_view bytes);

/// Device, digest, label, name, running number, time of receipt, bytes, events, model and checksum. A running
/// number or a time that makes no sense is left out.
[[nodiscard]] SqlValues KeyRow(const Incoming& batch);

/// What a transaction adds to one device.
struct Contact {
    int64_t batches = 0;
    int64_t events = 0;
    int64_t rejected = 0;
    std::set<int64_t> numbers;  ///< running numbers that came
};

/// Device, batches, events, rejected, lowest and highest running number, and all of them as a multirange.
[[nodiscard]] SqlValues ContactRow(const std::string& device, const Contact& contact);
