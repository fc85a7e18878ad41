#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

#include <nats/nats.h>
#include <zlib.h>

#include "BenchSupport.h"
#include "fleet/FleetFixture.h"
#include "fleet/broker/Broker.h"
#include "fleet/forward/ForwardSettings.h"
#include "fleet/wire/BatchHeaders.h"
#include "fleet/wire/Subjects.h"
#include "host/text/LumSha256.h"
#include "support/AgentProcess.h"
#include "support/WaitFor.h"

/// The fleet's programs beside the engines that they stand on: the collector beside COPY of the same rows by
/// psql, the forwarder beside asynchronous publishing by the broker's own client library.

namespace {

constexpr int kDevices = 50;
constexpr uint32_t kEventsPerBatch = 100;
constexpr int kBatchesPerTransaction = 200;
constexpr int kPollMicroseconds = 200'000;

UploadedModel BenchUpload() {
    return {.name = "Bench",
            .parameters = {{"Time", "_TIMESTAMP_"},
                           {"Action", "_ENUM_"},
                           {"Package", "_STRING_"},
                           {"Architecture", "_STRING_"},
                           {"Version", "_STRING_"},
                           {"Size", "_INTEGER_"},
                           {"Share", "_DOUBLE_"},
                           {"Done", "_BOOLEAN_"}}};
}

std::string MetricOf(int port, const std::string& name) {
    return RunShell("curl -s http://127.0.0.1:" + std::to_string(port) + "/metrics | sed -n 's/^" + name +
                    " //p'");
}

void Must(bool good, const std::string& what) {
    if (!good) {
        Fail(what);
    }
}

/// Servers, set up, for one benchmark.
struct Servers {
    TempDirectory scratch;
    BrokerServer broker{scratch / "broker", "n1"};
    DatabaseServer database{scratch / "database"};

    Servers() {
        Must(broker.Start() && database.Start(), "The servers do not start");
        Must(database.Query("CREATE DATABASE lum", "postgres").empty(), "No database");
        Process setUp;
        setUp.Start({BinaryDirectory() + "/lumcollect", "--setup", "--database", database.GetParameters(),
                     "--servers", broker.GetUrl(), "--stream-megabytes", "4000"},
                    scratch / "setup.log");
        Must(setUp.Wait() == 0, "No set-up");
    }

