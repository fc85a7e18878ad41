#include "host/core/LumAgent.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include "host/database/Database.h"
#include "host/file/LumFile.h"
#include "host/text/LumSystemError.h"
#include "host/thread/LumMutex.h"
#include "host/thread/LumThreadSafety.h"

namespace {

struct AgentCore {
    // The host's logger is made first, so that it outlives the context and never writes into a gone one.
    AgentCore() { LumHostDebug().SetContext(&context); }
    AgentCore(const AgentCore&) = delete;
    AgentCore& operator=(const AgentCore&) = delete;
    ~AgentCore() { LumHostDebug().SetContext(nullptr); }

    LumDebugContext context;
    LumString configDirectory;
    LumString dataDirectory;

    LumMutex iniMutex;
    IniFile ini LUM_GUARDED_BY(iniMutex);
};

AgentCore& TheCore() {
    static AgentCore core;
    return core;
}

/// The directory as modules get it: absolute, so that a path made from it means the same wherever it is
/// handed to, without a ".." component, because DirDelete refuses one, and with a separator at its end.
LumString AsModulesGetIt(const LumString& directory) {
    std::error_code ignored;  // a directory that has just been made has an absolute path
    std::filesystem::path path = std::filesystem::absolute(directory.View(), ignored);
    if (std::find(path.begin(), path.end(), "..") != path.end()) {
        path = std::filesystem::canonical(path, ignored);
    }
    const LumString absolute(path.string());
    return absolute.View().ends_with('/') ? absolute : absolute + "/";
}

bool MakeDirectory(const LumString& path, LumString& error) {
    errno = 0;
    if (!path.IsEmpty() && PathCreate(path)) {
        return true;
    }
    const LumString reason = path.IsEmpty() ? LumString("the path is empty") : LumSystemErrorText();
    error.Printf("Cannot make the directory '%S': %S", path, reason);
    return false;
}

/// What `[Database] Synchronous` says; full where it says nothing.
DBSynchronous ReadSynchronous(const IniFile& ini) {
    LumString text;
    static_cast<void>(ini.GetEntryValue("Database", "Synchronous", text, "full"));  // the default will do
    if (text.IsEqualTo("normal", false)) {
        return DBSynchronous::kNormal;
    }
    if (!text.IsEqualTo("full", false)) {
        LumHostDebug().WarningWithNL(
            "%S: [Database] Synchronous is 'full' or 'normal', not '%S': taken as full", ini.GetPath(), text);
    }
    return DBSynchronous::kFull;
}

}  // namespace

bool LumAgentSetUp(const LumAgentOptions& options, LumString& error) {
    AgentCore& core = TheCore();
    if (!MakeDirectory(options.configDirectory, error) || !MakeDirectory(options.dataDirectory, error)) {
        return false;
    }
    core.configDirectory = AsModulesGetIt(options.configDirectory);
    core.dataDirectory = AsModulesGetIt(options.dataDirectory);
    const LumString tempDirectory = core.dataDirectory + "tmp";
    if (!MakeDirectory(tempDirectory, error)) {
        return false;
    }
    SetTempDirectory(tempDirectory);
    DirRemoveLeftovers(core.dataDirectory);
    IniFile::RemoveLeftovers(core.configDirectory);

    const LumMutexLock guard(core.iniMutex);
    core.ini = IniFile(core.configDirectory + "agent.ini");
    DBConnectionPool::SetSynchronous(ReadSynchronous(core.ini));
    return true;
}

void LumAgentGetConfigDir(LumString& directory) {
    directory = TheCore().configDirectory;
}

void LumAgentGetDataDir(LumString& directory) {
    directory = TheCore().dataDirectory;
}

LumDebugContext* LumAgentGetDebugContext(void* /*agentHandle*/) {
    return &TheCore().context;
}

IniFile& LumAgentGetIniAndLock() LUM_NO_THREAD_SAFETY_ANALYSIS {
    AgentCore& core = TheCore();
    // It fails only on a thread that already holds it many times over; that thread's releases stay harmless.
    static_cast<void>(core.iniMutex.Lock());
    return core.ini;
}

void LumAgentReleaseIni() LUM_NO_THREAD_SAFETY_ANALYSIS {
    TheCore().iniMutex.Unlock();
}
