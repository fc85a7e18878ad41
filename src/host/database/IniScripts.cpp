#include "host/database/IniScripts.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <string_view>
#include <utility>

#include "host/database/SqlText.h"
#include "host/database/Transaction.h"
#include "host/text/LumMd5.h"

namespace {

constexpr std::string_view kRunIniScripts = "RunIniScripts";
constexpr std::string_view kRunUpgrade = "RunUpgrade";

/// Names are compared as the ini file's are, without letter case.
constexpr const char* kCreateLog =
    "CREATE TABLE IF NOT EXISTS IniScriptLog (Section TEXT NOT NULL COLLATE NOCASE, "
    "Name TEXT NOT NULL COLLATE NOCASE, Checksum TEXT NOT NULL, RunTime INTEGER NOT NULL, "
    "PRIMARY KEY (Section, Name))";

/// All of `text` as a whole number.
bool ParseNumber(std::string_view text, uint32_t& number) {
    const char* const end = text.data() + text.size();
    const auto [after, status] = std::from_chars(text.data(), end, number);
    return status == std::errc() && after == end;
}

/// A name such as 6.2.0.0 or 6.2.0.0-indexes.
bool ParseVersion(std::string_view name, IniUpgrade::Version& version) {
    const std::size_t label = name.find('-');
    if (label != std::string_view::npos) {
        if (label + 1 == name.size()) {
            return false;
        }
        name = name.substr(0, label);
    }
    for (std::size_t i = 0; i < version.size(); ++i) {
        const std::size_t dot = name.find('.');
        const bool isLast = i + 1 == version.size();
        if ((dot == std::string_view::npos) != isLast || !ParseNumber(name.substr(0, dot), version[i])) {
            return false;
        }
        name = isLast ? std::string_view() : name.substr(dot + 1);
    }
    return true;
}

}  // namespace

bool IniScripts::Run(const LumString& section, const IniEntries& entries, bool once) {
    if (once && !entries.empty() && connection_.Query(kCreateLog) == nullptr) {
        return false;
    }
    bool allDone = true;
    for (const auto& [name, statement] : entries) {
        const bool done = once ? RunOnce(section, name, statement) : connection_.Query(statement) != nullptr;
        allDone = allDone && done;
    }
    return allDone;
}

bool IniScripts::RunOnce(const LumString& section, const LumString& name, const LumString& statement) {
    LumString sql;
    sql.Printf("SELECT Checksum FROM IniScriptLog WHERE Section = %S AND Name = %S",
               LumQuoted(section.View()), LumQuoted(name.View()));
    GenSqlResult* const remembered = connection_.Query(sql);
    if (remembered == nullptr) {
        return false;
    }
    const LumString checksum = MD5HashHex(statement);
    LumString former;
    if (!remembered->GetColumn(0, former)) {
        return RunAndRemember(section, name, statement, checksum);
    }
    if (!(former == checksum)) {
        debug_.WarningWithNL(
            "%S: Entry '%S' of section '%S' has changed since it was run; it is not run again",
            kRunIniScripts, name, section);
    }
    return true;
}

bool IniScripts::RunAndRemember(const LumString& section, const LumString& name, const LumString& statement,
                                const LumString& checksum) {
    LumString remember;
    remember.Printf("INSERT INTO IniScriptLog (Section, Name, Checksum, RunTime) VALUES (%S, %S, '%S', %ld)",
                    LumQuoted(section.View()), LumQuoted(name.View()), checksum,
                    static_cast<int64_t>(std::time(nullptr)));
    return InTransaction(connection_, [&] {
        return connection_.Query(statement) != nullptr && connection_.Query(remember) != nullptr;
    });
}

bool IniUpgrade::Run(const LumString& section, const IniEntries& entries,
                     DBConnection::UpgradeProgress progress) {
    Version version{};
    const Found found = ReadVersion(version);
    if (found == Found::kNone) {
        debug_.WarningWithNL("%S: No version is recorded in table '%S'; no upgrade of section '%S' is run",
                             kRunUpgrade, table_.table, section);
    }
    if (found != Found::kVersion) {
        return found == Found::kNone;
    }
    const std::vector<Step> steps = StepsAbove(version, section, entries);
    const auto total = static_cast<uint32_t>(steps.size());
    uint32_t done = 0;
    for (const Step& step : steps) {
        if (!RunStep(step)) {
            return false;
        }
        debug_.PrintWithNL("%S: The database is at version %u.%u.%u.%u", kRunUpgrade, step.version[0],
                           step.version[1], step.version[2], step.version[3]);
        ++done;
        if (progress != nullptr) {
            progress(done, total);
        }
    }
    return true;
}

IniUpgrade::Found IniUpgrade::ReadVersion(Version& version) {
    LumString sql;
    sql.Printf("SELECT 1 FROM sqlite_master WHERE type IN ('table', 'view') AND name = %S COLLATE NOCASE",
               LumQuoted(table_.table.View()));
    const GenSqlResult* const table = connection_.Query(sql);
    if (table == nullptr) {
        return Found::kFailed;
    }
    if (table->GetRowCount() == 0) {
        return Found::kNone;
    }
    for (std::size_t i = 0; i < version.size(); ++i) {
        const Found found = ReadNumber(kDatabaseVersionNames[i], version[i]);
        if (found != Found::kVersion) {
            return found;
        }
    }
    return Found::kVersion;
}

IniUpgrade::Found IniUpgrade::ReadNumber(const LumString& name, uint32_t& number) {
    LumString sql;
    sql.Printf("SELECT %S FROM %S WHERE %S = '%S'", table_.valueColumn, table_.table, table_.nameColumn,
               name);
    const GenSqlResult* const row = connection_.Query(sql);
    if (row == nullptr) {
        return Found::kFailed;
    }
    LumString text;
    return row->GetColumn(0, text) && ParseNumber(text.View(), number) ? Found::kVersion : Found::kNone;
}

std::vector<IniUpgrade::Step> IniUpgrade::StepsAbove(const Version& version, const LumString& section,
                                                     const IniEntries& entries) {
    std::vector<Step> steps;
    for (const auto& [name, statement] : entries) {
        Version target{};
        if (!ParseVersion(name.View(), target)) {
            debug_.WarningWithNL("%S: Entry '%S' of section '%S' is not named by a version; it is not run",
                                 kRunUpgrade, name, section);
            continue;
        }
        if (target <= version) {
            continue;
        }
        const auto at = std::lower_bound(steps.begin(), steps.end(), target,
                                         [](const Step& step, const Version& v) { return step.version < v; });
        if (at != steps.end() && at->version == target) {
            at->statements.push_back(statement);
        } else {
            steps.insert(at, Step{target, {statement}});
        }
    }
    return steps;
}

bool IniUpgrade::RunStep(const Step& step) {
    return InTransaction(connection_, [&] {
        return std::all_of(step.statements.begin(), step.statements.end(),
                           [&](const LumString& sql) { return connection_.Query(sql) != nullptr; }) &&
               WriteVersion(step.version);
    });
}

bool IniUpgrade::WriteVersion(const Version& version) {
    for (std::size_t i = 0; i < version.size(); ++i) {
        LumString sql;
        sql.Printf("UPDATE %S SET %S = %u WHERE %S = '%s'", table_.table, table_.valueColumn, version[i],
                   table_.nameColumn, kDatabaseVersionNames[i]);
        if (connection_.Query(sql) == nullptr) {
            return false;
        }
    }
    return true;
}
