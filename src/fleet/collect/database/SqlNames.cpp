#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "fleet/collect/database/ModelTables.h"
#include "fleet/wire/BatchKey.h"
#include "host/text/LumSha256.h"
#include "host/time/LumTime.h"

namespace {

constexpr int kMonthsPerYear = 12;
constexpr int kTmYear = 1900;
/// The database's names have 63 bytes; this leaves room for a digest and what is put before and after.
constexpr std::size_t kLongestPart = 40;
constexpr std::size_t kDigestPart = 8;

/// Columns that every table of events has, and those that the database itself has in every table.
constexpr std::array<std::string_view, 14> kReserved{"event_time",
                                                     "batch",
                                                     "position",
                                                     "device",
                                                     "event_gmt_offset",
                                                     "event_device_id",
                                                     "event_group_id",
                                                     "local_time",
                                                     "ctid",
                                                     "xmin",
                                                     "xmax",
                                                     "cmin",
                                                     "cmax",
                                                     "tableoid"};

bool IsReserved(const std::string& name) {
    return std::find(kReserved.begin(), kReserved.end(), name) != kReserved.end();
}

/// The first bytes of `text`, whole characters only.
std::string_view CutAtCharacter(std::string_view text, std::size_t length) {
    constexpr unsigned continuation = 0x80;
    constexpr unsigned mask = 0xC0;
    while (length > 0 && (static_cast<unsigned char>(text[length]) & mask) == continuation) {
        --length;
    }
    return text.substr(0, length);
}

}  // namespace

int32_t MonthOf(int64_t seconds) {
    const std::tm fields = GmTime(seconds);
    return (fields.tm_year + kTmYear) * kMonthsPerYear + fields.tm_mon;
}

std::string MonthStart(int32_t month) {
    std::array<char, 64> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%04d-%02d-01 00:00:00+00",
                                    month / kMonthsPerYear, month % kMonthsPerYear + 1));  // fits by far
    return text.data();
}

std::string MonthTable(const std::string& table, int32_t month) {
    std::array<char, 32> suffix{};
    static_cast<void>(std::snprintf(suffix.data(), suffix.size(), "_%04d%02d", month / kMonthsPerYear,
                                    month % kMonthsPerYear + 1));  // fits by far
    return "lum_month." + QuotedName(table + suffix.data());
}

std::string DerivedSqlName(std::string_view prefix, std::string_view text) {
    std::string name(prefix);
    if (text.size() <= kLongestPart) {
        return name.append(text);
    }
    name.append(CutAtCharacter(text, kLongestPart)).append("_");
    return name.append(Sha256Hex(text).substr(0, kDigestPart));
}

std::string ChooseColumn(const ParameterType& parameter, const std::set<std::string>& taken) {
    const auto isFree = [&taken](const std::string& name) {
        return !IsReserved(name) && taken.count(name) == 0;
    };
    std::string plain = DerivedSqlName("", parameter.name);
    if (isFree(plain)) {
        return plain;
    }
    const std::string_view type = ColumnType(parameter.type);
    const std::string typed = plain + "_" + std::string(type.substr(0, type.find(' ')));
    std::string name = typed;
    for (int number = 2; !isFree(name); ++number) {
        name = typed + "_" + std::to_string(number);
    }
    return name;
}
