// Upgrades that are disturbed. For every machine that an earlier release left behind, and for every call that
// SQLite makes during the start that upgrades it: the process is killed at that call, or the call fails once.
// With "files" it is every call of the process that opens a file, for which there is no descriptor. Then the
// module is started again, undisturbed. Every event that an undisturbed upgrade keeps must be there, all of a
// model's in one table, and every database file whole.
//
//     Upgrade [kill|full|io|sync|files [STRIDE [CASE...]]]
//     Upgrade power STATES [CASE...]
//
// Only every so many-th call is tried, from another one on in each case; 1 leaves none out. A CASE is a file.
// "power" starts on so many states that a loss of power during the start may leave.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BuildPaths.h"
#include "support/DiskStates.h"
#include "support/FaultVfs.h"
#include "support/LoadedModule.h"
#include "support/Program.h"
#include "support/shim/DiskRecord.h"
#include "support/shim/FaultPlan.h"
#include "upgrade/UpgradeFixture.h"

namespace {

namespace fs = std::filesystem;
using Call = FaultVfs::Call;

/// For the process that starts.
FaultPlan plan;

/// One way to disturb a start.
struct Disturbance {
    const char* name;
    /// Has the `nth` call fail; with 0 calls are counted and none does.
    std::function<void(FaultVfs&, uint64_t)> arrange;
    /// How many calls there were.
    std::function<uint64_t(const FaultVfs&)> count;
};

/// The same for calls of one kind that SQLite makes.
Disturbance OfSqlite(const char* name, Call call, int code) {
    return {name, [=](FaultVfs& vfs, uint64_t nth) { vfs.FailCall(call, nth, code); },
            [=](const FaultVfs& vfs) { return vfs.CountCalls(call); }};
}

const Disturbance kDisturbances[] = {
    {"kill", [](FaultVfs& vfs, uint64_t nth) { vfs.KillAtCall(Call::kAny, nth); },
     [](const FaultVfs& vfs) { return vfs.CountCalls(Call::kAny); }},
    OfSqlite("full", Call::kWrite, SQLITE_FULL),
    OfSqlite("io", Call::kWrite, SQLITE_IOERR_WRITE),
    OfSqlite("sync", Call::kSync, SQLITE_IOERR_FSYNC),
    {"files",
     [](FaultVfs& /*vfs*/, uint64_t nth) {
         FaultShimUse(&plan);
         plan.Arm(FaultPlan::Kind::kNoFiles, nth);
     },
     [](const FaultVfs& /*vfs*/) { return plan.Disarm(); }},
};

/// Starts and ends the module in a process of its own, on the agent's directories at `agent`. The status is
/// that of the process; how many calls there were is left in the file `calls`. Nothing is disturbed without a
/// disturbance.
int StartOnce(const fs::path& agent, const Disturbance* disturbance = nullptr, uint64_t nth = 0) {
    std::fflush(nullptr);
    const pid_t process = fork();
    Require(process >= 0, "fork");
    if (process == 0) {
        const int silence = open("/dev/null", O_WRONLY);
        dup2(silence, STDERR_FILENO);
        FaultVfs vfs;
        LoadedModule module(agent);
        module.Load();
        if (disturbance != nullptr) {
            plan.Watch((agent / "").string(), (agent / "log").string());
            disturbance->arrange(vfs, nth);
        }
        module.Initialise();
        if (disturbance != nullptr) {
            const uint64_t calls = disturbance->count(vfs);
            std::ofstream(agent / "calls") << calls;
        }
        module.Stop();
        std::_Exit(0);
    }
    int status = 0;
    Require(waitpid(process, &status, 0) == process, "wait");
    return status;
}

/// The tables that the events of one model may be in, under the name of the model's own.
std::string FamilyOf(const std::string& table) {
    static const std::map<std::string, std::string> transitional = {
        {"Event_Temp", "Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_"},
        {"Event_ProhibitedAppTemp", "Event__EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_"},
        {"Event_MonitoredAppTemp", "Event__EVENTLOG_MODELNAME_MONITOREDAPPLICATION_"}};
    const auto found = transitional.find(table);
    if (found != transitional.end()) {
        return found->second;
    }
    return table.ends_with("Temp") ? table.substr(0, table.size() - 4) : table;
}

bool Holds(const UpgradeFixture::Events& all, const UpgradeFixture::Events& some) {
    return std::includes(all.begin(), all.end(), some.begin(), some.end());
}

/// One machine, upgraded again and again.
class Machine {
public:
    explicit Machine(const fs::path& description) : name_(description.stem()) {
        const UpgradeFixture fixture(description);
        fixture.Place(scratch_.Path() / "machine");
        before_ = UpgradeFixture::EventsIn(UpgradeFixture::DatabaseOf(scratch_.Path() / "machine"));
    }

