#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "filestore/Outbox.h"
#include "host/container/LumContainer.h"
#include "support/FleetServers.h"
#include "support/TempDirectory.h"

/// A model as a device uploads it, and values for its events.
struct UploadedModel {
    std::string name = "Reading";
    std::string checksum = "c1";
    /// Names and type tokens.
    std::vector<std::pair<std::string, std::string>> parameters = {{"Count", "_INTEGER_"},
                                                                   {"Text", "_STRING_"}};
};

/// The container of an upload file with events number `first` to `first + count - 1`: each value is made of
/// the event's number.
[[nodiscard]] LumContainer MakeEvents(const UploadedModel& model, int32_t first, uint32_t count,
                                      int32_t date = 1'795'000'000);

/// A device: the outbox that its file store keeps, and its forwarder.
class Device {
public:
    Device(std::string name, std::string directory);

    /// Hands content to the file store, as the agent's modules do.
    void Drop(const LumContainer& container, const std::string& label = "EventLogManagerEvents",
              bool upstream = true);
    void DropBytes(const std::string& bytes, const std::string& label, bool upstream = true);
    void DropEvents(int32_t first, uint32_t count) { Drop(MakeEvents({}, first, count)); }

    void Start(const std::string& brokerUrls, const std::vector<std::string>& arguments = {});
    /// Words that the forwarder's command line begins with from now on.
    void SetPrefix(std::vector<std::string> words) { prefix_ = std::move(words); }
    [[nodiscard]] Process& GetForwarder() { return forwarder_; }
    [[nodiscard]] const std::string& GetName() const { return name_; }
    [[nodiscard]] std::string GetOutbox() const { return directory_ + "/outbox"; }
    [[nodiscard]] std::size_t CountEntries() const;
    [[nodiscard]] std::size_t CountSetAside() const;
    [[nodiscard]] std::string ReadLog() const { return ReadWholeFile(directory_ + "/log"); }
    [[nodiscard]] std::string Get(const std::string& path) const;
    /// The value of one of its metrics, as text.
    [[nodiscard]] std::string GetMetric(const std::string& name) const;

private:
    const std::string name_;
    const std::string directory_;
    const int port_ = FreePort();
    std::vector<std::string> prefix_;
    Outbox outbox_;
    Process forwarder_;
};

/// A broker and a database that were set up, collectors, and devices.
class FleetFixture : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /// Starts the servers and runs lumcollect --setup.
    void StartServers(const std::vector<std::string>& setUpArguments = {});
    [[nodiscard]] int SetUpFleet(const std::vector<std::string>& arguments = {});
    /// Words that the command lines of collectors begin with from now on.
    void SetPrefix(std::vector<std::string> words) { prefix_ = std::move(words); }
    Process& StartCollector(const std::vector<std::string>& arguments = {});
    Device& AddDevice(const std::string& name);

    [[nodiscard]] std::string Query(const std::string& sql) const { return database_->Query(sql); }
    [[nodiscard]] std::string ReadCollectorLog() const { return ReadWholeFile(scratch_ / "collector.log"); }
    [[nodiscard]] std::string GetCollector(const std::string& path, std::size_t index = 0) const;
    /// Waits until `sql` gives `rows`; what it gave last otherwise.
    [[nodiscard]] std::string WaitForRows(const std::string& sql, const std::string& rows,
                                          std::chrono::seconds patience = std::chrono::seconds(30)) const;

    /// Drops `files` files of ten events each, whose counts go on from those of the file before `firstFile`.
    static void DropFiles(Device& device, int files, int firstFile = 0);
    /// Waits until the database holds the events of `files` such files once each, and the outbox is empty.
    void ExpectAllOnce(const Device& device, int files,
                       std::chrono::seconds patience = std::chrono::seconds(30)) const;
    /// Waits until some, if not all, of the files have left the outbox.
    static void WaitUntilFewerThan(const Device& device, std::size_t entries);

    TempDirectory scratch_;
    std::unique_ptr<BrokerServer> broker_;
    std::unique_ptr<DatabaseServer> database_;
    std::string brokerUrls_;
    std::vector<std::string> prefix_;
    std::vector<std::unique_ptr<Process>> collectors_;
    std::vector<int> collectorPorts_;
    std::vector<std::unique_ptr<Device>> devices_;
};
