#include "fleet/forward/Ledger.h"

#include <cstring>

namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

}  // namespace

Ledger::Digest Ledger::Packed(std::string_view digits) {
    Digest digest{};
    for (std::size_t i = 0; i < digest.size() && 2 * i + 1 < digits.size(); ++i) {
        digest[i] =
            static_cast<uint8_t>((kDigits.find(digits[2 * i]) << 4U) | kDigits.find(digits[2 * i + 1]));
    }
    return digest;
}

std::string Ledger::Unpacked(const Digest& digest) {
    std::string digits;
    for (const uint8_t byte : digest) {
        digits += kDigits[byte >> 4U];
        digits += kDigits[byte & 0xFU];
    }
    return digits;
}

uint64_t Ledger::StartOf(const Digest& digest) {
    uint64_t start = 0;
    std::memcpy(&start, digest.data(), sizeof(start));
    return start;
}

void Ledger::Add(const std::string& name, const std::string& digest, std::size_t bytes, uint64_t number,
                 int64_t nowMs) {
    Forget(name);
    // Entries are sent in the order of their names.
    const auto place = entries_.emplace_hint(entries_.end(), name, Sent{Packed(digest), number, 0, nowMs});
    byDigest_.emplace(StartOf(place->second.digest), &place->first);
    underWay_.emplace_hint(underWay_.end(), number, UnderWay{&*place, bytes, nowMs});
    underWayBytes_ += bytes;
}

void Ledger::Land(uint64_t number) {
    const auto place = underWay_.find(number);
    if (place != underWay_.end()) {
        underWayBytes_ -= place->second.bytes;
        underWay_.erase(place);
    }
}

void Ledger::Acknowledge(uint64_t number, uint64_t sequence, int64_t askAtMs) {
    const auto place = underWay_.find(number);
    if (place == underWay_.end()) {
        return;
    }
    Sent& sent = place->second.entry->second;
    sent.number = 0;
    sent.sequence = sequence;
    sent.askAtMs = askAtMs;
    Land(number);
}

std::string Ledger::Refuse(uint64_t number) {
    const auto place = underWay_.find(number);
    if (place == underWay_.end()) {
        return {};
    }
    std::string name = place->second.entry->first;
    Forget(name);
    return name;
}

std::size_t Ledger::ForgetUnacknowledged() {
    return ForgetUnacknowledgedBefore(INT64_MAX);
}

std::size_t Ledger::ForgetUnacknowledgedBefore(int64_t beforeMs) {
    std::size_t count = 0;
    while (!underWay_.empty() && underWay_.begin()->second.sentAtMs < beforeMs) {
        static_cast<void>(Refuse(underWay_.begin()->first));  // its name is found again in the outbox
        ++count;
    }
    return count;
}

std::vector<std::string> Ledger::NamesOf(const std::string& digest) const {
    const Digest bytes = Packed(digest);
    std::vector<std::string> names;
    const auto [first, last] = byDigest_.equal_range(StartOf(bytes));
    for (auto place = first; place != last; ++place) {
        const auto entry = entries_.find(*place->second);
        if (entry != entries_.end() && entry->second.digest == bytes) {
            names.push_back(entry->first);
        }
    }
    return names;
}

void Ledger::Forget(const std::string& name) {
    const auto entry = entries_.find(name);
    if (entry == entries_.end()) {
        return;
    }
    const auto [first, last] = byDigest_.equal_range(StartOf(entry->second.digest));
    for (auto place = first; place != last; ++place) {
        if (place->second == &entry->first) {
            byDigest_.erase(place);
            break;
        }
    }
    Land(entry->second.number);
    entries_.erase(entry);
}

std::vector<AskLine> Ledger::TakeQuestions(int64_t nowMs, int64_t nextMs) {
    std::vector<AskLine> questions;
    for (auto& [name, sent] : entries_) {
        if (sent.sequence != 0 && sent.askAtMs <= nowMs && questions.size() < kMaxReceiptLines) {
            questions.push_back({Unpacked(sent.digest), sent.sequence});
            sent.askAtMs = nextMs;
        }
    }
    return questions;
}
