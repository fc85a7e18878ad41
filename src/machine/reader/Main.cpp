// lumjournal: reads the systemd journal for MachineEvents in a process of its own. The journal's files are
// read through memory maps, so whoever cuts or damages one in place ends the process that reads it: this one.
// Its standard input is the socket on which it is asked, and tells.

#include <csignal>
#include <cstdio>
#include <string_view>
#include <vector>

#include <sys/prctl.h>
#include <unistd.h>

#include "machine/journal/JournalFrame.h"
#include "machine/reader/JournalTeller.h"

namespace {

constexpr int kWrongUse = 2;

extern "C" void EndByCutFile(int /*signal*/) {
    ::_exit(kJournalCutStatus);
}

void PrepareProcess() {
    struct sigaction action {};
    action.sa_handler = EndByCutFile;
    ::sigaction(SIGBUS, &action, nullptr);
    // It ends when its peer does. The service manager's signal to end means the agent.
    ::signal(SIGTERM, SIG_IGN);
    ::signal(SIGINT, SIG_IGN);
    // What a damaged file brings about is not worth a core dump, which would be an entry of the journal
    // again.
    ::prctl(PR_SET_DUMPABLE, 0);
}

}  // namespace

int main(int argc, char** argv) {
    JournalQuestion question;
    if (!question.Read(std::vector<std::string_view>(argv + 1, argv + argc))) {
        std::fputs("This program belongs to the module MachineEvents, which starts it.\n", stderr);
        return kWrongUse;
    }
    PrepareProcess();
    JournalTeller(question, STDIN_FILENO).Run();
    ::_exit(0);
}
