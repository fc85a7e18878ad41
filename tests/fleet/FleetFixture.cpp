#include "fleet/FleetFixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "contract/ContainerKeys.h"
#include "contract/ParamTypeTokens.h"
#include "support/AgentProcess.h"
#include "support/WaitFor.h"

namespace {

constexpr int kEventsOfFile = 10;
constexpr char kCounts[] =
    "SELECT count(*), count(DISTINCT \"Count\"), min(\"Count\"), max(\"Count\") FROM lum.\"event_Reading\"";

void SetValue(LumContainer& container, const std::string& name, const std::string& type, int32_t number,
              uint32_t position) {
    const LumString key{std::string_view(name)};
    if (type == kTypeInteger || type == kTypeTimestamp) {
        container.SetInt32(key, number, position);
    } else if (type == kTypeDouble) {
        container.SetDouble(key, number + 0.5, position);
    } else if (type == kTypeBoolean) {
        container.SetBool(key, number % 2 == 1, position);
    } else {
        container.SetString(key, LumString("event " + std::to_string(number)), position);
    }
}

std::size_t CountDescriptions(const std::string& directory) {
    std::size_t count = 0;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(directory, ignored)) {
        const std::string name = entry.path().filename();
        count += name.ends_with(".json") && !name.starts_with('.') ? 1U : 0U;
    }
    return count;
}

}  // namespace

LumContainer MakeEvents(const UploadedModel& model, int32_t first, uint32_t count, int32_t date) {
    LumContainer variables;
    uint32_t position = 0;
    for (const auto& [name, type] : model.parameters) {
        variables.SetString(keys::kModelVarName, LumString(std::string_view(name)), position);
        variables.SetString(keys::kModelVarType, LumString(std::string_view(type)), position);
        ++position;
    }
    LumContainer definition;
    definition.SetString(keys::kModelName, LumString(std::string_view(model.name)));
    definition.SetString(keys::kModelChecksum, LumString(std::string_view(model.checksum)));
    definition.SetContainer(keys::kModelVars, std::move(variables));
    LumContainer container;
    container.SetContainer(keys::kModelDef, std::move(definition));
    for (uint32_t event = 0; event < count; ++event) {
        const int32_t number = first + static_cast<int32_t>(event);
        container.SetInt32(keys::kEventDate, date + number, event);
        container.SetInt32(keys::kEventGmtOffset, 3600, event);
        for (const auto& [name, type] : model.parameters) {
            SetValue(container, name, type, number, event);
        }
    }
    return container;
}

Device::Device(std::string name, std::string directory)
    : name_(std::move(name)), directory_(std::move(directory)) {
    std::filesystem::create_directories(directory_);
    Outbox::LeftOvers leftOvers;
    LumString error;
    EXPECT_TRUE(
        outbox_.Open(LumString(GetOutbox()), LumString(directory_ + "/next-number"), leftOvers, error))
        << error.GetString();
}

void Device::Drop(const LumContainer& container, const std::string& label, bool upstream) {
    DropBytes(container.ToCbor(), label, upstream);
}

void Device::DropBytes(const std::string& bytes, const std::string& label, bool upstream) {
    const std::string path = directory_ + "/handed-over";
    std::ofstream(path, std::ios::binary) << bytes;
    ReceivedFile file;
    file.movePath = LumString(std::string_view(path));
    file.fileType = LumString(std::string_view(label));
    file.fileLabel = file.fileType;
    file.upstream = upstream;
    const Received received = outbox_.Receive(file);
    ASSERT_EQ(received.outcome, Received::Outcome::kDone) << received.problem.GetString();
}

