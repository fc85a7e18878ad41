#include <string_view>

#include "FuzzTarget.h"
#include "agent/Settings.h"
#include "host/file/LumFile.h"
#include "support/TempDirectory.h"

namespace {

const LumString kData("/data/");

bool IsWithin(std::size_t value, std::size_t lowest, std::size_t highest) {
    return value >= lowest && value <= highest;
}

/// Whatever the file says, the agent runs with what it can run with.
void CheckRanges(const Settings& settings) {
    Require(settings.socketPath.View().starts_with('/'));
    Require(!LumLogLevelName(settings.logLevel).empty());
    Require(IsWithin(settings.threads, 1, 256));
    Require(IsWithin(settings.clientTimeoutMs, 1, 3'600'000));
    Require(IsWithin(settings.minFreeMb, 0, 1'000'000'000));
    Require(IsWithin(settings.stuckSeconds, 1, 1'000'000));
    Require(IsWithin(settings.logMaxBytes, 1'000, 1'000'000'000));
    Require(IsWithin(settings.logMaxFiles, 1, 1'000));
}

bool SayTheSame(const Settings& one, const Settings& other) {
    return one.socketPath == other.socketPath && one.socketGroup == other.socketGroup &&
           one.readGroup == other.readGroup && one.createGroup == other.createGroup &&
           one.metricsListen == other.metricsListen && one.logLevel == other.logLevel &&
           one.threads == other.threads && one.modules == other.modules && one.warnings == other.warnings;
}

/// A value that was refused has one warning, which names the file; there are no more values than keys.
void CheckWarnings(const Settings& settings, const LumString& path) {
    constexpr std::size_t mostWarnings = 7;
    Require(settings.warnings.size() <= mostWarnings);
    for (const LumString& warning : settings.warnings) {
        Require(warning.View().starts_with(path.View()));
    }
}

}  // namespace

/// Any bytes as agent.ini: the settings are within their limits, the same bytes always mean the same, and the
/// command line wins.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const TempDirectory directory;
    const IniFile ini(LumString(std::string_view(directory.Write("agent.ini", FuzzInput(data, size)))));
    const Settings settings = ReadSettings(ini, {}, kData);
    CheckRanges(settings);
    CheckWarnings(settings, ini.GetPath());
    Require(SayTheSame(settings, ReadSettings(ini, {}, kData)));
    CommandLine commandLine;
    commandLine.socketPath = "/given";
    commandLine.logLevel = LumLogLevel::kError;
    const Settings overridden = ReadSettings(ini, commandLine, kData);
    Require(overridden.socketPath == "/given" && overridden.logLevel == LumLogLevel::kError);
    Require(overridden.threads == settings.threads && overridden.modules == settings.modules);
    return 0;
}
