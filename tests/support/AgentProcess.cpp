#include "support/AgentProcess.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>

#include <sys/resource.h>
#include <sys/wait.h>

#include "support/TestAgent.h"
#include "support/WaitFor.h"

void AgentProcess::Drop(const ModelText& model) const {
    scratch_.Write(std::string(TestAgent::kModels) + "/" + model.name + ".xml", Definition(model));
}

Sqlite AgentProcess::Database() const {
    return Sqlite(scratch_ / TestAgent::kDatabase);
}

void AgentProcess::Prepare() const {
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
}

void AgentProcess::WriteShippedSettings() const {
    std::string ini = Shipped("agent.ini");
    ini.erase(ini.find("MachineEvents = "));
    WriteIni(ini);
    scratch_.Write(TestAgent::kIni, Shipped("EventLogManager.ini"));
}

void AgentProcess::Start() {
    std::vector<std::string> words = {BinaryDirectory() + "/lumagent", "--config-dir", GetConfigDirectory(),
                                      "--data-dir", GetDataDirectory()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    Process::Start(words, scratch_ / "stderr", [this] { Prepare(); });
}

bool AgentProcess::WaitUntilServing() const {
    const bool ready = WaitFor([&] { return !IsRunning() || Request("GET", "/modules").status == 200; });
    return ready && IsRunning();
}

bool AgentProcess::StartAndServe() {
    Start();
    return WaitUntilServing();
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
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(GetId()) + "/fd");
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
