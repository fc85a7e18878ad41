#pragma once

#include <string>
#include <vector>

/// Writes down, while it lives, what the linked module has the host libraries do: each statement, each line
/// of a log, each number put into a container, each start, cancellation and pause of a thread, each sync of a
/// file, and whether DatabaseMutex was held by the thread that did it. The program's own definitions of those
/// routines stand in front of the libraries', which they call. One at a time.
class CallRecord {
public:
    struct Entry {
        std::string
            text;  ///< "SQL SELECT 1", "print Routine: text", "put EventCount", "pause 10000", "sync", ...
        bool underLock;          ///< DatabaseMutex
        bool underAlertLock;     ///< AlertGapMutex
        bool underRegistryLock;  ///< RegistryMutex
    };

    CallRecord();
    CallRecord(const CallRecord&) = delete;
    CallRecord& operator=(const CallRecord&) = delete;
    ~CallRecord();

    /// The texts that begin with `begin`, in order.
    [[nodiscard]] std::vector<std::string> All(const std::string& begin) const;
    /// The same of what was done under DatabaseMutex, and without it.
    [[nodiscard]] std::vector<std::string> UnderLock(const std::string& begin) const;
    [[nodiscard]] std::vector<std::string> WithoutLock(const std::string& begin) const;
    /// The same of what was done under AlertGapMutex.
    [[nodiscard]] std::vector<std::string> UnderAlertLock(const std::string& begin) const;
    /// The same of what was done under RegistryMutex.
    [[nodiscard]] std::vector<std::string> UnderRegistryLock(const std::string& begin) const;
};
