#pragma once

#include <string>
#include <string_view>

#include <sys/stat.h>

#include "filestore/Outbox.h"
#include "host/file/FileDescriptor.h"
#include "host/text/LumString.h"

/// "<path>: <what>", with the text of the errno `reason` where that is not 0.
[[nodiscard]] LumString FileSentence(const LumString& path, std::string_view what, int reason = 0);

/// A file that is to be moved: open, and where it lies as a name in an open directory, so that nobody can put
/// something else on the way to it.
struct SourceFile {
    FileDescriptor directory;  ///< not open: `name` is an absolute path
    std::string name;
    FileDescriptor file;
    struct stat status {};

    /// What `name` is relative to, for the system's routines that end in "at".
    [[nodiscard]] int At() const;
};

/// Finds and opens the file, if it is a regular one that lies at its path itself; false with the reason.
[[nodiscard]] bool OpenSource(const ReceivedFile& file, SourceFile& source, LumString& error);

/// A file that was brought into the outbox, and is taken out again unless it was kept.
class Placement {
public:
    /// `source`, found at `path`, has to be there as long as this; `to` is the full path in the outbox.
    Placement(const LumString& path, const SourceFile& source, std::string to);
    Placement(const Placement&) = delete;
    Placement& operator=(const Placement&) = delete;
    ~Placement();

    /// Moves the file, or copies it where the outbox is on another file system; false with the reason.
    [[nodiscard]] bool Place(LumString& error);

    /// Takes the file out again. Where that fails, `error` says in addition where it stays.
    void Undo(LumString& error);

    /// Ends the move; false where it was a copy and the source cannot be deleted.
    [[nodiscard]] bool Keep();

private:
    bool TakeOut();

    const LumString path_;
    const SourceFile& source_;
    const std::string to_;
    bool copied_ = false;
    bool isPlaced_ = false;
};
