#include "client/check/DefinitionNames.h"

#include <algorithm>
#include <array>

#include "contract/ContainerKeys.h"
#include "host/text/LumPattern.h"

namespace {

constexpr std::size_t kMaxModelNameBytes = 255;

bool IsNameLetter(char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= '0' && letter <= '9') || letter == '_' || letter == '$' ||
           static_cast<unsigned char>(letter) > 0x7F;
}

std::string FaultOfLetters(std::string_view name) {
    const bool good = std::all_of(name.begin(), name.end(), IsNameLetter);
    return good ? ""
                : "the name '" + std::string(name) +
                      "' may hold letters, digits, _ and $ only (blanks and line ends count)";
}

template <std::size_t N>
bool IsAmong(std::string_view name, const std::array<std::string_view, N>& list) {
    return std::any_of(list.begin(), list.end(),
                       [&](std::string_view taken) { return FoldedName(taken) == FoldedName(name); });
}

}  // namespace

std::string FaultOfModelName(std::string_view name) {
    static constexpr std::array<std::string_view, 3> kTaken{"Temp", "ProhibitedAppTemp", "MonitoredAppTemp"};
    if (name.size() > kMaxModelNameBytes) {
        return "the name has " + std::to_string(name.size()) + " bytes, and may have " +
               std::to_string(kMaxModelNameBytes);
    }
    return IsAmong(name, kTaken) ? "the name '" + std::string(name) + "' is taken by a table of the agent"
                                 : FaultOfLetters(name);
}

std::string FaultOfParameterName(std::string_view name) {
    static constexpr std::array<std::string_view, 6> kTaken{keys::kEventDate,     keys::kEventGmtOffset,
                                                            keys::kEventDeviceId, keys::kEventGroupId,
                                                            keys::kEventCount,    keys::kModelDef};
    return IsAmong(name, kTaken)
               ? "the name '" + std::string(name) + "' is that of a field that every event has"
               : FaultOfLetters(name);
}

std::string FoldedName(std::string_view name) {
    std::string folded(name);
    std::transform(folded.begin(), folded.end(), folded.begin(), LumFoldCase);
    return folded;
}
