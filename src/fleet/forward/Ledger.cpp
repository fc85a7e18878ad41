#include "fleet/forward/Ledger.h"

#include <cstring>

namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

/// Half as long as the hexadecimal digits, as thousands of them are kept.
std::string Packed(const std::string& digest) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digest.size(); i += 2) {
        bytes += static_cast<char>((kDigits.find(digest[i]) << 4U) | kDigits.find(digest[i + 1]));
    }
    return bytes;
}

std::string Unpacked(const std::string& bytes) {
    std::string digest;
    for (const char letter : bytes) {
        const auto byte = static_cast<unsigned char>(letter);
        digest += kDigits[byte >> 4U];
        digest += kDigits[byte & 0xFU];
    }
    return digest;
}

uint64_t StartOf(const std::string& bytes) {
    uint64_t start = 0;
    std::memcpy(&start, bytes.data(), std::min(bytes.size(), sizeof(start)));
    return start;
}

}  // namespace

void Ledger::Add(const std::string& name, const std::string& digest, std::size_t bytes, uint64_t number,
                 int64_t nowMs) {
    const auto [place, isNew] = entries_.try_emplace(name, Sent{Packed(digest), 0, nowMs});
    if (isNew) {
        byDigest_.emplace(StartOf(place->second.digest), &place->first);
    }
    underWay_[number] = UnderWay{name, bytes, nowMs};
    underWayBytes_ += bytes;
}

void Ledger::Land(std::map<uint64_t, UnderWay>::iterator place) {
    underWayBytes_ -= place->second.bytes;
    underWay_.erase(place);
}

void Ledger::Acknowledge(uint64_t number, uint64_t sequence, int64_t askAtMs) {
    const auto place = underWay_.find(number);
    if (place == underWay_.end()) {
        return;
    }
    const auto entry = entries_.find(place->second.name);
    if (entry != entries_.end()) {
        entry->second.sequence = sequence;
        entry->second.askAtMs = askAtMs;
    }
    Land(place);
}

std::string Ledger::Refuse(uint64_t number) {
    const auto place = underWay_.find(number);
    if (place == underWay_.end()) {
        return {};
    }
    std::string name = place->second.name;
    Land(place);
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
    const std::string bytes = Packed(digest);
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
