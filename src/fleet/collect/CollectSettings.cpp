#include "fleet/collect/CollectSettings.h"

#include <array>
#include <iostream>

#include <unistd.h>

#include "fleet/service/ProgramOptions.h"
#include "fleet/wire/Subjects.h"

namespace {

constexpr int kWrongCommandLine = 2;
constexpr int64_t kMegabyte = 1'000'000;

std::string HostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "collector";
}

/// What the stream is made with, in the units of the command line.
struct StreamSizes {
    int64_t megabytes;
    int64_t hours;
    int64_t messageBytes;
};

void AddOptions(ProgramOptions& options, CollectSettings& settings) {
    options.Add("--setup", settings.setUp, "Make or bring up to date the stream and the schema, and end");
    options.Add("--database", settings.database, "PARAMETERS",
                "The database, as key=value pairs or a postgresql:// address");
    options.Add("--name", settings.name, "NAME", "Tells collectors apart (default: the host's name)");
    options.Add("--listen", settings.listen, "HOST:PORT", "Loopback address of /health and /metrics");
    options.Add("--batches", settings.batches, 1, 2'000, "Batches in one transaction at most");
    options.Add("--max-batch-bytes", settings.maxBatchBytes, 1'024, 16'777'216,
                "Size above which a batch is rejected");
    options.Add("--max-models", settings.limits.models, 1, 100'000, "Models of all devices together");
    options.Add("--max-models-of-device", settings.limits.modelsOfDevice, 1, 100'000,
                "Models that one device may introduce");
    options.Add("--keep-months", settings.keepMonths, 0, 1'200,
                "Months before this one that are kept; 0 keeps everything");
}

void AddStreamOptions(ProgramOptions& options, StreamSettings& stream, StreamSizes& sizes) {
    options.Add("--stream-replicas", stream.replicas, 0, 5,
                "With --setup: copies of the stream; 0 takes 3 where the cluster has them");
    options.Add("--stream-megabytes", sizes.megabytes, 1, 100'000'000, "With --setup: size of the stream");
    options.Add("--stream-hours", sizes.hours, 1, 87'600,
                "With --setup: hours that the stream keeps a batch");
    options.Add("--stream-message-bytes", sizes.messageBytes, 1'024, 67'108'864,
                "With --setup: largest batch");
    options.Add("--ack-wait", stream.ackWaitSeconds, 1, 3'600,
                "With --setup: seconds after which a batch that a collector took goes to another");
}

}  // namespace

std::optional<int> ReadCollectSettings(int argc, const char* const* argv, CollectSettings& settings) {
    StreamSizes sizes{settings.stream.maxBytes / kMegabyte, settings.stream.maxAgeSeconds / 3600,
                      settings.stream.maxMessageBytes};
    ProgramOptions options("Stores what devices have sent to the broker in the database", "lumcollect",
                           "Collect");
    AddOptions(options, settings);
    AddStreamOptions(options, settings.stream, sizes);
    options.AddBroker(settings.broker);
    if (const std::optional<int> status = options.Read(argc, argv); status.has_value()) {
        return status;
    }
    settings.stream.maxBytes = sizes.megabytes * kMegabyte;
    settings.stream.maxAgeSeconds = sizes.hours * 3600;
    settings.stream.maxMessageBytes = static_cast<int32_t>(sizes.messageBytes);
    settings.stream.name = kStreamName;
    settings.stream.subjects = kBatchSubjects;
    settings.stream.consumer = kConsumerName;
    settings.name = settings.name.empty() ? HostName() : settings.name;
    settings.broker.clientName = "lumcollect " + settings.name;
    std::vector<std::string> servers;
    std::string error;
    if (!CheckServers(settings.broker, servers, error)) {
        std::cerr << "lumcollect: " << error << '\n';
        return kWrongCommandLine;
    }
    return std::nullopt;
}
