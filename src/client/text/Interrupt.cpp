#include "client/text/Interrupt.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void NoteInterrupt(int /*signal*/) {
    interrupted = 1;
}

void SetAction(void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    static_cast<void>(sigaction(SIGINT, &action, nullptr));  // SIGINT is a signal that can be caught
}

}  // namespace

InterruptScope::InterruptScope() {
    interrupted = 0;
    SetAction(NoteInterrupt, static_cast<int>(SA_RESETHAND | SA_RESTART));
}

InterruptScope::~InterruptScope() {
    SetAction(SIG_DFL, 0);
}

bool InterruptScope::WasInterrupted() {
    return interrupted != 0;
}
