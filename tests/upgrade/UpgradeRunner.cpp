#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "BuildPaths.h"
#include "UpgradeFixture.h"
#include "support/FileStoreStandIn.h"
#include "support/LoadedModule.h"
#include "support/Program.h"

// Starts the module on a machine that an earlier release has left behind and compares what was there before,
// what the start said, and what was there afterwards with the golden file of the case, NAME.golden beside
// NAME.json: upgrade_runner [CASE...], all of cases/ without an argument. With --write before the cases their
// files are made anew, for somebody to read.

namespace {

namespace fs = std::filesystem;

/// The text that a case comes to.
class Report {
public:
    explicit Report(const fs::path& agent) : agent_(agent) {}

    void Add(const std::string& title, const std::vector<std::string>& lines) {
        text_ += "== " + title + "\n";
        for (const std::string& line : lines) {
            text_ += WithoutPlace(line) + "\n";
        }
    }
    void AddState(const std::string& when) {
        Add("rows " + when, UpgradeFixture::Dump(UpgradeFixture::DatabaseOf(agent_)));
        Add("files " + when, UpgradeFixture::Files(agent_));
    }
    [[nodiscard]] const std::string& Text() const { return text_; }

private:
    [[nodiscard]] std::string WithoutPlace(std::string line) const {
        const std::string place = agent_.string() + "/";
        for (std::size_t at = line.find(place); at != std::string::npos; at = line.find(place)) {
            line.erase(at, place.size());
        }
        // The statements are long, and what they do shows in the rows.
        return line.substr(0, line.find(" in statement: "));
    }

    const fs::path agent_;
    std::string text_;
};

/// Definition files are taken in the order of their directory, which is sorted here.
std::vector<std::string> Sorted(std::vector<std::string> lines) {
    const auto isOnAFile = [](const std::string& line) {
        return line.find(" LoadModel: ") != std::string::npos ||
               line.find(" LoadUnregisteredModels: ") != std::string::npos ||
               line.find(" RegisterModel: ") != std::string::npos;
    };
    for (auto from = lines.begin(); from != lines.end();) {
        from = std::find_if(from, lines.end(), isOnAFile);
        const auto to = std::find_if_not(from, lines.end(), isOnAFile);
        std::sort(from, to);
        from = to;
    }
    return lines;
}

/// How the copies beside the database compare with what the database held.
std::vector<std::string> CopiesIn(const fs::path& agent, const std::vector<std::string>& before) {
    std::vector<std::string> lines;
    for (const fs::directory_entry& entry : fs::directory_iterator(agent / "data/EventLogManager")) {
        const std::string name = entry.path().filename();
        if (name.starts_with("EventLogManager-") && name.ends_with(".sqlite3")) {
            const bool same = UpgradeFixture::Dump(entry.path()) == before;
            lines.push_back(name + (same ? ": as before" : ": as before but for what is filled in:"));
            if (!same) {
                for (const std::string& line : UpgradeFixture::Dump(entry.path())) {
                    if (std::find(before.begin(), before.end(), line) == before.end()) {
                        lines.push_back(line);
                    }
                }
            }
        }
    }
    return lines;
}

std::string Run(const fs::path& description) {
    const FileStoreStandIn store;
    LoadedModule agent;
    const fs::path place = agent.Directory().Path();
    UpgradeFixture(description).Place(place);
    Report report(place);
    report.AddState("before");
    const std::vector<std::string> before = UpgradeFixture::Dump(UpgradeFixture::DatabaseOf(place));
    agent.Start();
    report.Add("said", Sorted(agent.Log().Said()));
    report.AddState("after");
    report.Add("copies", CopiesIn(place, before));
    agent.Stop();
    agent.Log().Forget();
    const std::vector<std::string> after = UpgradeFixture::Dump(UpgradeFixture::DatabaseOf(place));
    agent.Start();
    report.Add("said by the next start", Sorted(agent.Log().Said()));
    const bool same = UpgradeFixture::Dump(UpgradeFixture::DatabaseOf(place)) == after;
    report.Add("rows after the next start", {same ? "the same" : "others"});
    return report.Text();
}

/// False, after a text that says why, where a case is not as its golden file says.
bool Check(const fs::path& description, bool writes) {
    const fs::path golden = fs::path(description).replace_extension(".golden");
    const std::string text = Run(description);
    if (writes) {
        std::ofstream(golden) << text;
    } else if (text != ReadWholeFile(golden)) {
        std::cout << "not as in " << golden.string() << ":\n" << text;
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const bool writes = argc > 1 && std::string_view(argv[1]) == "--write";
    return RunProgram([&] {
        const auto cases = CasesFrom(argc, argv, writes ? 2 : 1, LUM_SOURCE_DIR "/tests/upgrade/cases");
        const auto bad = std::count_if(cases.begin(), cases.end(),
                                       [writes](const fs::path& one) { return !Check(one, writes); });
        Require(bad == 0, std::to_string(bad) + " cases");
    });
}
