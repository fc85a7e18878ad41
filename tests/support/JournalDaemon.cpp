#include "support/JournalDaemon.h"

#include <csignal>
#include <cstring>
#include <filesystem>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "support/ChildProcess.h"
#include "support/WaitFor.h"

namespace {

constexpr const char* kProgram = "/lib/systemd/systemd-journald";
constexpr const char* kNamespace = "lumtest";

}  // namespace

JournalDaemon::JournalDaemon() {
    scratch_.MakeDirectory("run/systemd/journal");
    scratch_.MakeDirectory("log/journal");
}

bool JournalDaemon::Start(std::string& whyNot) {
    if (geteuid() != 0 || !std::filesystem::exists(kProgram)) {
        whyNot = geteuid() != 0 ? "only root may start a journal daemon" : "there is no systemd-journald";
        return false;
    }
    const std::string command = "mount --bind " + scratch_ / "run" + " /run && mount --bind " +
                                scratch_ / "log" + " /var/log && exec " + kProgram + " " + kNamespace;
    process_.Start({"/usr/bin/unshare", "--mount", "/bin/sh", "-c", command}, scratch_ / "output");
    // It opens its journal last, when it listens for messages and signals already.
    const auto hasJournal = [&] {
        const std::string directory = GetDirectory();
        return !directory.empty() && std::filesystem::exists(directory + "/system.journal");
    };
    const bool isUp = WaitFor([&] { return !process_.IsRunning() || hasJournal(); }) && process_.IsRunning();
    whyNot = isUp ? "" : "systemd-journald does not run here: " + scratch_.Read("output");
    return isUp;
}

std::string JournalDaemon::GetDirectory() const {
    for (const auto& entry : std::filesystem::directory_iterator(scratch_ / "log/journal")) {
        return entry.path().string();
    }
    return {};
}

std::string JournalDaemon::SocketPath() const {
    return scratch_ / ("run/systemd/journal." + std::string(kNamespace) + "/socket");
}

bool JournalDaemon::Log(const std::string& program, const std::string& message) const {
    const ChildProcess writer([&](const ChildProcess::Parent& parent) {
        if (Send(program, message) == 0) {
            parent.Tell();
        }
        // The daemon looks who it was while it takes the message in.
        return parent.Await() ? 0 : 1;
    });
    const std::string synced = scratch_ / ("run/systemd/journal." + std::string(kNamespace) + "/synced");
    std::filesystem::remove(synced);
    if (!writer.Await()) {
        return false;
    }
    process_.Signal(SIGRTMIN + 1);
    return WaitFor([&] { return std::filesystem::exists(synced); });
}

int JournalDaemon::Send(const std::string& program, const std::string& message) const {
    prctl(PR_SET_NAME, program.c_str());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, SocketPath().c_str(), sizeof(address.sun_path) - 1);
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const std::string text = "MESSAGE=" + message + "\n";
    const ssize_t sent = sendto(socket, text.data(), text.size(), 0,
                                reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    return sent == static_cast<ssize_t>(text.size()) ? 0 : -1;
}
