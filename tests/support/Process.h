#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

/// A program that a test starts and ends. What it writes goes to a file.
class Process {
public:
    Process() = default;
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    /// Ends what still runs.
    ~Process();

    /// Starts `words`; its output is appended to `outputPath`. The new process calls `prepare` before it
    /// becomes the program.
    void Start(const std::vector<std::string>& words, const std::string& outputPath,
               const std::function<void()>& prepare = {});
    [[nodiscard]] bool IsRunning() const;
    void Signal(int signal) const;
    /// Waits for its end: the exit status, or minus the signal that killed it.
    int Wait();
    int Stop();
    int Kill();
    /// Ends it where it still runs: at once, but in a build that counts lines in its own way first.
    void End();
    [[nodiscard]] pid_t GetId() const { return process_; }
    /// Its resident memory, in bytes.
    [[nodiscard]] std::size_t ResidentBytes() const;
    /// The most of it so far, in bytes.
    [[nodiscard]] std::size_t PeakBytes() const;

private:
    [[nodiscard]] std::size_t StatusBytes(const std::string& key) const;

    pid_t process_ = 0;
};

/// Makes this process one of the user nobody, where it is root's.
void DropPrivileges();

/// A port of the loopback interface that nobody listens on.
[[nodiscard]] int FreePort();
