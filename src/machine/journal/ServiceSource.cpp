#include "machine/journal/ServiceSource.h"

#include <systemd/sd-messages.h>

#include "machine/source/RecordId.h"

namespace {

bool IsServiceManager(const JournalEntry& entry) {
    return entry.Is("_PID", "1") && entry.Is("_UID", "0") && !entry.Get("UNIT").empty();
}

bool JudgeFailure(const JournalEntry& entry, MachineEvent& event) {
    if (!entry.Is("MESSAGE_ID", SD_MESSAGE_UNIT_FAILURE_RESULT_STR) || !IsServiceManager(entry)) {
        return false;
    }
    event.model = models::kServiceFailure;
    SetKnownText(event, "Unit", entry.Get("UNIT"));
    SetKnownText(event, "Result", entry.Get("UNIT_RESULT"));
    return true;
}

bool JudgeLackOfMemory(const JournalEntry& entry, MachineEvent& event) {
    if (!entry.Is("MESSAGE_ID", SD_MESSAGE_UNIT_OUT_OF_MEMORY_STR) || !IsServiceManager(entry)) {
        return false;
    }
    event.model = models::kCrash;
    event.params.SetString("Kind", "memory");
    SetKnownText(event, "Unit", entry.Get("UNIT"));
    return true;
}

bool JudgeCrash(const JournalEntry& entry, MachineEvent& event) {
    // The crash collector writes as the user of the crashed program, but in its own unit.
    const std::string_view unit = entry.Get("_SYSTEMD_UNIT");
    if (!entry.Is("MESSAGE_ID", SD_MESSAGE_COREDUMP_STR) || !entry.Is("_SYSTEMD_UNIT", unit) ||
        !unit.starts_with("systemd-coredump@")) {
        return false;
    }
    event.model = models::kCrash;
    event.params.SetString("Kind", "crash");
    const std::string_view file = entry.Get("COREDUMP_EXE");
    SetKnownText(event, "Program", file.empty() ? entry.Get("COREDUMP_COMM") : file);
    SetKnownText(event, "Signal", entry.Get("COREDUMP_SIGNAL_NAME"));
    SetKnownText(event, "Unit", entry.Get("COREDUMP_UNIT"));
    SetKnownText(event, "User", entry.Get("COREDUMP_UID"));
    return true;
}

}  // namespace

JournalSource::Matches ServiceSource::GetMatches() const {
    return {{"MESSAGE_ID=" SD_MESSAGE_UNIT_FAILURE_RESULT_STR,
             "MESSAGE_ID=" SD_MESSAGE_UNIT_OUT_OF_MEMORY_STR, "MESSAGE_ID=" SD_MESSAGE_COREDUMP_STR}};
}

const std::vector<std::string_view>& ServiceSource::GetFields() const {
    static const std::vector<std::string_view> kFields = {
        "_UID",        "_PID",         "_SYSTEMD_UNIT", "MESSAGE_ID",           "UNIT",
        "UNIT_RESULT", "COREDUMP_EXE", "COREDUMP_COMM", "COREDUMP_SIGNAL_NAME", "COREDUMP_UNIT",
        "COREDUMP_UID"};
    return kFields;
}

bool ServiceSource::Judge(const JournalEntry& entry, MachineEvent& event) {
    return JudgeFailure(entry, event) || JudgeLackOfMemory(entry, event) || JudgeCrash(entry, event);
}
