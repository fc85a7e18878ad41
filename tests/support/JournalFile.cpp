#include "support/JournalFile.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr const char* kTool = "/lib/systemd/systemd-journal-remote";
constexpr const char* kBoot = "0123456789abcdef0123456789abcdef";

/// A field of the export format whose value is given with its length.
std::string BinaryField(const std::string& name, const std::string& value) {
    std::string text = name + "\n";
    for (unsigned shift = 0; shift < 64; shift += 8) {
        text += static_cast<char>((static_cast<uint64_t>(value.size()) >> shift) & 0xFFU);
    }
    return text + value + "\n";
}

}  // namespace

void JournalFile::Add(int64_t seconds, const Fields& fields) {
    ++count_;
    const auto micros = static_cast<uint64_t>(seconds) * 1'000'000U + count_ % 1'000'000U;
    text_ += "__REALTIME_TIMESTAMP=" + std::to_string(micros) + "\n";
    text_ += "__MONOTONIC_TIMESTAMP=" + std::to_string(count_) + "\n";
    text_ += std::string("_BOOT_ID=") + kBoot + "\n";
    for (const auto& [name, value] : fields) {
        text_ += BinaryField(name, value);
    }
    text_ += "\n";
}

bool JournalFile::Write(const std::string& path) const {
    const std::string command = std::string(kTool) + " --output=" + path + " - >/dev/null 2>&1";
    std::FILE* const pipe = ::popen(command.c_str(), "w");
    if (pipe == nullptr) {
        return false;
    }
    const bool isWritten = std::fwrite(text_.data(), 1, text_.size(), pipe) == text_.size();
    return ::pclose(pipe) == 0 && isWritten;
}
