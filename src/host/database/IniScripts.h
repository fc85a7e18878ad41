#pragma once

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "host/database/Database.h"
#include "host/log/LumDebug.h"
#include "host/text/LumString.h"

/// The (name, statement) of an ini section, in the order of the file.
using IniEntries = std::vector<std::pair<LumString, LumString>>;

/// Runs the statements of an ini section; see DBConnection::RunIniScripts.
class IniScripts {
public:
    IniScripts(DBConnection& connection, LumDebug& debug) : connection_(connection), debug_(debug) {}

    [[nodiscard]] bool Run(const LumString& section, const IniEntries& entries, bool once);

private:
    [[nodiscard]] bool RunOnce(const LumString& section, const LumString& name, const LumString& statement);
    [[nodiscard]] bool RunAndRemember(const LumString& section, const LumString& name,
                                      const LumString& statement, const LumString& checksum);

    DBConnection& connection_;
    LumDebug& debug_;
};

/// The table in which a database keeps its version: one row a number, by name.
struct UpgradeTable {
    const LumString& table;
    const LumString& nameColumn;
    const LumString& valueColumn;
};

/// Brings a database up by the entries of an ini section; see DBConnection::RunUpgrade.
class IniUpgrade {
public:
    /// Major, minor, revision, build: versions compare number by number.
    using Version = std::array<uint32_t, 4>;

    IniUpgrade(DBConnection& connection, LumDebug& debug, const UpgradeTable& table)
        : connection_(connection), debug_(debug), table_(table) {}

    [[nodiscard]] bool Run(const LumString& section, const IniEntries& entries,
                           DBConnection::UpgradeProgress progress);

private:
    /// The statements of one version, in the order of the file.
    struct Step {
        Version version;
        std::vector<LumString> statements;
    };

    enum class Found : uint8_t { kVersion, kNone, kFailed };

    [[nodiscard]] Found ReadVersion(Version& version);
    [[nodiscard]] Found ReadNumber(const LumString& name, uint32_t& number);
    [[nodiscard]] std::vector<Step> StepsAbove(const Version& version, const LumString& section,
                                               const IniEntries& entries);
    [[nodiscard]] bool RunStep(const Step& step);
    [[nodiscard]] bool WriteVersion(const Version& version);

    DBConnection& connection_;
    LumDebug& debug_;
    const UpgradeTable table_;
};
