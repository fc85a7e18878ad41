#include "machine/journal/SessionSource.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <sstream>

#include <systemd/sd-messages.h>

#include "machine/source/FieldText.h"
#include "machine/source/MachineLog.h"
#include "machine/source/RecordId.h"

namespace {

constexpr std::size_t kMaxRemembered = 64;

/// Programs whose word on logons counts, where they run as root. The system keeps 15 bytes of a name.
constexpr std::array<std::string_view, 2> kRemoteShells = {"sshd", "sshd-session"};
constexpr std::array<std::string_view, 3> kDisplayManagers = {"gdm-session-wor", "lightdm", "sddm-helper"};
constexpr std::string_view kLogin = "login";

/// The journal takes so many messages of a service in a while and no more; it says itself how many it left
/// out.
void SayWhatWasDropped(const JournalEntry& entry) {
    constexpr std::string_view kRemoteShell = " from ssh";
    const std::string_view message = entry.Get("MESSAGE");
    if (entry.Is("MESSAGE_ID", SD_MESSAGE_JOURNAL_DROPPED_STR) && entry.Is("_TRANSPORT", "driver") &&
        message.find(kRemoteShell) != std::string_view::npos) {
        MachineDebug.WarningWithNL(
            "Sessions: the journal did not take in %S messages, logons among them perhaps: %S",
            FieldText(entry.Get("N_DROPPED")), FieldText(message));
    }
}

bool IsOneOf(const JournalEntry& entry, const auto& programs) {
    return std::any_of(programs.begin(), programs.end(),
                       [&](std::string_view program) { return entry.Is("_COMM", program); });
}

}  // namespace

JournalSource::Matches SessionSource::GetMatches() const {
    std::vector<std::string> programs = {"_UID=0", "_COMM=" + std::string(kLogin)};
    for (const std::string_view program : kRemoteShells) {
        programs.push_back("_COMM=" + std::string(program));
    }
    for (const std::string_view program : kDisplayManagers) {
        programs.push_back("_COMM=" + std::string(program));
    }
    return {{"MESSAGE_ID=" SD_MESSAGE_SESSION_START_STR, "_UID=0"},
            {"MESSAGE_ID=" SD_MESSAGE_JOURNAL_DROPPED_STR, "_TRANSPORT=driver"},
            programs};
}

const std::vector<std::string_view>& SessionSource::GetFields() const {
    static const std::vector<std::string_view> kFields = {
        "_UID",       "_COMM",   "_PID",   "_BOOT_ID",   "_SYSTEMD_UNIT", "MESSAGE",
        "MESSAGE_ID", "USER_ID", "LEADER", "_TRANSPORT", "N_DROPPED"};
    return kFields;
}

bool SessionSource::Judge(const JournalEntry& entry, MachineEvent& event) {
    SayWhatWasDropped(entry);
    Logon logon;
    if (!entry.Is("_UID", "0") || !(JudgeSession(entry, logon) || JudgeMessage(entry, logon))) {
        return false;
    }
    event.model = models::kLogon;
    event.params.SetString("User", FieldText(logon.user));
    event.params.SetString("Outcome", logon.isSuccess ? "success" : "failure");
    SetKnownText(event, "Terminal", logon.terminal);
    SetKnownText(event, "Origin", logon.origin);
    return true;
}

bool SessionSource::JudgeSession(const JournalEntry& entry, Logon& logon) const {
    const std::string leader = std::string(entry.Get("_BOOT_ID")) + ":" + std::string(entry.Get("LEADER"));
    if (!entry.Is("MESSAGE_ID", SD_MESSAGE_SESSION_START_STR) ||
        !entry.Is("_SYSTEMD_UNIT", "systemd-logind.service") || entry.Get("USER_ID").empty() ||
        std::find(remote_.begin(), remote_.end(), leader) != remote_.end()) {
        return false;
    }
    logon.user = entry.Get("USER_ID");
    logon.isSuccess = true;
    return true;
}

bool SessionSource::JudgeMessage(const JournalEntry& entry, Logon& logon) {
    const std::string_view message = entry.Get("MESSAGE");
    if (entry.Is("_COMM", kLogin)) {
        return ParseLogin(message, logon);
    }
    if (IsOneOf(entry, kDisplayManagers)) {
        return ParseAuthentication(message, logon);
    }
    if (!IsOneOf(entry, kRemoteShells) || !ParseRemoteShell(message, logon)) {
        return false;
    }
    if (logon.isSuccess) {
        remote_.push_back(std::string(entry.Get("_BOOT_ID")) + ":" + std::string(entry.Get("_PID")));
        if (remote_.size() > kMaxRemembered) {
            remote_.pop_front();
        }
    }
    return true;
}

std::string SessionSource::GetMemory() const {
    std::string memory;
    for (const std::string& process : remote_) {
        memory += (memory.empty() ? "" : " ") + process;
    }
    return memory;
}

void SessionSource::SetMemory(const std::string& memory) {
    remote_.clear();
    std::istringstream words(memory);
    for (std::string word; words >> word;) {
        remote_.push_back(word);
    }
}
