#include "machine/source/RecordId.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "host/text/LumMd5.h"
#include "machine/source/FieldText.h"

namespace {

constexpr std::size_t kDigits = 16;

}  // namespace

uint64_t RecordId(std::string_view identity) {
    const LumString digest = MD5HashHex(LumString(identity));
    return std::max<uint64_t>(1, ParseRecordText(digest.View().substr(0, kDigits)));
}

std::string RecordText(uint64_t record) {
    std::array<char, kDigits + 1> text{};
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(record));
    return text.data();
}

uint64_t ParseRecordText(std::string_view text) {
    uint64_t record = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, record, 16);
    return text.size() == kDigits && failure == std::errc() && stop == end ? record : 0;
}

void SetKnownText(MachineEvent& event, const char* param, std::string_view text) {
    if (!text.empty()) {
        event.params.SetString(param, FieldText(text));
    }
}

void SetIdentity(MachineEvent& event, uint64_t record, int32_t time) {
    event.record = record;
    event.params.SetString(kRecordParam, LumString(RecordText(record)));
    event.params.SetInt32(kTimeParam, time);
}
