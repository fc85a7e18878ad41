#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include <sqlite3.h>

#include "BuildPaths.h"
#include "host/text/LumPattern.h"
#include "support/FileStoreStandIn.h"
#include "support/LoadedModule.h"
#include "support/Program.h"

// Runs cases against the module as it is delivered: golden_runner [CASE...], all of cases/ without an
// argument. docs/testing.md says what a case may hold.

namespace {

/// JSON whose names keep their order, as those of a container do.
using Json = nlohmann::ordered_json;

Json Cell(sqlite3_stmt* statement, int column) {
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            return sqlite3_column_int64(statement, column);
        case SQLITE_FLOAT:
            return sqlite3_column_double(statement, column);
        case SQLITE_NULL:
            return nullptr;
        default:
            return std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)),
                               static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
    }
}

/// What a case or a step has under `name`, or nothing to walk.
const Json& PartOf(const Json& whole, const char* name) {
    static const Json none = Json::object();
    const auto found = whole.find(name);
    return found != whole.end() ? *found : none;
}

/// One case: an agent, and how many of the expectations did not hold.
class Case {
public:
    explicit Case(const std::filesystem::path& path)
        : name_(path.stem()),
          models_(path.parent_path().parent_path() / "models"),
          content_(Json::parse(std::ifstream(path))),
          begun_(std::time(nullptr)) {}

    /// True where everything was as expected.
    bool Run() {
        where_ = "start";
        Check(content_.begin().key() == "about", "begins with what it is about");
        Prepare(content_);
        agent_.Start();
        CheckEffects(content_);
        std::size_t number = 0;
        for (const Json& step : PartOf(content_, "steps")) {
            where_ = "step " + std::to_string(++number);
            RunStep(step);
        }
        return failures_ == 0;
    }

private:
    void RunStep(const Json& step) {
        Prepare(step);
        if (step.value("restart", false)) {
            agent_.Stop();
            agent_.Start();
        }
        if (step.contains("do")) {
            const TestAgent::Answer answer =
                LoadedModule::Call(step.at("do"), step.value("in", Json::object()).dump());
            CheckEqual(step.value("status", Json(0)), Json(answer.status), "status");
            // An action that fails leaves its arguments; one that is done leaves nothing but its answer.
            const Json untouched =
                answer.status == 0 ? Json::object() : step.value("in", Json(Json::object()));
            CheckEqual(step.value("out", untouched), Json::parse(answer.container), "out");
        }
        CheckEffects(step);
    }

    /// Sets the scene: files first, then the database.
    void Prepare(const Json& part) {
        for (const auto& [name, text] : PartOf(part, "files").items()) {
            WriteFile(Fill(name), text);
        }
        for (const Json& name : PartOf(part, "drop")) {
            agent_.Drop(name.get<std::string>(), ReadWholeFile(models_ / name.get<std::string>()));
        }
        for (const Json& statement : PartOf(part, "sql")) {
            agent_.Database().Run(statement);
        }
    }

    /// A text is the content of the file, null removes it, an empty object is a directory.
    static void WriteFile(const std::filesystem::path& path, const Json& content) {
        std::filesystem::remove_all(path);
        if (content.is_object()) {
            std::filesystem::create_directories(path);
        } else if (!content.is_null()) {
            std::filesystem::create_directories(path.parent_path());
            std::ofstream(path, std::ios::binary) << content.get<std::string>();
        }
    }

    void CheckEffects(const Json& part) {
        CheckLog(part);
        for (const auto& [sql, rows] : PartOf(part, "rows").items()) {
            CheckEqual(rows, Rows(sql), sql);
        }
        for (const auto& [name, expected] : PartOf(part, "left").items()) {
            const std::filesystem::path path = Fill(name);
            const bool there = std::filesystem::exists(path);
            CheckEqual(expected, expected.is_boolean() ? Json(there) : Json(ReadWholeFile(path)), name);
        }
        Json sent = Json::array();
        for (const LumContainer& file : store_.TakeFiles()) {
            sent.push_back(Json::parse(file.ToJson()));
        }
        if (part.contains("sent")) {
            CheckEqual(part.at("sent"), sent, "sent");
        }
    }

