#pragma once

#include <deque>
#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fleet/FleetFixture.h"
#include "fleet/collect/batch/Incoming.h"
#include "fleet/collect/database/Database.h"
#include "fleet/collect/database/Schema.h"
#include "fleet/wire/Subjects.h"
#include "host/text/LumSha256.h"
#include "support/FleetServers.h"
#include "support/TempDirectory.h"

/// The SqlError that `work` throws.
inline SqlError ErrorOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const SqlError& error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {SqlError::Kind::kServer, ""};
}

/// A database on a real server, and a connection to it.
class DatabaseFixture : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server_.Start()) << ReadWholeFile(server_.GetDirectory() + "/log");
        ASSERT_EQ(server_.Query("CREATE DATABASE lum", "postgres"), "");
        database_.Open(server_.GetParameters(), "");
    }

    /// Makes the tables, and goes on as a collector does.
    void SetUpTables() {
        ASSERT_EQ(SetUpSchema(database_), LastSchemaStep());
        database_.Open(server_.GetParameters(), kWriterRole);
    }

    /// A batch as it comes from the stream, which keeps its bytes.
    Incoming Batch(const std::string& device, const LumContainer& container, int number = 1,
                   const std::string& label = "EventLogManagerEvents") {
        return Bytes(device, container.ToCbor(), number, label);
    }
    Incoming Bytes(const std::string& device, const std::string& bytes, int number = 1,
                   const std::string& label = "EventLogManagerEvents") {
        constexpr std::size_t anySize = 10'000'000;
        const std::string& payload = payloads_.emplace_back(bytes);
        const Headers headers =
            MakeHeaders({{device, Sha256Hex(payload)},
                         "20261121T011025Z-" + std::to_string(number) + "-" + label + ".cbor",
                         label,
                         "2026-11-21T01:10:25Z"});
        const auto find = [&headers](const char* name) {
            std::string_view value;
            for (const auto& [known, text] : headers) {
                value = known == name ? std::string_view(text) : value;
            }
            return value;
        };
        return ReadMessage(BatchSubject(device, label), find, payload, anySize);
    }

    [[nodiscard]] std::string Query(const std::string& sql) const { return server_.Query(sql); }

    TempDirectory scratch_;
    DatabaseServer server_{scratch_ / "database"};
    Database database_;
    std::deque<std::string> payloads_;
};
