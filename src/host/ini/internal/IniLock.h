#pragma once

#include <string>

#include "host/file/FileDescriptor.h"

/// Holds the lock that all writers of a directory's ini files share, threads and processes alike. It is a
/// file of mode 0600 that is there only while somebody writes: a lock on the directory or on an ini file
/// could be taken by everybody who may read it.
class IniLock {
public:
    /// Waits for other writers. Where the lock cannot be had at all, IsHeld is false and errno says why.
    explicit IniLock(const std::string& directory);
    IniLock(const IniLock&) = delete;
    IniLock& operator=(const IniLock&) = delete;
    ~IniLock();

    [[nodiscard]] bool IsHeld() const { return file_.IsOpen(); }

private:
    [[nodiscard]] bool TakeOnce();

    const std::string path_;
    FileDescriptor file_;
};
