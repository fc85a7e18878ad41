#include "agent/StartupReporter.h"

#include <chrono>
#include <mutex>

#include "agent/AgentSignals.h"
#include "agent/ServiceManager.h"
#include "host/core/LumStartup.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kNotifyGap(1);
constexpr std::chrono::seconds kLogGap(5);

struct Reporter {
    std::mutex mutex;
    // Guarded by mutex.
    LumDebug* debug = nullptr;
    Clock::time_point notified;
    Clock::time_point logged;
};

Reporter& TheReporter() {
    static Reporter reporter;
    return reporter;
}

void Report(const LumString& phrase) {
    Reporter& reporter = TheReporter();
    const std::lock_guard<std::mutex> guard(reporter.mutex);
    const Clock::time_point now = Clock::now();
    if (now - reporter.notified >= kNotifyGap) {
        reporter.notified = now;
        ExtendServiceTimeout(phrase);
    }
    if (now - reporter.logged >= kLogGap) {
        reporter.logged = now;
        reporter.debug->PrintWithNL("Still at work: %S", phrase);
    }
}

}  // namespace

void ReportStartupTo(LumDebug& debug) {
    {
        const std::lock_guard<std::mutex> guard(TheReporter().mutex);
        TheReporter().debug = &debug;
    }
    LumStartupSetHost({Report, AgentSignals::IsStopAsked});
}
