#include "agent/AgentHealth.h"

#include <cerrno>

#include <sys/statvfs.h>

#include "host/core/LumHealth.h"
#include "host/text/LumSystemError.h"

bool ReadFreeBytes(const LumString& directory, uint64_t& bytes) {
    struct statvfs status = {};
    if (::statvfs(directory.GetString(), &status) != 0) {
        return false;
    }
    bytes = static_cast<uint64_t>(status.f_bavail) * status.f_frsize;
    return true;
}

std::vector<LumString> AgentHealth::GetReasons() const {
    std::vector<LumString> reasons = missingModules_;
    for (LumString& reason : LumHealthReasons()) {
        reasons.push_back(std::move(reason));
    }
    LumString room = CheckFreeRoom();
    if (!room.IsEmpty()) {
        reasons.push_back(std::move(room));
    }
    return reasons;
}

LumString AgentHealth::CheckFreeRoom() const {
    constexpr uint64_t mebibyte = 1U << 20U;
    LumString sentence;
    uint64_t bytes = 0;
    if (!ReadFreeBytes(dataDirectory_, bytes)) {
        sentence.Printf("The data directory %S cannot be looked at: %S.", dataDirectory_,
                        LumSystemErrorText());
    } else if (bytes < minFreeMb_ * mebibyte) {
        sentence.Printf(
            "Only %u MB are free below the data directory %S, less than the %u of [Agent] MinFreeMB.",
            static_cast<uint32_t>(bytes / mebibyte), dataDirectory_, minFreeMb_);
    }
    return sentence;
}
