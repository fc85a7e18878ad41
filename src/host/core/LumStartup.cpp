#include "host/core/LumStartup.h"

#include <atomic>

namespace {

std::atomic<void (*)(const LumString&)> reportTo = nullptr;
std::atomic<bool (*)()> askForStop = nullptr;

}  // namespace

void LumStartupReport(const LumString& phrase) {
    if (const auto report = reportTo.load()) {
        report(phrase);
    }
}

bool LumStopRequested() {
    const auto isStopRequested = askForStop.load();
    return isStopRequested != nullptr && isStopRequested();
}

void LumStartupSetHost(const LumStartupHost& host) {
    reportTo = host.report;
    askForStop = host.isStopRequested;
}
