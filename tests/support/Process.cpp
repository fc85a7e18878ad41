#include "support/Process.h"

#include <cerrno>
#include <csignal>
#include <fstream>

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uid_t kNobody = 65534;

[[noreturn]] void Execute(std::vector<std::string> words, const std::string& outputPath,
                          const std::function<void()>& prepare) {
    const int output = ::open(outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    ::dup2(output, STDERR_FILENO);
    ::dup2(output, STDOUT_FILENO);
    // A test that crashes leaves nothing running.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (prepare) {
        prepare();
    }
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    ::execvp(pointers[0], pointers.data());
    ::_exit(127);
}

}  // namespace

Process::~Process() {
    End();
}

void Process::End() {
    if (process_ == 0) {
        return;
    }
#ifdef LUM_COVERAGE
    // A program writes its counts when it ends by itself.
    Signal(SIGCONT);
    Signal(SIGTERM);
    for (int tries = 0; tries < 150 && IsRunning(); ++tries) {
        ::usleep(20'000);
    }
#endif
    Kill();
}

void Process::Start(const std::vector<std::string>& words, const std::string& outputPath,
                    const std::function<void()>& prepare) {
    process_ = ::fork();
    if (process_ == 0) {
        Execute(words, outputPath, prepare);
    }
}

bool Process::IsRunning() const {
    siginfo_t info = {};
    return process_ != 0 &&
           ::waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

void Process::Signal(int signal) const {
    if (process_ != 0) {
        ::kill(process_, signal);
    }
}

int Process::Wait() {
    int status = 0;
    while (process_ != 0 && ::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int Process::Stop() {
    Signal(SIGTERM);
    return Wait();
}

int Process::Kill() {
    Signal(SIGKILL);
    return Wait();
}

std::size_t Process::StatusBytes(const std::string& key) const {
    std::ifstream status("/proc/" + std::to_string(process_) + "/status");
    constexpr std::size_t kilobyte = 1024;
    for (std::string word; status >> word;) {
        std::size_t value = 0;
        if (word == key && status >> value) {
            return value * kilobyte;
        }
    }
    return 0;
}

std::size_t Process::ResidentBytes() const {
    return StatusBytes("VmRSS:");
}

std::size_t Process::PeakBytes() const {
    return StatusBytes("VmHWM:");
}

void DropPrivileges() {
    if (::geteuid() == 0 &&
        (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)) {
        ::_exit(126);
    }
}

int FreePort() {
    const int descriptor = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    int port = 0;
    if (::bind(descriptor, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
        ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    ::close(descriptor);
    return port;
}
