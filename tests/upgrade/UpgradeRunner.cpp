#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "UpgradeFixture.h"
#include "golden/ScratchAgent.h"

// Starts the module on a machine that an earlier release has left behind and compares what was there before,
// what the start said, and what was there afterwards with the golden file of the case, NAME.golden beside
// NAME.json. With --write the file is made anew, for somebody to read.

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

/// Without what is traced. Definition files are taken in the order of their directory, which is sorted here.
std::vector<std::string> Said(std::vector<std::string> lines) {
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("trace "); });
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

std::string Run(const std::string& modulePath, const fs::path& description) {
    ScratchAgent agent(modulePath);
    const fs::path place = agent.Directory().Path();
    UpgradeFixture(description).Place(place);
    Report report(place);
    report.AddState("before");
    const std::vector<std::string> before = UpgradeFixture::Dump(UpgradeFixture::DatabaseOf(place));
    agent.Start();
    report.Add("said", Said(agent.TakeLog().module));
    report.AddState("after");
    report.Add("copies", CopiesIn(place, before));
    agent.Stop();
    const std::vector<std::string> after = UpgradeFixture::Dump(UpgradeFixture::DatabaseOf(place));
    agent.Start();
    report.Add("said by the next start", Said(agent.TakeLog().module));
    const bool same = UpgradeFixture::Dump(UpgradeFixture::DatabaseOf(place)) == after;
    report.Add("rows after the next start", {same ? "the same" : "others"});
    return report.Text();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: upgrade_runner MODULE CASE [--write]\n";
        return 2;
    }
    try {
        const fs::path golden = fs::path(argv[2]).replace_extension(".golden");
        const std::string text = Run(argv[1], argv[2]);
        if (argc > 3) {
            std::ofstream(golden) << text;
            return 0;
        }
        if (text == ReadWholeFile(golden)) {
            return 0;
        }
        std::cout << "not as in " << golden.string() << ":\n" << text;
    } catch (const std::exception& error) {
        std::cout << error.what() << "\n";
    }
    return 1;
}