    /// The module's lines at print level and above are exactly those of "log"; without one nothing is said
    /// that is worse than print; with "any" they are not looked at. The lines of "trace" come in this order,
    /// with others between them. "host" is what the host's libraries say.
    void CheckLog(const Json& part) {
        if (part.value("log", Json()) != "any") {
            const LumLogLevel least = part.contains("log") ? LumLogLevel::kPrint : LumLogLevel::kWarning;
            CheckLines("log", PartOf(part, "log"), agent_.Log().Said(least));
        }
        if (part.contains("host")) {
            CheckLines("host", part.at("host"), agent_.HostLog().Said(LumLogLevel::kTrace));
        }
        const std::vector<std::string> all = agent_.Log().Said(LumLogLevel::kTrace);
        auto at = all.begin();
        for (const Json& line : PartOf(part, "trace")) {
            const auto fits = [&](const std::string& text) { return Fits(text, line); };
            at = std::find_if(at, all.end(), fits);
            Check(at != all.end(), "no line " + line.dump() + " in " + Json(all).dump(2));
        }
        agent_.Log().Forget();
        agent_.HostLog().Forget();
    }

    /// The cells of a statement's rows as JSON values of SQLite's types.
    [[nodiscard]] Json Rows(const std::string& sql) const {
        Json rows = Json::array();
        agent_.Database().ForEachRow(sql, [&rows](sqlite3_stmt* statement) {
            Json row = Json::array();
            for (int i = 0; i < sqlite3_column_count(statement); ++i) {
                row.push_back(Cell(statement, i));
            }
            rows.push_back(std::move(row));
        });
        return rows;
    }

    void CheckLines(const std::string& what, const Json& expected, const std::vector<std::string>& lines) {
        bool equal = expected.size() == lines.size();
        for (std::size_t i = 0; equal && i < lines.size(); ++i) {
            equal = Fits(lines[i], expected[i]);
        }
        Check(equal, what + " is " + Json(lines).dump(2));
    }

    [[nodiscard]] bool Fits(const std::string& text, const Json& pattern) const {
        const std::string filled = Fill(pattern);
        return MatchPattern(LumString(std::string_view(text)), LumString(std::string_view(filled)), false);
    }

    /// Puts the case's directories in for their names.
    [[nodiscard]] std::string Fill(std::string text) const {
        const std::pair<std::string, std::string> places[] = {
            {"$MODELS", agent_.Directory() / TestAgent::kModels},
            {"$DATA", agent_.Directory() / TestAgent::kData},
            {"$INI", agent_.Directory() / TestAgent::kIni}};
        for (const auto& [name, path] : places) {
            for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name)) {
                text.replace(at, name.size(), path);
            }
        }
        return text;
    }

    /// Same values of the same kinds under the same names in the same order; "$ANY" is any value, "$NOW" a
    /// time since the case began.
    [[nodiscard]] bool Matches(const Json& expected, const Json& actual) const {
        if (expected == "$ANY") {
            return true;
        }
        if (expected == "$NOW") {
            return actual.is_number_integer() && actual >= begun_ && actual <= std::time(nullptr);
        }
        if (expected.is_string() && actual.is_string()) {
            return Fill(expected) == actual;
        }
        if (!expected.is_structured() || expected.type() != actual.type()) {
            return expected.dump() == actual.dump();
        }
        const auto same = [this, &expected](const auto& left, const auto& right) {
            return (expected.is_array() || left.key() == right.key()) && Matches(left.value(), right.value());
        };
        auto left = expected.items().begin();
        auto right = actual.items().begin();
        if (expected.size() != actual.size()) {
            return false;
        }
        for (std::size_t i = 0; i < expected.size(); ++i, ++left, ++right) {
            if (!same(left, right)) {
                return false;
            }
        }
        return true;
    }

    void CheckEqual(const Json& expected, const Json& actual, const std::string& what) {
        Check(Matches(expected, actual), what + "\n  expected " + expected.dump() + "\n  is       " +
                                             actual.dump(-1, ' ', false, Json::error_handler_t::replace));
    }

    void Check(bool holds, const std::string& what) {
        if (!holds) {
            std::cout << name_ << ", " << where_ << ": " << what << "\n";
            ++failures_;
        }
    }

    const std::string name_;
    const std::filesystem::path models_;
    const Json content_;
    FileStoreStandIn store_;
    LoadedModule agent_;
    const std::time_t begun_;
    std::string where_;
    int failures_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    return RunProgram([&] {
        const auto cases = CasesFrom(argc, argv, 1, LUM_SOURCE_DIR "/tests/golden/cases");
        const auto bad =
            std::count_if(cases.begin(), cases.end(), [](const auto& path) { return !Case(path).Run(); });
        Require(bad == 0, std::to_string(bad) + " cases");
    });
}
