#include "machine/journal/JournalProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::size_t kChunkBytes = std::size_t{1} << 14U;
constexpr std::chrono::seconds kPatience{10};

std::string Reason(int code) {
    return std::system_category().message(code);
}

/// What a process is started with: nothing of the agent's but its standard error, and signals as they come.
struct SpawnSettings {
    explicit SpawnSettings(int itsSocket) {
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, itsSocket, STDIN_FILENO);
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        ::posix_spawnattr_init(&attributes);
        sigset_t signals;
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes, &signals);
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes, &signals);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }

    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

}  // namespace

JournalProcess::~JournalProcess() {
    End();
}

bool JournalProcess::Start(const std::vector<std::string>& words, LumString& error) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        error.Printf("the reader of the journal cannot be started: %s", Reason(errno).c_str());
        return false;
    }
    socket_ = FileDescriptor(ends[0]);
    FileDescriptor itsSocket(ends[1]);
    const bool isStarted = Spawn(words, itsSocket.Get(), error);
    // With the program's end closed here, the end of the program shows.
    itsSocket.Close();
    return isStarted && AwaitOpened(error);
}

bool JournalProcess::AwaitOpened(LumString& error) {
    const auto until = std::chrono::steady_clock::now() + kPatience;
    JournalFrame frame;
    for (Heard heard = Hear(frame, error); heard != Heard::kFrame; heard = Hear(frame, error)) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        if (heard == Heard::kEnded || left.count() <= 0) {
            error = heard == Heard::kEnded ? error : LumString("the reader of the journal does not answer");
            return false;
        }
        pollfd wait = {socket_.Get(), POLLIN, 0};
        static_cast<void>(::poll(&wait, 1, static_cast<int>(left.count())));
    }
    return frame.saying == JournalSaying::kOpened;
}

bool JournalProcess::Spawn(const std::vector<std::string>& words, int itsSocket, LumString& error) {
    std::vector<std::string> copies = words;
    std::vector<char*> arguments;
    arguments.reserve(copies.size() + 1);
    for (std::string& word : copies) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const SpawnSettings settings(itsSocket);
    const int failure = ::posix_spawn(&process_, arguments[0], &settings.actions, &settings.attributes,
                                      arguments.data(), environ);
    if (failure != 0) {
        process_ = -1;
        error.Printf("the reader of the journal cannot be started: %s: %s", words[0].c_str(),
                     Reason(failure).c_str());
    }
    return failure == 0;
}

bool JournalProcess::AskAfter(const std::string& cursor, LumString& error) {
    const std::string line = cursor + "\n";
    // A line is shorter than what a socket takes at once.
    if (::send(socket_.Get(), line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size())) {
        return true;
    }
    Reap();
    error = end_;
    return false;
}

JournalProcess::Heard JournalProcess::Hear(JournalFrame& frame, LumString& error) {
    Heard heard = end_.IsEmpty() ? Heard::kFrame : Heard::kEnded;
    while (heard == Heard::kFrame) {
        const JournalFrameBuffer::Cut cut = buffer_.Next(frame);
        if (cut == JournalFrameBuffer::Cut::kFrame && frame.saying != JournalSaying::kFailed) {
            return Heard::kFrame;
        }
        if (cut == JournalFrameBuffer::Cut::kIncomplete) {
            heard = Receive();
            continue;
        }
        end_ = cut == JournalFrameBuffer::Cut::kFrame ? LumString(frame.GetText())
                                                      : LumString("the reader of the journal talks nonsense");
        heard = Heard::kEnded;
    }
    if (heard == Heard::kEnded) {
        error = end_;
    }
    return heard;
}

JournalProcess::Heard JournalProcess::Receive() {
    std::array<char, kChunkBytes> chunk{};
    const ssize_t count = ::recv(socket_.Get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (count > 0) {
        buffer_.Append(std::string_view(chunk.data(), static_cast<std::size_t>(count)));
        return Heard::kFrame;
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return Heard::kNothing;
    }
    Reap();
    return Heard::kEnded;
}

void JournalProcess::End() {
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        Reap();
    }
}

void JournalProcess::Reap() {
    int status = 0;
    pid_t reaped = -1;
    while (process_ > 0 && (reaped = ::waitpid(process_, &status, 0)) < 0 && errno == EINTR) {
    }
    process_ = -1;
    if (reaped > 0 && WIFEXITED(status) && WEXITSTATUS(status) == kJournalCutStatus) {
        end_ = "a file of the journal was cut while it was read";
    } else if (reaped > 0 && WIFSIGNALED(status)) {
        end_.Printf("the reader of the journal was ended by signal %d (%s)", WTERMSIG(status),
                    ::strsignal(WTERMSIG(status)));
    } else {
        end_ = "the reader of the journal has ended";
    }
}
