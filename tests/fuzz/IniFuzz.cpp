#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "FuzzTarget.h"
#include "host/ini/IniFile.h"
#include "support/TempDirectory.h"

namespace {

using Entries = std::vector<std::pair<LumString, LumString>>;

const LumString kSection("Settings");
const LumString kOther("Scripts");

/// The first value of a key, as a list shows it, is the value that the key alone has.
void CheckEntries(const IniFile& ini, const LumString& section) {
    const Entries entries = ini.GetEntries(section);
    for (const auto& [key, value] : entries) {
        LumString found;
        Require(ini.GetEntryValue(section, key, found, ""));
        bool asBool = false;
        int32_t asInteger = 0;
        static_cast<void>(ini.GetEntryValue(section, key, asBool, true));  // any text
        static_cast<void>(ini.GetEntryValue(section, key, asInteger, 7));  // any text
    }
}

}  // namespace

/// Any bytes as an ini file: whatever is read of it, a key that is written is read back, one that is deleted
/// is gone, and neither changes what stands in another section.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const TempDirectory directory;
    IniFile ini(LumString(std::string_view(directory.Write("any.ini", FuzzInput(data, size)))));
    CheckEntries(ini, kSection);
    const Entries before = ini.GetEntries(kOther);
    CheckEntries(ini, kOther);
    if (ini.WriteEntryValue(kSection, "Written", "a value; # = [of] 'some' kind")) {
        LumString value;
        Require(ini.GetEntryValue(kSection, "written", value, ""));
        Require(value == "a value; # = [of] 'some' kind");
        Require(ini.GetEntries(kOther) == before);
    }
    if (ini.DeleteEntry(kSection, "Written")) {
        LumString value;
        Require(!ini.GetEntryValue(kSection, "Written", value, ""));
        Require(ini.GetEntries(kOther) == before);
    }
    return 0;
}
