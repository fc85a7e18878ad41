#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

#include "host/file/FileDescriptor.h"
#include "host/text/LumString.h"
#include "machine/journal/JournalFrame.h"

/// The program that reads the journal, as the module sees it. It runs in a process of its own, because
/// whoever cuts or damages a journal file in place ends the process that reads it. An object belongs to one
/// thread at a time.
class JournalProcess {
public:
    enum class Heard : uint8_t { kFrame, kNothing, kEnded };

    JournalProcess() = default;
    JournalProcess(const JournalProcess&) = delete;
    JournalProcess& operator=(const JournalProcess&) = delete;
    /// Ends the program, and waits for that.
    ~JournalProcess();

    /// Starts the program with these words, its path first, and waits until it has opened the journal. False,
    /// with the reason in `error`, where it has not.
    [[nodiscard]] bool Start(const std::vector<std::string>& words, LumString& error);

    /// Has it tell the entries after the one at `cursor`. To be called once.
    [[nodiscard]] bool AskAfter(const std::string& cursor, LumString& error);

    /// Takes the next frame that has come; does not wait. kEnded, with the reason in `error`, once nothing
    /// more will come.
    [[nodiscard]] Heard Hear(JournalFrame& frame, LumString& error);

    /// Readable once Hear has something to say.
    [[nodiscard]] int GetDescriptor() const { return socket_.Get(); }
    [[nodiscard]] pid_t GetId() const { return process_; }

private:
    [[nodiscard]] bool Spawn(const std::vector<std::string>& words, int itsSocket, LumString& error);
    [[nodiscard]] bool AwaitOpened(LumString& error);
    [[nodiscard]] Heard Receive();
    void End();
    /// Waits for the end of the process, and says in end_ how it came.
    void Reap();

    FileDescriptor socket_;
    pid_t process_ = -1;
    JournalFrameBuffer buffer_;
    LumString end_;  ///< why nothing more will come; empty as long as that is open
};
