#include "machine/journal/StateSource.h"

#include <algorithm>
#include <iterator>

#include <systemd/sd-messages.h>

#include "machine/source/RecordId.h"

namespace {

/// A message by its number: who alone may write it, the state that it tells of, and the field that says more.
struct StateMessage {
    const char* id;
    const char* program;
    const char* state;
    const char* detail;
};

constexpr StateMessage kMessages[] = {
    {SD_MESSAGE_STARTUP_FINISHED_STR, "systemd", "start", ""},
    {SD_MESSAGE_SHUTDOWN_STR, "systemd-logind", "stop", "SHUTDOWN"},
    {SD_MESSAGE_SLEEP_START_STR, "systemd-sleep", "sleep", "SLEEP"},
    {SD_MESSAGE_SLEEP_STOP_STR, "systemd-sleep", "wake", "SLEEP"},
    {SD_MESSAGE_TIME_CHANGE_STR, "systemd", "clock", ""},
    {SD_MESSAGE_TIME_CHANGE_STR, "systemd-timedat", "clock", ""},
};

}  // namespace

JournalSource::Matches StateSource::GetMatches() const {
    std::vector<std::string> group = {"_UID=0"};
    for (const StateMessage& message : kMessages) {
        group.push_back(std::string("MESSAGE_ID=") + message.id);
    }
    return {group};
}

const std::vector<std::string_view>& StateSource::GetFields() const {
    static const std::vector<std::string_view> kFields = {"_UID",       "_COMM",    "_PID",
                                                          "MESSAGE_ID", "SHUTDOWN", "SLEEP"};
    return kFields;
}

bool StateSource::Judge(const JournalEntry& entry, MachineEvent& event) {
    const auto* const found =
        std::find_if(std::begin(kMessages), std::end(kMessages), [&](const auto& message) {
            return entry.Is("MESSAGE_ID", message.id) && entry.Is("_COMM", message.program);
        });
    // A user's service manager has the same name as the system's, but another process number.
    if (found == std::end(kMessages) || !entry.Is("_UID", "0") ||
        (std::string_view(found->program) == "systemd" && !entry.Is("_PID", "1"))) {
        return false;
    }
    event.model = models::kMachineState;
    event.params.SetString("State", found->state);
    SetKnownText(event, "Detail", entry.Get(found->detail));
    return true;
}
