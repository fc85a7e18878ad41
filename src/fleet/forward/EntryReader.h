#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "fleet/forward/OutboxDirectory.h"

/// What came of reading one entry.
struct ReadEntry {
    std::string description;  ///< the name of its description
    LoadResult result = LoadResult::kGone;
    OutboxEntry entry;   ///< where `result` is kReady
    std::string reason;  ///< where it is not
};

/// Reads entries in order. Of many it reads some ahead, on a second thread, while the owner sends those that
/// were read: reading and digesting is half of the work on a backlog. For few, and where no thread is to be
/// had, there is none. All but the second thread's own work belongs to one thread.
class EntryReader {
public:
    /// From so many entries on a thread reads ahead.
    static constexpr std::size_t kMany = 16;
    /// What may have been read ahead: an entry that reaches it is the last until others are taken.
    static constexpr std::size_t kBytesAhead = 400'000;
    /// An entry's share of that besides its content.
    static constexpr std::size_t kEntryBytes = 1'000;

    /// The directory must outlive the reader.
    explicit EntryReader(const OutboxDirectory& outbox) : outbox_(outbox) {}
    EntryReader(const EntryReader&) = delete;
    EntryReader& operator=(const EntryReader&) = delete;
    ~EntryReader() { Stop(); }

    /// From now on Next gives the entries of `descriptions`; content above `maxBytes` is bad.
    void Start(std::vector<std::string> descriptions, std::size_t maxBytes);
    /// The next entry, valid until the next call of Next or Start; null where there is none left. Throws what
    /// reading ahead has thrown.
    [[nodiscard]] ReadEntry* Next();
    [[nodiscard]] bool IsEmpty() const { return given_ == names_.size(); }
    /// False where Next would wait for the second thread.
    [[nodiscard]] bool IsReady();

private:
    void Stop();
    void Read(std::size_t place, ReadEntry& read) const;
    /// The second thread's work.
    void ReadAhead() noexcept;
    /// Waits until there is room for it; false where nobody wants it any more.
    [[nodiscard]] bool Offer(ReadEntry read, bool isLast);
    void TakeRead();

    const OutboxDirectory& outbox_;
    std::vector<std::string> names_;  ///< constant while the thread runs
    std::size_t maxBytes_ = 0;
    std::size_t given_ = 0;  ///< number of entries that Next has given
    ReadEntry current_;
    std::thread thread_;

    std::mutex mutex_;
    std::condition_variable offered_;
    std::condition_variable taken_;
    std::deque<ReadEntry> ahead_;
    std::size_t bytesAhead_ = 0;
    bool stopping_ = false;
    std::exception_ptr failure_;  ///< why the thread ended before its time
};
