#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// The outbox as a forwarder sees it: files with a description beside each (docs/file-formats.md). Others put
/// entries in while this one takes them out. An object belongs to one thread.

/// One entry, read.
struct OutboxEntry {
    std::string name;  ///< of the content's file
    std::string label;
    std::string receivedAt;
    std::string content;
    std::string digest;  ///< SHA-256 of the content as hexadecimal digits
};

enum class LoadResult : uint8_t {
    kReady,
    kGone,        ///< somebody else took it
    kStays,       ///< it is not to be sent
    kBad,         ///< it never will be what it should be
    kUnreadable,  ///< it cannot be read at the moment
};

/// What lies in the outbox.
struct OutboxSize {
    uint64_t entries = 0;
    int64_t bytes = 0;
    int64_t oldest = 0;  ///< when the first of them was written, seconds since 1970; 0 where there is none
};

class OutboxDirectory {
public:
    /// Where entries are put that cannot be sent, below the outbox.
    static constexpr const char* kSetAside = "set-aside";

    explicit OutboxDirectory(std::string path) : path_(std::move(path)) {}

    [[nodiscard]] const std::string& GetPath() const { return path_; }

    /// Puts the names of the first `limit` descriptions after `after` that `isWanted` says yes to into
    /// `names`, in ascending order. Memory grows with `limit` alone, however many lie there. False, with the
    /// reason in `error`, where the directory cannot be read.
    [[nodiscard]] bool NextDescriptions(const std::string& after, std::size_t limit,
                                        const std::function<bool(std::string_view name)>& isWanted,
                                        std::vector<std::string>& names, std::string& error) const;

    /// Counts what lies there; false, with the reason in `error`, where the directory cannot be read.
    [[nodiscard]] bool Measure(OutboxSize& size, std::string& error) const;

    /// A number that changes whenever an entry comes or goes.
    [[nodiscard]] int64_t ChangeStamp() const;

    /// Reads the entry of the description `descriptionName`. Where the answer is not kReady, `reason` says
    /// why; content above `maxBytes` is bad.
    [[nodiscard]] LoadResult Load(const std::string& descriptionName, std::size_t maxBytes,
                                  OutboxEntry& entry, std::string& reason) const;

    /// Takes the entry with the content `name` out: first the description, so that what a removal leaves half
    /// done does not count as an entry. False, with the reason in `error`, where that fails; what is not
    /// there counts as done.
    [[nodiscard]] bool Remove(const std::string& name, std::string& error) const;

    /// Moves what there is of the entry, by its content's or its description's name, below kSetAside.
    [[nodiscard]] bool SetAside(const std::string& name, std::string& error) const;

private:
    [[nodiscard]] std::string At(std::string_view name) const;
    [[nodiscard]] bool Walk(const std::function<void(std::string_view name)>& visit,
                            std::string& error) const;

    const std::string path_;
};