void Device::Start(const std::string& brokerUrls, const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {BinaryDirectory() + "/lumforward",
                                      "--outbox",
                                      GetOutbox(),
                                      "--device",
                                      name_,
                                      "--servers",
                                      brokerUrls,
                                      "--listen",
                                      "127.0.0.1:" + std::to_string(port_),
                                      "--ask-after",
                                      "1",
                                      "--retry-first-ms",
                                      "50",
                                      "--retry-last-ms",
                                      "400"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    words.insert(words.begin(), prefix_.begin(), prefix_.end());
    forwarder_.Start(words, directory_ + "/log");
}

std::size_t Device::CountEntries() const {
    return CountDescriptions(GetOutbox());
}

std::size_t Device::CountSetAside() const {
    return CountDescriptions(GetOutbox() + "/set-aside");
}

std::string Device::Get(const std::string& path) const {
    return RunShell("curl -s --max-time 5 http://127.0.0.1:" + std::to_string(port_) + path);
}

std::string Device::GetMetric(const std::string& name) const {
    const std::string text = Get("/metrics");
    const std::size_t place = text.find("\n" + name + " ");
    return place == std::string::npos
               ? ""
               : text.substr(place + name.size() + 2, text.find('\n', place + 1) - place - name.size() - 2);
}

void FleetFixture::SetUp() {
    broker_ = std::make_unique<BrokerServer>(scratch_ / "broker", "n1");
    database_ = std::make_unique<DatabaseServer>(scratch_ / "database");
    brokerUrls_ = broker_->GetUrl();
}

void FleetFixture::TearDown() {
    if (HasFailure()) {
        std::cerr << ReadCollectorLog();
        for (const auto& device : devices_) {
            std::cerr << device->GetName() << ":\n" << device->ReadLog();
        }
    }
}

void FleetFixture::StartServers(const std::vector<std::string>& setUpArguments) {
    ASSERT_TRUE(broker_->Start()) << ReadWholeFile(broker_->GetDirectory() + "/log");
    ASSERT_TRUE(database_->Start()) << ReadWholeFile(database_->GetDirectory() + "/log");
    ASSERT_EQ(database_->Query("CREATE DATABASE lum", "postgres"), "");
    ASSERT_EQ(SetUpFleet(setUpArguments), 0) << ReadWholeFile(scratch_ / "setup.log");
}

int FleetFixture::SetUpFleet(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {BinaryDirectory() + "/lumcollect",
                                      "--setup",
                                      "--database",
                                      database_->GetParameters(),
                                      "--servers",
                                      brokerUrls_,
                                      "--ack-wait",
                                      "3"};
    if (std::find(arguments.begin(), arguments.end(), "--stream-megabytes") == arguments.end()) {
        words.insert(words.end(), {"--stream-megabytes", "100"});
    }
    words.insert(words.end(), arguments.begin(), arguments.end());
    Process process;
    process.Start(words, scratch_ / "setup.log");
    return process.Wait();
}

Process& FleetFixture::StartCollector(const std::vector<std::string>& arguments) {
    const std::string number = std::to_string(collectors_.size());
    collectorPorts_.push_back(FreePort());
    std::vector<std::string> words = {BinaryDirectory() + "/lumcollect",
                                      "--database",
                                      database_->GetParameters(),
                                      "--servers",
                                      brokerUrls_,
                                      "--ack-wait",
                                      "3",
                                      "--name",
                                      "c" + number,
                                      "--listen",
                                      "127.0.0.1:" + std::to_string(collectorPorts_.back())};
    words.insert(words.end(), arguments.begin(), arguments.end());
    words.insert(words.begin(), prefix_.begin(), prefix_.end());
    collectors_.push_back(std::make_unique<Process>());
    collectors_.back()->Start(words, scratch_ / "collector.log");
    return *collectors_.back();
}

Device& FleetFixture::AddDevice(const std::string& name) {
    devices_.push_back(std::make_unique<Device>(name, scratch_ / ("device-" + name)));
    return *devices_.back();
}

std::string FleetFixture::GetCollector(const std::string& path, std::size_t index) const {
    return RunShell("curl -s --max-time 5 http://127.0.0.1:" + std::to_string(collectorPorts_.at(index)) +
                    path);
}

std::string FleetFixture::WaitForRows(const std::string& sql, const std::string& rows,
                                      std::chrono::seconds patience) const {
    std::string found;
    static_cast<void>(WaitFor(
        [&] {
            found = Query(sql);
            return found == rows;
        },
        patience));
    return found;
}

void FleetFixture::DropFiles(Device& device, int files, int firstFile) {
    for (int file = firstFile; file < firstFile + files; ++file) {
        device.DropEvents(file * kEventsOfFile, kEventsOfFile);
    }
}

void FleetFixture::ExpectAllOnce(const Device& device, int files, std::chrono::seconds patience) const {
    const std::string events = std::to_string(files * kEventsOfFile);
    const std::string rows = events + "|" + events + "|0|" + std::to_string(files * kEventsOfFile - 1) + "\n";
    EXPECT_EQ(WaitForRows(kCounts, rows, patience), rows);
    EXPECT_TRUE(WaitFor([&] { return device.CountEntries() == 0; }, patience)) << device.CountEntries();
    EXPECT_EQ(device.CountSetAside(), 0U);
}

void FleetFixture::WaitUntilFewerThan(const Device& device, std::size_t entries) {
    EXPECT_TRUE(WaitFor([&] { return device.CountEntries() < entries; }));
}
