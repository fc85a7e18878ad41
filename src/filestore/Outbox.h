#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "filestore/RunningNumber.h"
#include "host/text/LumString.h"
#include "host/thread/LumMutex.h"
#include "host/thread/LumThreadSafety.h"

/// A file that is to be taken over, and what is said of it.
struct ReceivedFile {
    LumString movePath;  ///< full path of the file
    LumString fileType;
    LumString fileLabel;
    LumString fileName;      ///< empty for the derived name
    LumString fileChecksum;  ///< empty to have it computed
    bool upstream = false;
    std::optional<int32_t> priority;
    /// Where not empty: the file has to lie below this directory, and no link is followed on the way to it.
    LumString confinedTo;
};

/// What has become of a file.
struct Received {
    enum class Outcome : uint8_t {
        kDone,
        kRefused,  ///< the file, or the name that it is to have, will not do
        kFailed,   ///< the outbox cannot take it at the moment
    };

    Outcome outcome;
    LumString path;  ///< where the file lies now
    /// Why not, naming the path that it is about; after kDone what is not as it should be: a source that was
    /// copied and cannot be deleted. Else empty.
    LumString problem;
};

struct SourceFile;

/// A directory that files are moved into and taken from by others. Each file has a description beside it, a
/// JSON file of the same stem that appears whole once the file is safe: without it a file is not complete.
/// docs/file-formats.md describes both for those who take them.
class Outbox {
public:
    /// What a file is given that comes without a priority: that of an event upload.
    static constexpr int32_t kDefaultPriority = 100;

    /// What an interrupted run left behind.
    struct LeftOvers {
        std::vector<std::string> completed;  ///< files that had no description and were given one now
        std::vector<std::string> unknown;    ///< files without one whose names say too little
        std::vector<std::string> orphans;    ///< descriptions whose file is not there, removed now
        std::vector<LumString> errors;       ///< what went wrong on the way
    };

    /// Prepares the outbox `directory` (made if missing, no trailing separator) whose running number is kept
    /// in the file `numberPath`. Nothing else may write into the directory meanwhile. False, with the reason
    /// in `error`, where the directory cannot be made or read. To be called before Receive.
    [[nodiscard]] bool Open(const LumString& directory, const LumString& numberPath, LeftOvers& leftOvers,
                            LumString& error);

    /// How large the outbox may become; beyond three quarters of that it takes event files alone. 0: without
    /// limit. To be called before Receive.
    void SetMaxBytes(uint64_t maxBytes) { maxBytes_ = maxBytes; }

    /// Takes the file over: moves it, writes its description, and answers kDone once both are on the disk.
    /// Else the file is where it was, or `problem` says where it is. Refused: a path that is not absolute,
    /// and everything but a regular file, symbolic links included. An outbox that could not be opened, or
    /// that is gone, is opened again. May be called from any thread.
    [[nodiscard]] Received Receive(const ReceivedFile& file);

    /// True where a file of that type and size would be taken now, as far as can be told without one; else
    /// with the reason. Opens the outbox again like Receive. May be called from any thread.
    [[nodiscard]] bool WouldTake(const LumString& fileType, uint64_t bytes, LumString& reason);

    /// To be called when no more files come; a Receive after it still works.
    void Close() { number_.Close(); }

    /// Where the files lie; empty before Open.
    [[nodiscard]] const std::string& GetDirectory() const { return directory_; }

private:
    [[nodiscard]] Received ReceiveAs(const ReceivedFile& file, const std::string& name,
                                     std::string_view receivedAt);
    /// Brings `source` into the outbox as `name`, its description beside it; `received` tells what became of
    /// it.
    void Place(const ReceivedFile& file, const SourceFile& source, const std::string& name,
               const std::string& description, Received& received);
    [[nodiscard]] bool EnsureOpen(LumString& error);
    [[nodiscard]] bool OpenDirectories(LeftOvers& leftOvers, LumString& error) LUM_REQUIRES(opening_);
    [[nodiscard]] bool HasRoomFor(const LumString& fileType, uint64_t bytes) LUM_REQUIRES(usage_);
    [[nodiscard]] bool TakeRoomFor(const ReceivedFile& file, uint64_t bytes);
    [[nodiscard]] uint64_t CountBytes() const;
    [[nodiscard]] bool ScanDirectory(LeftOvers& leftOvers, uint64_t& highest, LumString& error);
    void Complete(const std::string& name, LeftOvers& leftOvers);
    /// Takes away a description whose file is not among `names`. The two names reach the disk with one sync,
    /// so a loss of power can leave the later one alone; the file is still where it came from then.
    void RemoveOrphan(const std::string& name, const std::set<std::string>& names, LeftOvers& leftOvers);
    [[nodiscard]] std::string PathOf(std::string_view name) const;

    // Constant after Open and SetMaxBytes.
    std::string directory_;
    LumString numberPath_;
    uint64_t maxBytes_ = 0;

    LumMutex opening_;
    bool isOpen_ LUM_GUARDED_BY(opening_) = false;

    LumMutex usage_;
    uint64_t bytes_ LUM_GUARDED_BY(usage_) = 0;  // what is there, or was: others take files away
    std::time_t countedAt_ LUM_GUARDED_BY(usage_) = 0;

    RunningNumber number_;
    /// Held while a file with a name of its caller's choice is taken over: unlike derived names, two of those
    /// may be the same.
    LumMutex givenNames_;
};
