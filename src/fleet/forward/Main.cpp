#include <exception>
#include <iostream>

#include <malloc.h>

#include "fleet/forward/Forwarder.h"
#include "fleet/service/StatusServer.h"
#include "fleet/service/StopSignal.h"

namespace {

int RunForwarder(const ForwardSettings& settings) {
    // One heap for all threads: each of its own would keep what it freed, on every machine of the fleet.
    static_cast<void>(mallopt(M_ARENA_MAX, 1));
    // Each message is the last piece of the heap for a moment. Its end is neither to go back to the system
    // nor to have all small free pieces sorted, file by file.
    constexpr int kilobyte = 1024;
    static_cast<void>(mallopt(M_TRIM_THRESHOLD, 64 * kilobyte));
    static_cast<void>(mallopt(M_TOP_PAD, 16 * kilobyte));
    static_cast<void>(mallopt(M_MXFAST, 0));
    const StopSignal signals;
    ForwardState state;
    StatusServer server;
    std::string error;
    if (!server.Start(settings.listen,
                      {[&state] { return ForwardHealth(state); }, [&state] { return ForwardMetrics(state); }},
                      error)) {
        std::cerr << "lumforward: " << error << '\n';
        return 1;
    }
    Forwarder(settings, state).Run();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        ForwardSettings settings;
        const std::optional<int> status = ReadForwardSettings(argc, argv, settings);
        return status.has_value() ? *status : RunForwarder(settings);
    } catch (const std::exception& error) {
        std::cerr << "lumforward: " << error.what() << '\n';
        return 1;
    }
}
