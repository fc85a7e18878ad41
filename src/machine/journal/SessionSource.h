#pragma once

#include <deque>
#include <string>
#include <vector>

#include "machine/journal/JournalSource.h"
#include "machine/journal/LogonMessage.h"
#include "machine/source/Models.h"

/// Logons and failed logons: what the session manager, the remote shell, login and display managers say.
class SessionSource : public JournalSource {
public:
    using JournalSource::JournalSource;

    [[nodiscard]] const char* GetName() const override { return "Sessions"; }
    [[nodiscard]] std::vector<const char*> GetModels() const override { return {models::kLogon}; }

protected:
    [[nodiscard]] Matches GetMatches() const override;
    [[nodiscard]] const std::vector<std::string_view>& GetFields() const override;
    [[nodiscard]] bool Judge(const JournalEntry& entry, MachineEvent& event) override;
    [[nodiscard]] std::string GetMemory() const override;
    void SetMemory(const std::string& memory) override;

private:
    [[nodiscard]] bool JudgeSession(const JournalEntry& entry, Logon& logon) const;
    [[nodiscard]] bool JudgeMessage(const JournalEntry& entry, Logon& logon);

    /// The processes of the remote shell that let somebody in a moment ago: the sessions that they open are
    /// the same logons.
    std::deque<std::string> remote_;
};
