#include "machine/Settings.h"

namespace {

constexpr char kModuleSection[] = "MachineEvents";
constexpr int32_t kSecondsPerDay = 86400;
constexpr int32_t kDefaultBackfillDays = 30;
constexpr int32_t kMostBackfillDays = 36500;
constexpr int32_t kDefaultIntervalSeconds = 300;
constexpr int32_t kDefaultRetrySeconds = 60;
constexpr uint32_t kMsPerSecond = 1000;

}  // namespace

bool Settings::IsEnabled(const char* source) const {
    bool isEnabled = true;
    ini_.GetEntryValue(source, "Enabled", isEnabled, true);
    return isEnabled;
}

std::time_t Settings::OldestWanted(const char* source) const {
    const int32_t common = Number(kModuleSection, "BackfillDays", 0, kMostBackfillDays, kDefaultBackfillDays);
    const int32_t days = Number(source, "BackfillDays", 0, kMostBackfillDays, common);
    return now_ - static_cast<std::time_t>(days) * kSecondsPerDay;
}

uint32_t Settings::IntervalMs(const char* source) const {
    return kMsPerSecond * static_cast<uint32_t>(
                              Number(source, "IntervalSeconds", 1, kSecondsPerDay, kDefaultIntervalSeconds));
}

uint32_t Settings::RetryMs() const {
    return kMsPerSecond * static_cast<uint32_t>(Number(kModuleSection, "RetrySeconds", 1, kSecondsPerDay,
                                                       kDefaultRetrySeconds));
}

LumString Settings::PackageLog() const {
    LumString path;
    ini_.GetEntryValue("Packages", "Log", path, "/var/log/dpkg.log");
    return path;
}

LumString Settings::JournalDirectory() const {
    LumString path;
    ini_.GetEntryValue("Journal", "Directory", path, "");
    return path;
}

int32_t Settings::Number(const char* section, const char* key, int32_t lowest, int32_t highest,
                         int32_t otherwise) const {
    int32_t number = 0;
    ini_.GetEntryValue(section, key, number, otherwise);
    return number >= lowest && number <= highest ? number : otherwise;
}