    /// Publishes `count` batches of devices whose names begin with `prefix`.
    void Fill(const std::string& prefix, int count) {
        Broker client;
        BrokerSettings settings;
        settings.servers = broker.GetUrl();
        std::string error;
        Must(client.Connect(settings, error), error);
        for (int i = 0; i < count; ++i) {
            const std::string device = prefix + std::to_string(i % kDevices);
            const std::string bytes = MakeEvents(BenchUpload(), i * static_cast<int>(kEventsPerBatch),
                                                 kEventsPerBatch, 1'795'000'000)
                                          .ToCbor();
            const BatchInfo batch{{device, Sha256Hex(bytes)},
                                  "20261121T011025Z-" + std::to_string(i / kDevices + 1) + "-E.cbor",
                                  "EventLogManagerEvents",
                                  "2026-11-21T01:10:25Z"};
            Must(client.Publish(BatchSubject(device, batch.label), "", MakeHeaders(batch), bytes, error),
                 error);
            constexpr int flushEach = 500;
            Must(i % flushEach != 0 || client.Flush(30'000), "The broker does not answer");
        }
        Must(client.Flush(30'000), "The broker does not answer");
    }

    /// Seconds until `collectors` of them have stored `count` batches; the largest one's memory in `peak`.
    double Collect(std::size_t collectors, int count, std::size_t& peak) {
        std::vector<std::unique_ptr<Process>> processes;
        std::vector<int> ports;
        const double seconds = SecondsOf([&] {
            for (std::size_t i = 0; i < collectors; ++i) {
                ports.push_back(FreePort());
                processes.push_back(std::make_unique<Process>());
                processes.back()->Start(
                    {BinaryDirectory() + "/lumcollect", "--database", database.GetParameters(), "--servers",
                     broker.GetUrl(), "--name", std::to_string(i), "--batches",
                     std::to_string(kBatchesPerTransaction), "--listen",
                     "127.0.0.1:" + std::to_string(ports.back())},
                    scratch / "collector.log");
            }
            const auto stored = [&] {
                int sum = 0;
                for (const int port : ports) {
                    sum += std::atoi(MetricOf(port, "lumcollect_stored_total").c_str());
                }
                return sum;
            };
            while (stored() < count) {
                usleep(kPollMicroseconds);  // asking takes time from what is measured
            }
        });
        for (const auto& process : processes) {
            peak = std::max(peak, process->PeakBytes());
            process->Stop();
        }
        return seconds;
    }

    /// Seconds that psql takes to COPY the rows that are in the table into it again, in as large
    /// transactions.
    double CopyAgain(int batches) {
        const std::string script = scratch / "copy.sql";
        std::ofstream commands(script);
        for (int first = 1; first <= batches; first += kBatchesPerTransaction) {
            const std::string file = scratch / ("rows" + std::to_string(first));
            const std::string last = std::to_string(first + kBatchesPerTransaction);
            Must(database.Query("\\copy (SELECT * FROM lum.\"event_Bench\" WHERE batch >= " +
                                std::to_string(first) + " AND batch < " + last +
                                " ORDER BY batch, position) TO '" + file + "'")
                         .rfind("status", 0) != 0,
                 "No rows");
            commands << "\\copy lum.\"event_Bench\" FROM '" << file << "'\n";
        }
        commands.close();
        Must(database.Query("TRUNCATE lum.\"event_Bench\"").empty(), "The table cannot be emptied");
        return SecondsOf([&] {
            Must(
                RunShell("psql -X -q -v ON_ERROR_STOP=1 -f " + script + " '" + database.GetParameters() + "'")
                    .empty(),
                "psql fails");
        });
    }
};

void BenchCollectors(bool tiny) {
    const int batches = tiny ? 20 : 4'000;
    Servers servers;
    std::size_t peak = 0;
    servers.Fill("a", batches);
    const double one = servers.Collect(1, batches, peak);
    const double copy = servers.CopyAgain(batches);
    servers.Fill("b", batches);
    const double two = servers.Collect(2, batches, peak);
    const double rows = static_cast<double>(batches) * kEventsPerBatch;
    std::printf("collector, rows a second: %.0f; COPY by psql: %.0f; ratio %.2f\n", rows / one, rows / copy,
                copy / one);
    std::printf("two collectors, rows a second: %.0f; beside one: %.2f\n", rows / two, one / two);
    std::printf("collector, memory at the peak: %.1f MiB\n", static_cast<double>(peak) / kMiB);
}

/// A connection of the client library itself, and what it publishes and asks.
class PlainClient {
public:
    explicit PlainClient(const std::string& url) {
        natsConnection* connection = nullptr;
        jsCtx* context = nullptr;
        Must(natsConnection_ConnectTo(&connection, url.c_str()) == NATS_OK, "No connection");
        connection_.reset(connection);
        Must(natsConnection_JetStream(&context, connection, nullptr) == NATS_OK, "No stream");
        context_.reset(context);
    }

    /// How many messages the stream has taken so far.
    [[nodiscard]] uint64_t CountTaken() const {
        jsStreamInfo* info = nullptr;
        Must(js_GetStreamInfo(&info, context_.get(), kStreamName, nullptr, nullptr) == NATS_OK,
             "The stream does not answer");
        const uint64_t last = info->State.LastSeq;
        jsStreamInfo_Destroy(info);
        return last;
    }

    /// Seconds that asynchronous publishing takes for `count` batches such as a forwarder sends, with `bytes`
    /// as the content of all.
    [[nodiscard]] double Publish(int count, const std::string& bytes) const {
        const std::string label = "EventLogManagerEvents";
        const std::string subject = BatchSubject("plain", label);
        return SecondsOf([&] {
            for (int i = 0; i < count; ++i) {
                const std::string number = std::to_string(i);
                const BatchInfo batch{{"plain", std::string(kDigestLength - number.size(), '0') + number},
                                      "20261121T011025Z-" + number + "-" + label + ".cbor",
                                      label,
                                      "2026-11-21T01:10:25Z"};
                natsMsg* message = nullptr;
                Must(natsMsg_Create(&message, subject.c_str(), nullptr, bytes.data(),
                                    static_cast<int>(bytes.size())) == NATS_OK,
                     "No message");
                for (const auto& [name, value] : MakeHeaders(batch)) {
                    Must(natsMsgHeader_Set(message, name.c_str(), value.c_str()) == NATS_OK, "No header");
                }
                Must(js_PublishMsgAsync(context_.get(), &message, nullptr) == NATS_OK, "Cannot publish");
            }
            Must(js_PublishAsyncComplete(context_.get(), nullptr) == NATS_OK, "Publishing does not end");
        });
    }

private:
    struct Destroy {
        void operator()(natsConnection* connection) const noexcept { natsConnection_Destroy(connection); }
        void operator()(jsCtx* context) const noexcept { jsCtx_Destroy(context); }
    };

    std::unique_ptr<natsConnection, Destroy> connection_;
    std::unique_ptr<jsCtx, Destroy> context_;
};

/// Seconds until a forwarder has sent `count` entries of the outbox, when it may leave `unconfirmed` without
/// a receipt; its memory in `peak`.
double Forward(const Servers& servers, const PlainClient& client, const std::string& outbox,
               const std::string& device, int count, int unconfirmed, std::size_t& peak) {
    Process forwarder;
    const uint64_t until = client.CountTaken() + static_cast<uint64_t>(count);
    const double seconds = SecondsOf([&] {
        forwarder.Start(
            {BinaryDirectory() + "/lumforward", "--outbox", outbox, "--device", device, "--servers",
             servers.broker.GetUrl(), "--listen", "127.0.0.1:" + std::to_string(FreePort()),
             "--max-unconfirmed", std::to_string(unconfirmed)},
            servers.scratch / "forwarder.log");
        while (client.CountTaken() < until) {
            constexpr int poll = 2'000;
            usleep(poll);
        }
    });
    peak = forwarder.PeakBytes();
    forwarder.Stop();
    return seconds;
}

void BenchForwarder(bool tiny) {
    const int files = tiny ? 50 : 10'000;
    Servers servers;
    const std::string outbox = servers.scratch / "outbox";
    std::filesystem::create_directories(outbox);
    std::string bytes;
    for (int i = 0; i < files; ++i) {
        const std::string stem = "20261121T011025Z-" + std::to_string(i + 1) + "-EventLogManagerEvents";
        bytes = MakeEvents(BenchUpload(), i * static_cast<int>(kEventsPerBatch), kEventsPerBatch).ToCbor();
        std::ofstream(outbox + "/" + stem + ".cbor", std::ios::binary) << bytes;
        std::ofstream(outbox + "/" + stem + ".json")
            << R"({"FileLabel":"EventLogManagerEvents","Upstream":true,"ReceivedAt":"2026-11-21T01:10:25Z","FileName":")"
            << stem << ".cbor\"}";
    }
    std::size_t peak = 0;
    // Nobody collects, so that it is the sending alone that is measured.
    const PlainClient client(servers.broker.GetUrl());
    const double ours = Forward(servers, client, outbox, "bench", files, files, peak);
    const int usual = std::min(files, static_cast<int>(ForwardSettings().maxUnconfirmed));
    peak = 0;
    static_cast<void>(Forward(servers, client, outbox, "usual", usual, usual, peak));
    const double plain = client.Publish(files, bytes);
    std::printf(
        "forwarder, a backlog of %d files of about %zu bytes, files a second: %.0f;"
        " asynchronous publishing: %.0f; ratio %.2f\n",
        files, bytes.size(), files / ours, files / plain, plain / ours);
    std::printf("forwarder, memory at the peak, as it is set up by default: %.1f MiB\n",
                static_cast<double>(peak) / kMiB);
    std::size_t header = 12;  // the version line, and the line that ends the headers
    const BatchInfo batch{{std::string(32, 'a'), std::string(64, 'a')},
                          "20261121T011025Z-10000-EventLogManagerEvents.cbor",
                          "EventLogManagerEvents",
                          "2026-11-21T01:10:25Z"};
    for (const auto& [name, value] : MakeHeaders(batch)) {
        constexpr std::size_t separators = 4;
        header += name.size() + value.size() + separators;
    }
    constexpr std::size_t verb = 20;  // HPUB, the two lengths, blanks, line ends
    const std::size_t wire = bytes.size() + header + verb +
                             BatchSubject(batch.key.device, batch.label).size() +
                             AckSubject(batch.key.device, 10'000).size();
    std::printf("bytes on the wire for a file of %zu bytes: %zu; ratio %.3f\n", bytes.size(), wire,
                static_cast<double>(wire) / static_cast<double>(bytes.size()));
}

/// What compression would save on the way, and what it would cost on both sides of it.
void BenchCompression(bool tiny) {
    const int rounds = tiny ? 2 : 2'000;
    const std::string bytes = MakeEvents(BenchUpload(), 0, kEventsPerBatch).ToCbor();
    const auto size = static_cast<uLong>(bytes.size());
    const auto* const from = reinterpret_cast<const Bytef*>(bytes.data());
    for (const int level : {Z_BEST_SPEED, Z_DEFAULT_COMPRESSION}) {
        std::vector<Bytef> packed(compressBound(size));
        std::vector<Bytef> unpacked(size);
        uLongf packedSize = 0;
        const double packing = SecondsOf([&] {
            for (int i = 0; i < rounds; ++i) {
                packedSize = packed.size();
                Must(compress2(packed.data(), &packedSize, from, size, level) == Z_OK, "Cannot compress");
            }
        });
        const double unpacking = SecondsOf([&] {
            for (int i = 0; i < rounds; ++i) {
                uLongf unpackedSize = unpacked.size();
                Must(uncompress(unpacked.data(), &unpackedSize, packed.data(), packedSize) == Z_OK,
                     "Cannot take apart");
            }
        });
        constexpr double microseconds = 1e6;
        std::printf("zlib, level %d: %lu bytes of %lu (%.2f); %.0f us to compress, %.0f us to take apart\n",
                    level, packedSize, size, static_cast<double>(packedSize) / static_cast<double>(size),
                    packing / rounds * microseconds, unpacking / rounds * microseconds);
    }
}

/// True where the command line names this part, or none of them.
bool IsAsked(int argc, char** argv, std::string_view part) {
    const auto names = [](std::string_view word) {
        return [word](const char* argument) { return std::string_view(argument) == word; };
    };
    return std::any_of(argv + 1, argv + argc, names(part)) ||
           std::none_of(argv + 1, argv + argc, [](const char* argument) { return *argument != '-'; });
}

}  // namespace

/// FleetBench [--full] [collector] [forwarder] [compression]
int main(int argc, char** argv) {
    const bool tiny = IsTiny(argc, argv);
    if (IsAsked(argc, argv, "collector")) {
        BenchCollectors(tiny);
    }
    if (IsAsked(argc, argv, "forwarder")) {
        BenchForwarder(tiny);
    }
    if (IsAsked(argc, argv, "compression")) {
        BenchCompression(tiny);
    }
    return 0;
}
