#pragma once

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "BenchSupport.h"
#include "fleet/FleetFixture.h"
#include "fleet/broker/Broker.h"
#include "fleet/broker/Stream.h"
#include "fleet/wire/BatchHeaders.h"
#include "fleet/wire/Subjects.h"
#include "host/text/LumSha256.h"
#include "support/AgentProcess.h"
#include "support/FleetServers.h"

/// The servers that the fleet's benchmarks need, and what is done with them.

inline constexpr int kDevices = 50;
inline constexpr uint32_t kEventsPerBatch = 100;
inline constexpr int kBatchesPerTransaction = 200;
/// Asking takes time from what is measured.
inline constexpr int kPollMicroseconds = 10'000;

inline UploadedModel BenchUpload() {
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

inline void Must(bool good, const std::string& what) {
    if (!good) {
        Fail(what);
    }
}

/// Servers, set up, for one benchmark.
struct Servers {
    TempDirectory scratch;
    BrokerServer broker{scratch / "broker", "n1"};
    DatabaseServer database{scratch / "database"};
    Broker client;

    Servers() {
        Must(broker.Start() && database.Start(), "The servers do not start");
        Must(database.Query("CREATE DATABASE lum", "postgres").empty(), "No database");
        Process setUp;
        setUp.Start({BinaryDirectory() + "/lumcollect", "--setup", "--database", database.GetParameters(),
                     "--servers", broker.GetUrl(), "--stream-megabytes", "4000"},
                    scratch / "setup.log");
        Must(setUp.Wait() == 0, "No set-up");
        BrokerSettings settings;
        settings.servers = broker.GetUrl();
        std::string error;
        Must(client.Connect(settings, error), error);
    }

    /// Publishes `count` batches of devices whose names begin with `prefix`.
    void Fill(const std::string& prefix, int count) {
        std::string error;
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

    /// The table of events without events, and nothing left to write for what was there.
    void EmptyTable() {
        Must(database.Query("TRUNCATE lum.\"event_Bench\"").empty(), "The table cannot be emptied");
        Must(database.Query("CHECKPOINT").empty(), "No checkpoint");
    }

    /// True once all that the stream holds is committed and acknowledged.
    [[nodiscard]] bool IsAllStored() {
        StreamState state;
        std::string error;
        Must(ReadStreamState(client, kStreamName, kConsumerName, state, error), error);
        return state.doneSequence == state.lastSequence;
    }

    /// Seconds until `collectors` of them have stored what the stream holds; the largest one's memory in
    /// `peak`.
    double Collect(std::size_t collectors, std::size_t& peak) {
        std::vector<std::unique_ptr<Process>> processes;
        const double seconds = SecondsOf([&] {
            for (std::size_t i = 0; i < collectors; ++i) {
                processes.push_back(std::make_unique<Process>());
                processes.back()->Start(
                    {BinaryDirectory() + "/lumcollect", "--database", database.GetParameters(), "--servers",
                     broker.GetUrl(), "--name", std::to_string(i), "--batches",
                     std::to_string(kBatchesPerTransaction), "--listen",
                     "127.0.0.1:" + std::to_string(FreePort())},
                    scratch / "collector.log");
            }
            while (!IsAllStored()) {
                usleep(kPollMicroseconds);
            }
        });
        for (const auto& process : processes) {
            peak = std::max(peak, process->PeakBytes());
            process->Stop();
        }
        return seconds;
    }

    /// Writes the rows of the first `batches` batches as text, and the script that has psql COPY them into
    /// the table in as large transactions; gives the script's path.
    [[nodiscard]] std::string WriteCopies(int batches) {
        std::string script = scratch / "copy.sql";
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
        return script;
    }

    /// Seconds that psql takes for the script.
    double Copy(const std::string& script) {
        return SecondsOf([&] {
            Must(
                RunShell("psql -X -q -v ON_ERROR_STOP=1 -f " + script + " '" + database.GetParameters() + "'")
                    .empty(),
                "psql fails");
        });
    }
};
