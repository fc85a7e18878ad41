// Random histories: any actions in any order, with definitions dropped, reloads, jumps of the clock, cycles
// of both threads, restarts and kills. After each step the module's answers, memory, database and files must
// be what the rules of Reference.h make of the same steps. A history is its seed. Of one that goes wrong
// steps are left out for as long as it does, and the rest is printed.
//
//     Histories [COUNT [SEED [STEPS]]]

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "simulation/World.h"
#include "support/TempDirectory.h"

namespace {

/// 2026-02-27, 22:50 UTC: hours, days and a month are about to end.
constexpr int64_t kBegin = 1772232600;

constexpr std::array<unsigned, kStepNames.size()> kWeights = {40, 10, 4, 1, 6, 3, 4, 3, 4, 4, 12, 8, 8, 2, 2};

/// What the processes of a history leave each other. In memory that they share.
struct Account {
    std::size_t at = 0;  ///< the step that was begun last
    char error[1024]{};  ///< what is wrong; empty where nothing is
};

Account& TheAccount() {
    static Account* const account = [] {
        void* const place =
            mmap(nullptr, sizeof(Account), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        Require(place != MAP_FAILED, "shared memory");
        return new (place) Account;
    }();
    return *account;
}

}  // namespace

std::atomic<int64_t> clockShows{kBegin};

/// The clock of the whole process.
extern "C" __attribute__((visibility("default"))) std::time_t time(std::time_t* place) noexcept {
    const std::time_t now = clockShows;
    if (place != nullptr) {
        *place = now;
    }
    return now;
}

namespace {

std::vector<Step> MakeHistory(uint64_t seed, std::size_t length) {
    std::mt19937_64 random(seed);
    std::discrete_distribution<int> pick(kWeights.begin(), kWeights.end());
    std::vector<Step> steps;
    // Something to begin with.
    for (uint32_t i = 0; i < 5; ++i) {
        steps.push_back({Step::Kind::kDrop, {i}});
    }
    steps.push_back({Step::Kind::kReload, {}});
    while (steps.size() < length) {
        Step step{static_cast<Step::Kind>(pick(random)), {}};
        for (uint32_t& number : step.numbers) {
            number = static_cast<uint32_t>(random());
        }
        steps.push_back(step);
    }
    return steps;
}

/// Lives the history from step `from` on, up to its end or to the step that kills the process. The steps
/// before it were done by processes that are gone.
void LiveFrom(const std::vector<Step>& steps, std::size_t from, const std::filesystem::path& place) {
    Account& account = TheAccount();
    try {
        World world(place, from == 0);
        for (std::size_t i = 0; i < steps.size(); ++i) {
            if (i + 1 == from) {
                world.BeLive();  // the step is the kill, and starts the module again
            }
            if (i >= from) {
                account.at = i;
                if (steps[i].kind == Step::Kind::kKill) {
                    raise(SIGKILL);
                }
            }
            world.Do(steps[i]);
        }
    } catch (const std::exception& error) {
        std::snprintf(account.error, sizeof account.error, "step %zu: %s", account.at + 1, error.what());
    }
}

/// What is wrong with the history, and at which step; empty where nothing is.
std::string Live(const std::vector<Step>& steps) {
    const TempDirectory scratch;
    Account& account = TheAccount();
    account = {};
    for (std::size_t from = 0;; from = account.at + 1) {
        std::fflush(nullptr);
        const pid_t process = fork();
        Require(process >= 0, "fork");
        if (process == 0) {
            LiveFrom(steps, from, scratch.Path());
            std::exit(0);  // NOLINT(concurrency-mt-unsafe): it has one thread
        }
        int status = 0;
        Require(waitpid(process, &status, 0) == process, "wait");
        const bool wasKilled = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        if (!wasKilled) {
            return status == 0 ? account.error
                               : "step " + std::to_string(account.at + 1) + ": the process failed";
        }
    }
}

/// Leaves steps out for as long as the history goes wrong.
std::vector<Step> Shrink(std::vector<Step> steps) {
    for (std::size_t length = steps.size() / 2; length > 0; length /= 2) {
        for (std::size_t from = 0; from < steps.size();) {
            std::vector<Step> shorter = steps;
            const auto begin = shorter.begin() + static_cast<std::ptrdiff_t>(from);
            shorter.erase(begin, begin + static_cast<std::ptrdiff_t>(std::min(length, steps.size() - from)));
            if (Live(shorter).empty()) {
                from += length;
            } else {
                steps = std::move(shorter);
            }
        }
    }
    return steps;
}

void Report(uint64_t seed, const std::vector<Step>& steps) {
    const std::vector<Step> shortest = Shrink(steps);
    std::printf("seed %lu, %s\n", static_cast<unsigned long>(seed), Live(shortest).c_str());
    for (const Step& step : shortest) {
        std::printf("  %s", kStepNames[static_cast<std::size_t>(step.kind)]);
        for (const uint32_t number : step.numbers) {
            std::printf(" %u", number);
        }
        std::printf("\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    const uint64_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100;
    const uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    const std::size_t length = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 80;
    setenv("TZ", "UTC", 1);
    tzset();
    uint64_t bad = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const std::vector<Step> steps = MakeHistory(seed + i, length);
        if (!Live(steps).empty()) {
            ++bad;
            Report(seed + i, steps);
        }
    }
    std::printf("%lu histories of %zu steps, %lu of them bad.\n", static_cast<unsigned long>(count), length,
                static_cast<unsigned long>(bad));
    return bad == 0 ? 0 : 1;
}
