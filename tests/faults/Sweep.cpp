// Everyday work on a machine that fails: for every call that the work makes to the file system, the process
// is killed there, or the call and those after it find no room, or it fails once, or no file can be opened.
// Then all is well again, and the same process, or the next one after a kill, goes on. Every event that was
// there or whose creation was answered with 0 must have reached the outbox, none more than twice and then in
// two files that are the same, nothing may be left to be sent, and every action must work.
//
//     Sweep kill|room|broken|files [STRIDE]

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "events/UploadBacklog.h"
#include "host/time/LumTime.h"
#include "support/ModulePair.h"
#include "support/Sqlite.h"
#include "support/TempDirectory.h"
#include "support/shim/FaultPlan.h"

namespace {

namespace fs = std::filesystem;
using Kind = FaultPlan::Kind;

struct Disturbance {
    const char* name;
    Kind kind;
    uint64_t length;
};
constexpr Disturbance kDisturbances[] = {{"kill", Kind::kKill, 1},
                                         {"room", Kind::kNoRoom, FaultPlan::kForEver},
                                         {"broken", Kind::kBroken, 1},
                                         {"files", Kind::kNoFiles, 1}};

constexpr int kOldEvents = 230;
constexpr LumSeconds kOldEnd = 2000;

/// What a process left on its way, in memory that outlives it.
struct Account {
    FaultPlan plan;
    std::atomic<int32_t> created{0};  ///< events whose creation was answered with 0
    std::atomic<bool> recovered{false};
};

/// The work that is disturbed.
void Work(Account& account) {
    for (int i = 0; i < 2; ++i) {
        if (ModulePair::Create("Logon", "new" + std::to_string(account.created))) {
            ++account.created;
        }
    }
    ModulePair::UploadAndPurge("Logon", kOldEnd);
    static_cast<void>(ModulePair::Alert("disturbed"));
    TestAgent::CallWith("EventLogManagerSetValues", R"({"AlertMinimumGap":30})");
}

/// What has to work once all is well; with nothing left to do at the end.
void Recover(Account& account) {
    ModulePair::RunCycle();
    ModulePair::UploadAndPurge("Logon", kOldEnd);
    ModulePair::UploadAndPurge("Logon", LumNow() + 1);
    Require(UploadBacklog.GetOutstanding().empty(), "something is outstanding");
    Require(ModulePair::Create("Logon", "last"), "an event is refused");
    Require(ModulePair::Alert("recovered"), "an alert is refused");
    Require(TestAgent::CallWith("EventLogManagerSetValues", R"({"AlertMinimumGap":31})") == 0,
            "settings are refused");
    Require(TestAgent::Call("EventLogManagerGetValues", "").container.find(":31") != std::string::npos,
            "settings are not kept");
    account.recovered = true;
}

/// Runs `life` in a process of its own; its status.
int Live(const std::function<void()>& life) {
    std::fflush(nullptr);
    const pid_t child = fork();
    Require(child >= 0, "fork");
    if (child == 0) {
        const int silence = open("/dev/null", O_WRONLY);
        dup2(silence, STDERR_FILENO);
        try {
            life();
        } catch (const std::exception& error) {
            std::printf("%s\n", error.what());
            std::fflush(stdout);
            _exit(1);
        }
        _exit(0);
    }
    int status = 0;
    Require(waitpid(child, &status, 0) == child, "wait");
    return status;
}

class Sweep {
public:
    Sweep() {
        void* const place =
            mmap(nullptr, sizeof(Account), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        Require(place != MAP_FAILED, "shared memory");
        account_ = new (place) Account;
        Require(Live([this] { Prepare(); }) == 0, "prepare");
    }

    /// Tries one call; false where the work has no such call.
    [[nodiscard]] bool Try(const Disturbance& disturbance, uint64_t nth) {
        fs::remove_all(agent_);
        fs::copy(scratch_.Path() / "template", agent_, fs::copy_options::recursive);
        account_->created = 0;
        account_->recovered = false;
        const int status = Live([&] {
            const ModulePair modules(agent_);
            account_->plan.Watch((agent_ / "data").string());
            FaultShimUse(&account_->plan);
            account_->plan.Arm(disturbance.kind, nth, disturbance.length);
            Work(*account_);
            account_->plan.Disarm();
            Recover(*account_);
        });
        const uint64_t calls = account_->plan.Disarm();
        const std::string where = std::string(disturbance.name) + " at call " + std::to_string(nth);
        if (WIFSIGNALED(status)) {
            Require(WTERMSIG(status) == SIGKILL, where + ": it crashed");
            Require(Live([&] {
                        const ModulePair modules(agent_);
                        Recover(*account_);
                    }) == 0,
                    where + ": it does not recover (" + agent_.string() + ")");
        }
        Require(account_->recovered, where + ": it does not go on (" + agent_.string() + ")");
        Check(where);
        return nth <= calls;
    }

private:
    void Prepare() const {
        const fs::path place = scratch_.Path() / "template";
        ModulePair::Prepare(place, {.name = "Logon", .params = {{.name = "User"}}});
        const ModulePair modules(place);
        Sqlite(place / TestAgent::kDatabase)
            .Run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                 std::to_string(kOldEvents) +
                 ") INSERT INTO Event_Logon SELECT NULL, i, 0, 0, 0, 'old' || i FROM n");
    }

    void Check(const std::string& where) const {
        auto sent = SentEvents(agent_);
        std::set<std::string> wanted;
        for (int i = 1; i <= kOldEvents; ++i) {
            wanted.insert("old" + std::to_string(i));
        }
        for (int i = 0; i < account_->created; ++i) {
            wanted.insert("new" + std::to_string(i));
        }
        for (const std::string& user : wanted) {
            const std::vector<std::string>& files = sent[user];
            Require(!files.empty(), where + ": " + user + " was never sent (" + agent_.string() + ")");
            Require(files.size() == 1 || (files.size() == 2 && files[0] == files[1]),
                    where + ": " + user + " was sent more often (" + agent_.string() + ")");
        }
    }

    const TempDirectory scratch_;
    const fs::path agent_ = scratch_.Path() / "agent";
    Account* account_;
};

}  // namespace

int main(int argc, char** argv) {
    const std::string_view wanted = argc > 1 ? argv[1] : "";
    const auto* const disturbance =
        std::find_if(std::begin(kDisturbances), std::end(kDisturbances),
                     [wanted](const Disturbance& one) { return wanted == one.name; });
    const uint64_t stride = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    if (disturbance == std::end(kDisturbances) || stride == 0) {
        std::fprintf(stderr, "usage: Sweep kill|room|broken|files [STRIDE]\n");
        return 2;
    }
    try {
        Sweep sweep;
        uint64_t nth = 1;
        for (; sweep.Try(*disturbance, nth); nth += stride) {
        }
        std::printf("%s: %lu calls, each %lu.\n", disturbance->name, static_cast<unsigned long>(nth),
                    static_cast<unsigned long>(stride));
    } catch (const std::exception& error) {
        std::printf("failed: %s\n", error.what());
        return 1;
    }
    return 0;
}