    /// How many calls an undisturbed start makes. Remembers which events it keeps, and together.
    uint64_t Count(const Disturbance& disturbance) {
        Reset();
        Expect(StartOnce(agent_, &disturbance) == 0, "an undisturbed start works");
        RememberUndisturbed();
        return std::stoull(ReadWholeFile(agent_ / "calls"));
    }

    /// Writes down what an undisturbed start does.
    void Record() {
        Reset();
        states_.emplace(agent_);
        DiskRecordBegin(agent_.c_str(), 0);
        {
            LoadedModule module(agent_);
            module.Start();
        }
        std::vector<DiskCall> calls;
        DiskRecordEnd(&calls);
        states_->Take(std::move(calls), false);
        RememberUndisturbed();
    }

    void TryPowerCut(uint64_t seed) {
        where_ = "power, seed " + std::to_string(seed);
        std::mt19937_64 random(seed);
        fs::remove_all(agent_);
        const std::size_t count = random() % (states_->Calls().size() + 1);
        states_->Build(count, random(), agent_);
        Expect(StartOnce(agent_) == 0, "it starts again");
        CheckDatabase();
        CheckCopies();
    }

    void Try(const Disturbance& disturbance, uint64_t nth) {
        where_ = std::string(disturbance.name) + " at call " + std::to_string(nth);
        Reset();
        const int status = StartOnce(agent_, &disturbance, nth);
        Expect(status == 0 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL),
               "it goes on or is killed");
        Expect(StartOnce(agent_) == 0, "it starts again");
        CheckDatabase();
        CheckCopies();
    }

    [[nodiscard]] const std::string& Name() const { return name_; }

private:
    void Reset() const {
        fs::remove_all(agent_);
        fs::copy(scratch_.Path() / "machine", agent_, fs::copy_options::recursive);
    }

    void Expect(bool holds, const std::string& what) const {
        if (!holds) {
            std::printf("%s", ReadWholeFile(agent_ / "log").c_str());
        }
        // The directory stays, to be looked at.
        Require(holds, name_ + ", " + where_ + ": " + what + " (" + agent_.string() + ")");
    }

    void CheckDatabase() const {
        const fs::path database = UpgradeFixture::DatabaseOf(agent_);
        Expect(UpgradeFixture::Check(database) == "ok", "the database is whole");
        const auto now = UpgradeFixture::EventsIn(database);
        for (const auto& [kept, events] : kept_) {
            const std::string family = FamilyOf(kept);
            const auto holdsAll = [&family, &events = events](const auto& table) {
                return FamilyOf(table.first) == family && Holds(table.second, events);
            };
            Expect(std::any_of(now.begin(), now.end(), holdsAll) || WereGivenUp(family),
                   "all events of " + kept + " are in one table");
        }
    }

    /// Software distributions that could not be saved go with their old model; then the copy has to have
    /// them, or there was a second thing that failed.
    [[nodiscard]] bool WereGivenUp(const std::string& family) const {
        const std::string log = ReadWholeFile(agent_ / "log");
        const auto said = [&log](std::string_view text) { return log.find(text) != std::string::npos; };
        return family == "Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_" &&
               said("UpgradeSoftwareDistributionModelStep1: Failed to save old model informations") &&
               said("UpgradeRecord: The database of before the upgrade is kept in");
    }

