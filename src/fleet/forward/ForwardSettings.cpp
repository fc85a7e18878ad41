#include "fleet/forward/ForwardSettings.h"

#include <iostream>

#include "contract/FileStore.h"
#include "fleet/service/ProgramOptions.h"
#include "fleet/wire/BatchKey.h"
#include "host/file/LumFile.h"

namespace {

constexpr int kWrongCommandLine = 2;
constexpr char kMachineIdPath[] = "/etc/machine-id";
constexpr std::size_t kMaxMachineIdBytes = 256;

bool ReadMachineId(std::string& device, std::string& error) {
    LumString reason;
    if (!FileRead(kMachineIdPath, kMaxMachineIdBytes, device, reason)) {
        error = std::string(kMachineIdPath) + ": " + std::string(reason.View());
        return false;
    }
    device.resize(std::min(device.find('\n'), device.size()));
    return true;
}

bool Complete(ForwardSettings& settings, std::string& error) {
    if (settings.device.empty() && !ReadMachineId(settings.device, error)) {
        error += "; name the device with --device";
        return false;
    }
    if (!IsDeviceName(settings.device)) {
        error =
            "The device is called '" + settings.device + "'; a name has 1 to 64 letters, digits, '_' and '-'";
        return false;
    }
    if (settings.stateFile.empty()) {
        settings.stateFile = settings.outbox + "/" + kForwarderStateName;
    }
    std::vector<std::string> servers;
    return CheckServers(settings.broker, servers, error);
}

}  // namespace

std::optional<int> ReadForwardSettings(int argc, const char* const* argv, ForwardSettings& settings) {
    ProgramOptions options(
        "Sends what the agent's outbox holds to the broker, and keeps it until it is stored", "lumforward",
        "Forward");
    options.Add("--outbox", settings.outbox, "DIR", "The agent's outbox");
    options.Add("--device", settings.device, "NAME", "Name of this device (default: the machine's id)");
    options.Add("--state-file", settings.stateFile, "FILE",
                "Where the state is written for others (default: .lumforward.json in the outbox)");
    options.Add("--listen", settings.listen, "HOST:PORT", "Loopback address of /health and /metrics");
    options.Add("--window", settings.window, 1, 10'000, "Batches under way without an acknowledgement");
    options.Add("--max-unconfirmed", settings.maxUnconfirmed, 1, 1'000'000, "Batches sent without a receipt");
    options.Add("--ask-after", settings.askAfterSeconds, 1, 86'400,
                "Seconds without a receipt after which it is asked for");
    options.Add("--retry-first-ms", settings.retryFirstMs, 10, 3'600'000,
                "Longest wait before the second attempt to reach the broker");
    options.Add("--retry-last-ms", settings.retryLastMs, 10, 3'600'000,
                "What that wait grows to, doubled with each failure");
    options.AddBroker(settings.broker);
    if (const std::optional<int> status = options.Read(argc, argv); status.has_value()) {
        return status;
    }
    std::string error;
    if (!Complete(settings, error)) {
        std::cerr << "lumforward: " << error << '\n';
        return kWrongCommandLine;
    }
    settings.broker.clientName = "lumforward " + settings.device;
    return std::nullopt;
}
