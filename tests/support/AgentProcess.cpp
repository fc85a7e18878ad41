#include "support/AgentProcess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/TestAgent.h"
#include "support/WaitFor.h"

AgentProcess::~AgentProcess() {
    if (process_ != 0) {
        Signal(SIGKILL);
        static_cast<void>(Wait());
    }
}

void AgentProcess::Drop(const ModelText& model) const {
    scratch_.Write(std::string(TestAgent::kModels) + "/" + model.name + ".xml", Definition(model));
}

Sqlite AgentProcess::Database() const {
    return Sqlite(scratch_ / TestAgent::kDatabase);
}

void AgentProcess::Execute() const {
    const int output = ::open((scratch_ / "stderr").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    ::dup2(output, STDERR_FILENO);
    ::dup2(output, STDOUT_FILENO);
    if (descriptorLimit != 0) {
        const rlimit limit{descriptorLimit, descriptorLimit};
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    if (softDescriptorLimit != 0) {
        rlimit limit = {};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = softDescriptorLimit;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    if (memoryLimit != 0) {
        const rlimit limit{memoryLimit, memoryLimit};
        ::setrlimit(RLIMIT_DATA, &limit);
    }
    if (!environment.empty()) {
        ::putenv(const_cast<char*>(environment.c_str()));
    }
    std::vector<std::string> words = {BinaryDirectory() + "/lumagent", "--config-dir", GetConfigDirectory(),
                                      "--data-dir", GetDataDirectory()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
}

void AgentProcess::WriteShippedSettings() const {
    std::string ini = Shipped("agent.ini");
    ini.erase(ini.find("MachineEvents = "));
    WriteIni(ini);
    scratch_.Write(TestAgent::kIni, Shipped("EventLogManager.ini"));
}

void AgentProcess::Start() {
    process_ = ::fork();
    if (process_ == 0) {
        Execute();
    }
}

bool AgentProcess::HasEnded() const {
    siginfo_t info = {};
    return ::waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid != 0;
}

bool AgentProcess::WaitUntilServing() const {
    bool hasEnded = false;
    const bool ready = WaitFor([&] {
        hasEnded = HasEnded();
        return hasEnded || Request("GET", "/modules").status == 200;
    });
    return ready && !hasEnded;
}

bool AgentProcess::StartAndServe() {
    Start();
    return WaitUntilServing();
}

void AgentProcess::Signal(int signal) const {
    ::kill(process_, signal);
}

int AgentProcess::Wait() {
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int AgentProcess::Stop() {
    Signal(SIGTERM);
    return Wait();
}

HttpReply AgentProcess::Request(std::string_view method, std::string_view target,
                                std::string_view body) const {
    return HttpRequest(GetSocketPath(), method, target, body);
}

std::string AgentProcess::ReadStandardError() const {
    return ReadWholeFile(scratch_ / "stderr");
}

std::string AgentProcess::ReadLog() const {
    return ReadWholeFile(GetDataDirectory() + "/log/agent.log");
}

bool AgentProcess::WaitForLog(std::string_view part) const {
    return WaitFor([&] { return ReadLog().find(part) != std::string::npos; });
}

std::size_t AgentProcess::CountDescriptors() const {
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process_) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::string RunShell(const std::string& command) {
    std::FILE* const pipe = ::popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer;
    for (std::size_t length = 0; (length = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.append(buffer.data(), length);
    }
    const int status = ::pclose(pipe);
    return status == 0 ? output : "status " + std::to_string(WEXITSTATUS(status));
}

std::string BinaryDirectory() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

std::string TestModule(const std::string& name) {
    return BinaryDirectory() + "/../test_modules/" + name + ".so";
}
