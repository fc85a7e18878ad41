#pragma once

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

/// A machine that an earlier release has left behind, from a description in cases/: the script of its
/// database, statements that change it, and definition files that wait in the models directory. The
/// definitions of its registered models are filed as far as models/ has them. An older event module is always
/// there.
class UpgradeFixture {
public:
    explicit UpgradeFixture(const std::filesystem::path& description);

    /// Puts everything below `agent`, where an agent that was never started has its `config` and `data`.
    void Place(const std::filesystem::path& agent) const;

    [[nodiscard]] static std::filesystem::path DatabaseOf(const std::filesystem::path& agent);

    /// The tables of a database, their columns, rows and indexes, as lines; what the host keeps for itself is
    /// left out.
    [[nodiscard]] static std::vector<std::string> Dump(const std::filesystem::path& database);
    /// The files below `agent` that an upgrade may make or delete, as lines, each without `agent`.
    [[nodiscard]] static std::vector<std::string> Files(const std::filesystem::path& agent);

    /// The events of each table of a database, told apart by number and date.
    using Events = std::set<std::string>;
    [[nodiscard]] static std::map<std::string, Events> EventsIn(const std::filesystem::path& database);
    /// What SQLite's check of a database says.
    [[nodiscard]] static std::string Check(const std::filesystem::path& database);

private:
    void PlaceDatabase(const std::filesystem::path& agent) const;
    static void PlaceOlderModule(const std::filesystem::path& agent);

    const std::filesystem::path root_;
    const nlohmann::ordered_json content_;
};
