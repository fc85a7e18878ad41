#include "UpgradeFixture.h"

#include <algorithm>
#include <fstream>
#include <string_view>

#include "support/Sqlite.h"
#include "support/TempDirectory.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kTables =
    "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite^_%' ESCAPE '^' AND name "
    "<> "
    "'IniScriptLog' ORDER BY name";

std::string Joined(const std::vector<std::string>& texts, std::string_view between) {
    std::string joined;
    for (const std::string& text : texts) {
        joined.append(joined.empty() ? "" : between).append(text);
    }
    return joined;
}

void DumpTable(const Sqlite& database, const std::string& table, std::vector<std::string>& lines) {
    const std::string columns = "FROM pragma_table_info('" + table + "')";
    lines.push_back(table);
    lines.push_back("    " + Joined(database.Column("SELECT trim(name || ' ' || type) " + columns), ", "));
    const std::string cells =
        Joined(database.Column("SELECT 'quote(' || name || ')' " + columns), " || ' | ' || ");
    for (const std::string& row : database.Column("SELECT " + cells + " FROM \"" + table + "\" ORDER BY 1")) {
        lines.push_back("      " + row);
    }
    for (const std::string& index :
         database.Column("SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = '" + table +
                         "' AND sql IS NOT NULL ORDER BY name")) {
        lines.push_back("    index " + index);
    }
}

}  // namespace

UpgradeFixture::UpgradeFixture(const fs::path& description)
    : root_(description.parent_path().parent_path()),
      content_(nlohmann::ordered_json::parse(std::ifstream(description))) {}

fs::path UpgradeFixture::DatabaseOf(const fs::path& agent) {
    return agent / "data/EventLogManager/EventLogManager.sqlite3";
}

void UpgradeFixture::Place(const fs::path& agent) const {
    const fs::path models = agent / "data/EventLogManager/models";
    fs::create_directories(models);
    fs::create_directories(agent / "config");
    const fs::path ini = agent / "config/EventLogManager.ini";
    fs::copy_file(root_ / "../../etc/EventLogManager.ini", ini, fs::copy_options::overwrite_existing);
    PlaceDatabase(agent);
    for (const auto& name : content_.value("drop", std::vector<std::string>())) {
        fs::copy_file(root_ / "../../etc/models" / name, models / name);
    }
    PlaceOlderModule(agent);
}

void UpgradeFixture::PlaceDatabase(const fs::path& agent) const {
    const Sqlite database(DatabaseOf(agent));
    database.Run(ReadWholeFile(root_ / "databases" / content_.at("database").get<std::string>()));
    for (const auto& statement : content_.value("sql", std::vector<std::string>())) {
        database.Run(statement);
    }
    for (const std::string& model :
         database.Column("SELECT RM_ModelName || '/' || RM_Checksum FROM RegisteredModel")) {
        if (fs::exists(root_ / "models" / model)) {
            const fs::path filed = agent / "data/EventLogManager/models" / model;
            fs::create_directories(filed);
            fs::copy(root_ / "models" / model, filed);
        }
    }
}

void UpgradeFixture::PlaceOlderModule(const fs::path& agent) {
    std::ofstream(agent / "config/agent.ini") << "[Modules]\nEventManager = EventManager.so\n";
    std::ofstream(agent / "config/EventManager.ini") << "[EventManager]\n";
    fs::create_directories(agent / "data/EventManager/queue");
    std::ofstream(agent / "data/EventManager/queue/1") << "an event\n";
}

std::vector<std::string> UpgradeFixture::Dump(const fs::path& database) {
    const Sqlite opened(database);
    std::vector<std::string> lines;
    for (const std::string& table : opened.Column(kTables)) {
        DumpTable(opened, table, lines);
    }
    return lines;
}

std::vector<std::string> UpgradeFixture::Files(const fs::path& agent) {
    std::vector<std::string> lines;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(agent)) {
        const std::string name = fs::relative(entry.path(), agent).string();
        const bool comesAndGoes = name.ends_with("-wal") || name.ends_with("-shm") || name.starts_with("log");
        if (entry.is_regular_file() && !comesAndGoes) {
            lines.push_back(name);
        }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

std::map<std::string, UpgradeFixture::Events> UpgradeFixture::EventsIn(const fs::path& database) {
    const Sqlite opened(database);
    std::map<std::string, Events> events;
    for (const std::string& table : opened.Column(kTables)) {
        if (opened.Rows("SELECT count(*) FROM pragma_table_info('" + table +
                        "') WHERE name IN ('E_Id', 'E_Date')") == "2") {
            const auto found = opened.Column("SELECT E_Id || ' of ' || E_Date FROM " + table);
            events[table] = Events(found.begin(), found.end());
        }
    }
    return events;
}

std::string UpgradeFixture::Check(const fs::path& database) {
    return Sqlite(database).Rows("PRAGMA integrity_check");
}
