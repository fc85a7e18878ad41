// Work on a machine that fails: for every call that the work makes to the file system, the process is killed
// there, or the call and those after it find no room, or it fails once, or no file can be opened. Then all is
// well again, and the same process, or the next one after a kill, goes on. Every event that was there or
// whose creation was answered with 0 must have reached the outbox, none more than twice and then in two files
// that are the same, nothing may be left to be sent, every model must live, and every action must work.
//
//     Sweep [day|start|first-start|reload|delete|aggregation kill|room|broken|files [STRIDE]]
//
// Without arguments every kind of work is disturbed in every way, here and there.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "SweepScenes.h"
#include "support/EndChild.h"
#include "support/ModulePair.h"
#include "support/TempDirectory.h"
#include "support/TestAgent.h"

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
            EndChild(1);
        }
        EndChild(0);
    }
    int status = 0;
    Require(waitpid(child, &status, 0) == child, "wait");
    return status;
}

class Sweep {
public:
    explicit Sweep(const Scene& scene) : scene_(scene) {
        void* const place =
            mmap(nullptr, sizeof(Account), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        Require(place != MAP_FAILED, "shared memory");
        account_ = new (place) Account;
        Require(Live([this] { PrepareMachine(scene_, template_); }) == 0, "prepare");
        if (scene_.prepare != nullptr) {
            Require(Live([this] { scene_.prepare(template_); }) == 0, "prepare further");
        }
    }

    /// Tries one call; false where the work has no such call.
    [[nodiscard]] bool Try(const Disturbance& disturbance, uint64_t nth) {
        fs::remove_all(agent_);
        fs::copy(template_, agent_, fs::copy_options::recursive);
        account_->created = 0;
        account_->recovered = false;
        const int status = Live([&] { LiveDisturbed(disturbance, nth); });
        const uint64_t calls = account_->plan.Disarm();
        const std::string where =
            std::string(scene_.name) + ", " + disturbance.name + " at call " + std::to_string(nth);
        if (WIFSIGNALED(status)) {
            Require(WTERMSIG(status) == SIGKILL, where + ": it crashed");
            Require(Live([&] {
                        const ModulePair modules(agent_);
                        Recover(agent_, *account_);
                    }) == 0,
                    where + ": it does not recover (" + agent_.string() + ")");
        }
        Require(account_->recovered, where + ": it does not go on (" + agent_.string() + ")");
        Check(where);
        return nth <= calls;
    }

private:
    void LiveDisturbed(const Disturbance& disturbance, uint64_t nth) const {
        const auto disturb = [&] {
            for (const std::string& model : scene_.drops) {
                DropDefinition(agent_, model);
            }
            account_->plan.Watch((agent_ / "").string(), (agent_ / "log").string());
            FaultShimUse(&account_->plan);
            account_->plan.Arm(disturbance.kind, nth, disturbance.length);
        };
        const ModulePair modules(agent_, scene_.withStart ? disturb : std::function<void()>());
        if (!scene_.withStart) {
            disturb();
        }
        scene_.work(*account_);
        account_->plan.Disarm();
        Recover(agent_, *account_);
    }

    void Check(const std::string& where) const {
        auto sent = SentEvents(agent_);
        std::set<std::string> wanted;
        for (int i = 1; i <= (scene_.isFirstStart ? 0 : kOldEvents); ++i) {
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

    const Scene& scene_;
    const TempDirectory scratch_;
    const fs::path template_ = scratch_.Path() / "template";
    const fs::path agent_ = scratch_.Path() / "agent";
    Account* account_;
};

void RunSweep(const Scene& scene, const Disturbance& disturbance, uint64_t stride) {
    Sweep sweep(scene);
    uint64_t nth = 1;
    for (; sweep.Try(disturbance, nth); nth += stride) {
    }
    std::printf("%s, %s: %lu calls, each %lu.\n", scene.name, disturbance.name,
                static_cast<unsigned long>(nth), static_cast<unsigned long>(stride));
}

}  // namespace

int main(int argc, char** argv) {
    constexpr uint64_t usualStride = 20;
    const std::string_view work = argc > 1 ? argv[1] : "";
    const std::string_view wanted = argc > 2 ? argv[2] : "";
    const uint64_t stride = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : argc > 1 ? 1 : usualStride;
    bool isKnown = false;
    try {
        for (const Scene* scene = kScenes; scene->name != nullptr && stride > 0; ++scene) {
            for (const Disturbance& disturbance : kDisturbances) {
                if (argc == 1 || (work == scene->name && wanted == disturbance.name)) {
                    RunSweep(*scene, disturbance, stride);
                    isKnown = true;
                }
            }
        }
    } catch (const std::exception& error) {
        std::printf("failed: %s\n", error.what());
        return 1;
    }
    if (!isKnown) {
        std::fprintf(stderr,
                     "usage: Sweep [day|start|first-start|reload|delete|aggregation kill|room|broken|files "
                     "[STRIDE]]\n");
        return 2;
    }
    return 0;
}
