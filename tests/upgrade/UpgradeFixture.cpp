#include "UpgradeFixture.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string_view>

#include <sqlite3.h>

#include "support/TempDirectory.h"

namespace fs = std::filesystem;

namespace {

using Row = std::vector<std::string>;

/// A database as another program opens it. What goes wrong is an exception.
class Sqlite {
public:
    explicit Sqlite(const fs::path& path) {
        Expect(sqlite3_open(path.c_str(), &database_) == SQLITE_OK, "cannot open " + path.string());
        constexpr int kBusyMs = 5000;
        sqlite3_busy_timeout(database_, kBusyMs);
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;
    ~Sqlite() { sqlite3_close(database_); }

    void Run(const std::string& script) const {
        Expect(sqlite3_exec(database_, script.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, script);
    }

    /// The cells of each row as text; NULL is empty.
    [[nodiscard]] std::vector<Row> Rows(const std::string& sql) const {
        std::vector<Row> rows;
        const auto add = [](void* to, int count, char** cells, char**) {
            Row row;
            std::transform(cells, cells + count, std::back_inserter(row),
                           [](const char* cell) { return std::string(cell != nullptr ? cell : ""); });
            static_cast<std::vector<Row>*>(to)->push_back(std::move(row));
            return 0;
        };
        Expect(sqlite3_exec(database_, sql.c_str(), add, &rows, nullptr) == SQLITE_OK, sql);
        return rows;
    }

private:
    void Expect(bool holds, const std::string& what) const {
        if (!holds) {
            const std::string reason = sqlite3_errmsg(database_);
            throw std::runtime_error(what + ": " + reason);
        }
    }

    sqlite3* database_ = nullptr;
};

constexpr const char* kTables =
    "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite^_%' ESCAPE '^' AND name "
    "<> "
    "'IniScriptLog' ORDER BY name";

std::string Joined(const std::vector<Row>& rows, std::string_view between) {
    std::string text;
    for (const Row& row : rows) {
        text.append(text.empty() ? "" : between).append(row.front());
    }
    return text;
}

void DumpTable(const Sqlite& database, const std::string& table, std::vector<std::string>& lines) {
    const std::string columns = "FROM pragma_table_info('" + table + "')";
    lines.push_back(table);
    lines.push_back("    " + Joined(database.Rows("SELECT trim(name || ' ' || type) " + columns), ", "));
    const std::string cells =
        Joined(database.Rows("SELECT 'quote(' || name || ')' " + columns), " || ' | ' || ");
    for (const Row& row : database.Rows("SELECT " + cells + " FROM \"" + table + "\" ORDER BY 1")) {
        lines.push_back("      " + row.front());
    }
    for (const Row& row :
         database.Rows("SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = '" + table +
                       "' AND sql IS NOT NULL ORDER BY name")) {
        lines.push_back("    index " + row.front());
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
    for (const Row& row : database.Rows("SELECT RM_ModelName || '/' || RM_Checksum FROM RegisteredModel")) {
        if (fs::exists(root_ / "models" / row.front())) {
            const fs::path filed = agent / "data/EventLogManager/models" / row.front();
            fs::create_directories(filed);
            fs::copy(root_ / "models" / row.front(), filed);
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
    for (const Row& row : opened.Rows(kTables)) {
        DumpTable(opened, row.front(), lines);
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
    for (const Row& table : opened.Rows(kTables)) {
        const auto columns = opened.Rows("SELECT 1 FROM pragma_table_info('" + table.front() +
                                         "') WHERE name IN ('E_Id', 'E_Date')");
        if (columns.size() == 2) {
            Events& found = events[table.front()];
            for (const Row& row : opened.Rows("SELECT E_Id || ' of ' || E_Date FROM " + table.front())) {
                found.insert(row.front());
            }
        }
    }
    return events;
}

std::string UpgradeFixture::Check(const fs::path& database) {
    return Joined(Sqlite(database).Rows("PRAGMA integrity_check"), "; ");
}
