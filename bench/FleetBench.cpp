#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

#include <nats/nats.h>
#include <zlib.h>

#include "BenchSupport.h"
#include "FleetBenchServers.h"
#include "fleet/forward/ForwardSettings.h"
#include "fleet/wire/BatchHeaders.h"
#include "fleet/wire/Subjects.h"
#include "support/AgentProcess.h"

/// The fleet's programs beside the engines that they stand on: the collector beside COPY of the same rows by
/// psql, the forwarder beside asynchronous publishing by the broker's own client library.

namespace {

/// "0.71 (0.68 to 0.75)": the ratio of the medians, and the least and the largest of a round.
std::string RatioText(const std::vector<double>& above, const std::vector<double>& below) {
    std::vector<double> ratios;
    for (std::size_t round = 0; round < above.size(); ++round) {
        ratios.push_back(above[round] / below[round]);
    }
    const auto [least, largest] = std::minmax_element(ratios.begin(), ratios.end());
    std::array<char, 64> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%.2f (%.2f to %.2f)",
                                    Median(above) / Median(below), *least, *largest));  // fits by far
    return text.data();
}

/// One collector, psql and two collectors in turns, each of them first as often as the others.
void BenchCollectors(bool tiny) {
    const int batches = tiny ? 20 : 4'000;
    const int rounds = tiny ? 1 : 6;
    Servers servers;
    std::size_t peak = 0;
    servers.Fill("first", batches);
    static_cast<void>(servers.Collect(1, peak));  // makes the table, and the rows for psql
    const std::string script = servers.WriteCopies(batches);
    std::vector<double> one;
    std::vector<double> copy;
    std::vector<double> two;
    const auto collect = [&](std::size_t collectors, std::vector<double>& seconds) {
        servers.Fill("d" + std::to_string(collectors) + "-" + std::to_string(seconds.size()) + "-", batches);
        servers.EmptyTable();
        seconds.push_back(servers.Collect(collectors, peak));
    };
    const std::array<std::function<void()>, 3> turns{[&] { collect(1, one); },
                                                     [&] {
                                                         servers.EmptyTable();
                                                         copy.push_back(servers.Copy(script));
                                                     },
                                                     [&] { collect(2, two); }};
    for (std::size_t round = 0; round < static_cast<std::size_t>(rounds); ++round) {
        for (std::size_t turn = 0; turn < turns.size(); ++turn) {
            turns.at((round + turn) % turns.size())();
        }
    }
    const double rows = static_cast<double>(batches) * kEventsPerBatch;
    std::printf("collector, rows a second: %.0f; COPY by psql: %.0f; ratio %s\n", rows / Median(one),
                rows / Median(copy), RatioText(copy, one).c_str());
    std::printf("two collectors, rows a second: %.0f; beside one: %s\n", rows / Median(two),
                RatioText(one, two).c_str());
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

    /// How many messages the stream has taken so far, and when it took the last one, in nanoseconds since
    /// 1970.
    struct Taken {
        uint64_t count = 0;
        int64_t lastNs = 0;
    };
    [[nodiscard]] Taken GetTaken() const {
        jsStreamInfo* info = nullptr;
        Must(js_GetStreamInfo(&info, context_.get(), kStreamName, nullptr, nullptr) == NATS_OK,
             "The stream does not answer");
        const Taken taken{info->State.LastSeq, info->State.LastTime};
        jsStreamInfo_Destroy(info);
        return taken;
    }

    /// Seconds until the stream has taken `count` more messages than before `send`, which sends them. It is
    /// the stream that says when it took the last one, so asking for it takes hardly any time from the
    /// sending.
    [[nodiscard]] double SecondsUntilTaken(int count, const std::function<void()>& send) const {
        const uint64_t until = GetTaken().count + static_cast<uint64_t>(count);
        const auto start = std::chrono::system_clock::now().time_since_epoch();
        send();
        Taken taken;
        while ((taken = GetTaken()).count < until) {
            constexpr int poll = 20'000;
            usleep(poll);
        }
        return std::chrono::duration<double>(std::chrono::nanoseconds(taken.lastNs) - start).count();
    }

    /// Publishes `count` batches of `device`, such as a forwarder sends, asynchronously, with `bytes` as the
    /// content of all, and waits for all acknowledgements.
    void Publish(const std::string& device, int count, const std::string& bytes) const {
        const std::string label = "EventLogManagerEvents";
        const std::string subject = BatchSubject(device, label);
        for (int i = 0; i < count; ++i) {
            const std::string number = std::to_string(i);
            const BatchInfo batch{{device, std::string(kDigestLength - number.size(), '0') + number},
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
    const double seconds = client.SecondsUntilTaken(count, [&] {
        forwarder.Start(
            {BinaryDirectory() + "/lumforward", "--outbox", outbox, "--device", device, "--servers",
             servers.broker.GetUrl(), "--listen", "127.0.0.1:" + std::to_string(FreePort()),
             "--max-unconfirmed", std::to_string(unconfirmed)},
            servers.scratch / "forwarder.log");
    });
    peak = std::max(peak, forwarder.PeakBytes());
    forwarder.Stop();
    return seconds;
}

/// Fills `outbox` with `files` entries; gives the content of the last one.
std::string FillOutbox(const std::string& outbox, int files) {
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
    return bytes;
}

/// The forwarder and the client library in turns, each of them first as often as the other.
void BenchForwarder(bool tiny) {
    const int files = tiny ? 50 : 10'000;
    const int rounds = tiny ? 1 : 6;
    Servers servers;
    const std::string outbox = servers.scratch / "outbox";
    const std::string bytes = FillOutbox(outbox, files);
    std::size_t peak = 0;
    // Nobody collects, so that it is the sending alone that is measured.
    const PlainClient client(servers.broker.GetUrl());
    std::vector<double> ours;
    std::vector<double> plain;
    for (int round = 0; round < rounds; ++round) {
        const std::string number = std::to_string(round);
        for (int turn = round; turn < round + 2; ++turn) {
            if (turn % 2 == 0) {
                ours.push_back(Forward(servers, client, outbox, "bench" + number, files, files, peak));
            } else {
                plain.push_back(
                    client.SecondsUntilTaken(files, [&] { client.Publish("plain" + number, files, bytes); }));
            }
        }
    }
    const int usual = std::min(files, static_cast<int>(ForwardSettings().maxUnconfirmed));
    peak = 0;
    static_cast<void>(Forward(servers, client, outbox, "usual", usual, usual, peak));
    std::printf(
        "forwarder, a backlog of %d files of about %zu bytes, files a second: %.0f;"
        " asynchronous publishing: %.0f; ratio %s\n",
        files, bytes.size(), files / Median(ours), files / Median(plain), RatioText(plain, ours).c_str());
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
