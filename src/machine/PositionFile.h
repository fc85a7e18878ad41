#pragma once

#include <string>

#include "host/text/LumString.h"

/// The file that keeps how far a source has been read. It is replaced whole, so a kill leaves the old
/// position or the new one. An object belongs to one thread at a time.
class PositionFile {
public:
    explicit PositionFile(const LumString& path) : path_(path) {}

    /// False where there is none, or where it cannot be read (one warning): then the store alone tells what
    /// has been read.
    [[nodiscard]] bool Load(std::string& position) const;
    /// Returns once the position is on the disk. False, with one warning until it works again, where it
    /// cannot be written.
    bool Save(const std::string& position);

private:
    const LumString path_;
    bool hasFailed_ = false;
};
