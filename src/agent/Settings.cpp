#include "agent/Settings.h"

#include <unistd.h>

#include "host/file/LumFile.h"

namespace {

constexpr const char* kSection = "Agent";

/// Reads the keys of section [Agent], and keeps what was wrong with them.
class SettingReader {
public:
    SettingReader(const IniFile& ini, std::vector<LumString>& warnings) : ini_(ini), warnings_(warnings) {}

    /// The text under `key`; empty where there is none.
    [[nodiscard]] LumString ReadText(const char* key) const {
        LumString text;
        static_cast<void>(ini_.GetEntryValue(kSection, key, text, ""));  // an absent key is an empty text
        return text;
    }

    /// Replaces `value` by the number under `key`, if there is one in the range.
    template <class Number>
    void ReadNumber(const char* key, int32_t lowest, int32_t highest, Number& value) const {
        const LumString text = ReadText(key);
        int32_t number = 0;
        if (ini_.GetEntryValue(kSection, key, number, 0) && number >= lowest && number <= highest) {
            value = static_cast<Number>(number);
        } else if (!text.IsEmpty()) {
            LumString warning;
            warning.Printf("%S: [%s] %s is a number from %d to %d, not '%S': taken as %d", ini_.GetPath(),
                           kSection, key, lowest, highest, text, static_cast<int32_t>(value));
            warnings_.push_back(warning);
        }
    }

    void ReadLogLevel(LumLogLevel& level) const {
        const LumString text = ReadText("LogLevel");
        if (!text.IsEmpty() && !LumLogLevelFromName(text.View(), level)) {
            LumString warning;
            warning.Printf("%S: [%s] LogLevel is trace, print, warning or error, not '%S': taken as %S",
                           ini_.GetPath(), kSection, text, LumLogLevelName(level));
            warnings_.push_back(warning);
        }
    }

private:
    const IniFile& ini_;
    std::vector<LumString>& warnings_;
};

/// False, with one warning, where there is no agent.ini to be used.
bool IsReadable(const IniFile& ini, std::vector<LumString>& warnings) {
    constexpr std::size_t largest = 4U << 20U;
    LumString warning;
    if (::access(ini.GetPath().GetString(), F_OK) != 0) {
        warning.Printf("There is no %S, so no modules are loaded", ini.GetPath());
        warnings.push_back(warning);
        return false;
    }
    std::string content;
    LumString error;
    if (!FileRead(ini.GetPath(), largest, content, error)) {
        warning.Printf("Cannot read %S, so no modules are loaded: %S", ini.GetPath(), error);
        warnings.push_back(warning);
        return false;
    }
    return true;
}

void ReadIni(const IniFile& ini, const LumString& dataDirectory, Settings& settings) {
    const SettingReader reader(ini, settings.warnings);
    const LumString socket = reader.ReadText("Socket");
    if (!socket.IsEmpty()) {
        settings.socketPath = socket.View().front() == '/' ? socket : dataDirectory + socket;
    }
    settings.socketGroup = reader.ReadText("SocketGroup");
    settings.readGroup = reader.ReadText("ReadGroup");
    settings.createGroup = reader.ReadText("CreateGroup");
    settings.metricsListen = reader.ReadText("MetricsListen");
    reader.ReadLogLevel(settings.logLevel);
    reader.ReadNumber("Threads", 1, 256, settings.threads);
    reader.ReadNumber("ClientTimeoutMs", 1, 3'600'000, settings.clientTimeoutMs);
    reader.ReadNumber("MinFreeMB", 0, 1'000'000'000, settings.minFreeMb);
    reader.ReadNumber("StuckSeconds", 1, 1'000'000, settings.stuckSeconds);
    reader.ReadNumber("LogMaxBytes", 1'000, 1'000'000'000, settings.logMaxBytes);
    reader.ReadNumber("LogMaxFiles", 1, 1'000, settings.logMaxFiles);
    settings.modules = ini.GetEntries("Modules");
}

}  // namespace

Settings ReadSettings(const IniFile& ini, const CommandLine& commandLine, const LumString& dataDirectory) {
    Settings settings;
    settings.socketPath = dataDirectory + "agent.sock";
    if (IsReadable(ini, settings.warnings)) {
        ReadIni(ini, dataDirectory, settings);
    }
    if (commandLine.socketPath.has_value()) {
        settings.socketPath = LumString(std::string_view(*commandLine.socketPath));
    }
    settings.logLevel = commandLine.logLevel.value_or(settings.logLevel);
    return settings;
}
