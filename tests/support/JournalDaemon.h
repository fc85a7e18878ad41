#pragma once

#include <csignal>
#include <string>

#include "support/Process.h"
#include "support/TempDirectory.h"

/// A journal daemon of a test's own, in a namespace of its own: the system's program, with /run and /var/log
/// of a scratch directory.
class JournalDaemon {
public:
    JournalDaemon();

    /// False, with the reason in `whyNot`, where this machine does not let it run.
    [[nodiscard]] bool Start(std::string& whyNot);
    /// Ends it; the journal stays.
    void Stop() { process_.Stop(); }
    /// Where it keeps the journal.
    [[nodiscard]] std::string GetDirectory() const;
    /// Has it put the file that it writes to aside.
    void Rotate() const { process_.Signal(SIGUSR2); }

    /// Logs `message` as root's program `program` would: a process of that name hands it over and waits until
    /// the journal holds it.
    [[nodiscard]] bool Log(const std::string& program, const std::string& message) const;

private:
    [[nodiscard]] std::string SocketPath() const;
    [[nodiscard]] int Send(const std::string& program, const std::string& message) const;

    TempDirectory scratch_;
    Process process_;
};
