#pragma once

#include <cstdint>

#include "host/ini/IniFile.h"
#include "host/log/LumDebug.h"
#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// What the agent core needs to know of the process that it serves.
struct LumAgentOptions {
    LumString configDirectory;  ///< with or without trailing separator
    LumString dataDirectory;    ///< with or without trailing separator
};

/// Prepares the core: makes both directories and the data directory's `tmp` if they are missing (mode 0700),
/// makes `tmp` the temporary directory, and reads `[Database] Synchronous` of the agent's ini. False, with
/// the reason in `error`, where a directory cannot be made. To be called once, before any module is loaded;
/// the rest of this header may be called from any thread once it has returned.
[[nodiscard]] LUM_API bool LumAgentSetUp(const LumAgentOptions& options, LumString& error);

/// The agent's directories, each ending with a separator.
LUM_API void LumAgentGetConfigDir(LumString& directory);
LUM_API void LumAgentGetDataDir(LumString& directory);

/// The logging context of the agent, the same for every module. `agentHandle` is what the module got with
/// command 1. This one may be called before LumAgentSetUp, so that what that has to say is in the log too.
[[nodiscard]] LUM_API LumDebugContext* LumAgentGetDebugContext(void* agentHandle);

/// The agent's shared ini file, `agent.ini` in the configuration directory, with its lock held until
/// LumAgentReleaseIni on the same thread. Changes are in the file when their operation returns.
[[nodiscard]] LUM_API IniFile& LumAgentGetIniAndLock();
LUM_API void LumAgentReleaseIni();

/// The same for the lifetime of an object.
class LumAgentIni {
public:
    LumAgentIni() : ini_(LumAgentGetIniAndLock()) {}
    LumAgentIni(const LumAgentIni&) = delete;
    LumAgentIni& operator=(const LumAgentIni&) = delete;
    ~LumAgentIni() { LumAgentReleaseIni(); }

    IniFile* operator->() const { return &ini_; }

private:
    IniFile& ini_;
};
