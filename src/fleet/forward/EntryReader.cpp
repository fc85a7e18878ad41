#include "fleet/forward/EntryReader.h"

#include <system_error>
#include <utility>

namespace {

/// Whoever waits for entries is woken for so many, rather than for each: a change of threads costs as much as
/// an entry.
constexpr std::size_t kWorthWaking = 8;

std::size_t BytesOf(const ReadEntry& read) {
    return read.entry.content.size() + EntryReader::kEntryBytes;
}

}  // namespace

void EntryReader::Start(std::vector<std::string> descriptions, std::size_t maxBytes) {
    Stop();
    names_ = std::move(descriptions);
    maxBytes_ = maxBytes;
    given_ = 0;
    if (names_.size() >= kMany) {
        try {
            thread_ = std::thread([this] { ReadAhead(); });
        } catch (const std::system_error&) {
            // The owner reads by itself.
        }
    }
}

void EntryReader::Stop() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    taken_.notify_one();
    thread_.join();
    ahead_.clear();
    bytesAhead_ = 0;
    stopping_ = false;
    failure_ = nullptr;
}

ReadEntry* EntryReader::Next() {
    if (IsEmpty()) {
        return nullptr;
    }
    if (thread_.joinable()) {
        TakeRead();
    } else {
        Read(given_, current_);
    }
    ++given_;
    if (IsEmpty()) {
        Stop();
    }
    return &current_;
}

bool EntryReader::IsReady() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return !thread_.joinable() || !ahead_.empty();
}

void EntryReader::TakeRead() {
    std::unique_lock<std::mutex> lock(mutex_);
    offered_.wait(lock, [this] { return !ahead_.empty() || failure_ != nullptr; });
    if (ahead_.empty()) {
        std::rethrow_exception(failure_);
    }
    current_ = std::move(ahead_.front());
    ahead_.pop_front();
    bytesAhead_ -= BytesOf(current_);
    if (bytesAhead_ < kBytesAhead / 2) {
        taken_.notify_one();
    }
}

void EntryReader::Read(std::size_t place, ReadEntry& read) const {
    read.description = names_[place];
    read.result = outbox_.Load(read.description, maxBytes_, read.entry, read.reason);
}

void EntryReader::ReadAhead() noexcept {
    try {
        for (std::size_t place = 0; place < names_.size(); ++place) {
            ReadEntry read;
            Read(place, read);
            if (!Offer(std::move(read), place + 1 == names_.size())) {
                return;
            }
        }
    } catch (...) {
        const std::lock_guard<std::mutex> lock(mutex_);
        failure_ = std::current_exception();
        offered_.notify_one();
    }
}

bool EntryReader::Offer(ReadEntry read, bool isLast) {
    std::unique_lock<std::mutex> lock(mutex_);
    bytesAhead_ += BytesOf(read);
    ahead_.push_back(std::move(read));
    const bool isFull = bytesAhead_ >= kBytesAhead;
    if (isFull || isLast || ahead_.size() >= kWorthWaking) {
        offered_.notify_one();
    }
    if (isFull) {
        // As with waking the owner: not for the room of a single entry.
        taken_.wait(lock, [this] { return stopping_ || bytesAhead_ < kBytesAhead / 2; });
    }
    return !stopping_;
}
