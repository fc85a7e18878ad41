#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "filestore/RunningNumber.h"
#include "host/text/LumString.h"
#include "host/thread/LumMutex.h"

/// A file that is to be taken over, and what is said of it.
struct ReceivedFile {
    LumString movePath;  ///< full path of the file
    LumString fileType;
    LumString fileLabel;
    LumString fileName;      ///< empty for the derived name
    LumString fileChecksum;  ///< empty to have it computed
    bool upstream = false;
    std::optional<int32_t> priority;
};

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
        std::vector<LumString> errors;       ///< what went wrong on the way
    };

    /// Prepares the outbox `directory` (made if missing, no trailing separator) whose running number is kept
    /// in the file `numberPath`. Nothing else may write into the directory meanwhile. False, with the reason
    /// in `error`, where the directory cannot be made or read. To be called before Receive.
    [[nodiscard]] bool Open(const LumString& directory, const LumString& numberPath, LeftOvers& leftOvers,
                            LumString& error);

    /// Takes the file over: moves it, writes its description, and answers true once both are on the disk;
    /// `storedPath` is where it lies. False, with a sentence that names the path in `error`, where it cannot;
    /// then the file is where it was, or `error` says where it is. Refused: a path that is not absolute, and
    /// everything but a regular file, symbolic links included. May be called from any thread.
    [[nodiscard]] bool Receive(const ReceivedFile& file, LumString& storedPath, LumString& error);

    /// To be called when no more files come; a Receive after it still works.
    void Close() { number_.Close(); }

private:
    [[nodiscard]] bool ReceiveAs(const ReceivedFile& file, const std::string& name,
                                 std::string_view receivedAt, LumString& storedPath, LumString& error);
    [[nodiscard]] bool ScanDirectory(LeftOvers& leftOvers, uint64_t& highest, LumString& error);
    void Complete(const std::string& name, LeftOvers& leftOvers);
    [[nodiscard]] std::string PathOf(std::string_view name) const;

    // Constant after Open.
    std::string directory_;

    RunningNumber number_;
    /// Held while a file with a name of its caller's choice is taken over: unlike derived names, two of those
    /// may be the same.
    LumMutex givenNames_;
};
