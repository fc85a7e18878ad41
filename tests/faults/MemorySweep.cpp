// Work without memory: every action of the module, the tasks of its threads, its start and its end, each done
// again and again on a machine of its own, and each time another one of the blocks of memory that the work
// asks for cannot be had, those that SQLite asks for included. The work may fail, or do without; it must not
// crash, keep a lock or do half of what it does: memory, database and files agree, the same work succeeds
// afterwards, and nothing is lost whose storing was answered with 0. Under the address sanitizer nothing may
// leak either.
//
//     MemorySweep [STRIDE [WORK [FIRST]]]

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

#include <unistd.h>

#include "MemoryWork.h"
#include "support/MemoryFault.h"
#include "support/Program.h"
#include "support/SqliteMemory.h"
#include "support/TempDirectory.h"

namespace {

namespace fs = std::filesystem;

/// What is tried, for whoever finds that it crashed.
char place[128] = "";

void SayWhere(int signal) {
    static_cast<void>(write(STDOUT_FILENO, place, std::strlen(place)));
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

class Sweep {
public:
    Sweep() { PrepareMachine(template_); }

    /// Tries one block; false where the work does not ask for so many.
    [[nodiscard]] bool Try(const Work& work, uint64_t turn) const {
        std::snprintf(place, sizeof(place), "crashed: %s without block %lu\n", work.name,
                      static_cast<unsigned long>(turn));
        fs::remove_all(agent_);
        fs::copy(template_, agent_, fs::copy_options::recursive);
        const Machine machine(agent_);
        try {
            if (work.onStarted) {
                LinkedModule::Initialise();
            }
            work.run(machine, turn);
            asked_ = MemoryFault::Count();
            CheckRegistry(machine.Module());
            CheckActions();
        } catch (const std::exception& error) {
            throw std::runtime_error(std::string(work.name) + " without block " + std::to_string(turn) +
                                     ": " + error.what());
        }
        return turn <= asked_;
    }
    /// How many blocks the work tried last has asked for.
    [[nodiscard]] uint64_t Asked() const { return asked_; }

private:
    const TempDirectory scratch_;
    const fs::path template_ = scratch_.Path() / "template";
    const fs::path agent_ = scratch_.Path() / "agent";
    mutable uint64_t asked_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGABRT, SayWhere);
    std::signal(SIGSEGV, SayWhere);
    const uint64_t stride = CountFrom(argc, argv, 1);
    const std::string wanted = argc > 2 ? argv[2] : "";
    const uint64_t first = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 1;
    return RunProgram([&] {
        LetSqliteRunOut();
        const Sweep sweep;
        for (const Work& work : AllWork()) {
            if (!wanted.empty() && wanted != work.name) {
                continue;
            }
            uint64_t turn = first;
            while (sweep.Try(work, turn)) {
                turn += stride;
            }
            std::printf("%s: %lu blocks, each %lu.\n", work.name, static_cast<unsigned long>(sweep.Asked()),
                        static_cast<unsigned long>(stride));
            std::fflush(stdout);
        }
    });
}