    /// A copy is whole and has everything of before, from the moment when it has its name.
    void CheckCopies() const {
        for (const fs::directory_entry& entry : fs::directory_iterator(agent_ / "data/EventLogManager")) {
            const std::string name = entry.path().filename();
            Expect(!name.ends_with(".unfinished"), "no attempt to copy is left");
            if (!IsCopy(name)) {
                continue;
            }
            Expect(UpgradeFixture::Check(entry.path()) == "ok", "the copy is whole");
            // A start that finds the upgrade half done may make a second one, of the version reached so far.
            if (name == firstCopy_) {
                const auto copied = UpgradeFixture::EventsIn(entry.path());
                Expect(copied == before_, "the copy has every event");
            }
        }
    }

    /// Remembers what an undisturbed start keeps: the events, which of them together, and its copy.
    void RememberUndisturbed() {
        kept_ = UpgradeFixture::EventsIn(UpgradeFixture::DatabaseOf(agent_));
        for (const fs::directory_entry& entry : fs::directory_iterator(agent_ / "data/EventLogManager")) {
            if (IsCopy(entry.path().filename())) {
                firstCopy_ = entry.path().filename();
            }
        }
    }

    [[nodiscard]] static bool IsCopy(const std::string& name) {
        return name.starts_with("EventLogManager-") && name.ends_with(".sqlite3");
    }

    const TempDirectory scratch_;
    const fs::path agent_ = scratch_.Path() / "agent";
    const std::string name_;
    std::string where_ = "undisturbed";
    std::map<std::string, UpgradeFixture::Events> before_;
    std::map<std::string, UpgradeFixture::Events> kept_;
    std::string firstCopy_;  // its name; empty where none is made
    std::optional<DiskStates> states_;
};

void CutPower(uint64_t states, const std::vector<fs::path>& cases) {
    uint64_t seed = 0;
    for (const fs::path& description : cases) {
        Machine machine(description);
        machine.Record();
        for (uint64_t i = 0; i < states; ++i) {
            machine.TryPowerCut(++seed);
        }
    }
    std::printf("power: %lu states\n", static_cast<unsigned long>(seed));
    Require(seed > 0, "a state is tried");
}

void Disturb(const Disturbance& disturbance, uint64_t stride, const std::vector<fs::path>& cases) {
    uint64_t tried = 0;
    uint64_t offset = 0;
    for (const fs::path& description : cases) {
        Machine machine(description);
        const uint64_t calls = machine.Count(disturbance);
        for (uint64_t nth = 1 + offset++ % stride; nth <= calls; nth += stride) {
            machine.Try(disturbance, nth);
            ++tried;
        }
        std::printf("%s: %lu calls\n", machine.Name().c_str(), static_cast<unsigned long>(calls));
    }
    std::printf("%s: %lu starts were disturbed\n", disturbance.name, static_cast<unsigned long>(tried));
    Require(tried > 0, "a start is disturbed");
}

}  // namespace

int main(int argc, char** argv) {
    constexpr uint64_t kUsualStride = 449;
    const std::string_view wanted = argc > 1 ? argv[1] : "kill";
    const uint64_t number = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 0;
    if (wanted == "power" && number > 0) {
        return RunProgram(
            [&] { CutPower(number, CasesFrom(argc, argv, 3, LUM_SOURCE_DIR "/tests/upgrade/cases")); });
    }
    const auto* const disturbance =
        std::find_if(std::begin(kDisturbances), std::end(kDisturbances),
                     [wanted](const Disturbance& one) { return wanted == one.name; });
    const uint64_t stride = argc > 2 ? number : kUsualStride;
    if (disturbance == std::end(kDisturbances) || stride == 0) {
        std::fprintf(stderr,
                     "usage: Upgrade [kill|full|io|sync|files [STRIDE [CASE...]]] or Upgrade power "
                     "STATES [CASE...]\n");
        return 2;
    }
    return RunProgram([&] {
        Disturb(*disturbance, stride, CasesFrom(argc, argv, 3, LUM_SOURCE_DIR "/tests/upgrade/cases"));
    });
}
