// Uploads a backlog of as many events as the argument says: every event must be in exactly one file, and
// every file but the last must be full.

#include <atomic>
#include <cstdio>
#include <vector>

#include "support/FileStoreStandIn.h"
#include "support/LoadedModule.h"
#include "support/Program.h"
#include "support/WaitFor.h"

namespace {

constexpr uint32_t kUsualCount = 1050;
constexpr uint32_t kFileEvents = 100;

/// Counts the events that leave, by their dates from 1 on.
class Departures {
public:
    explicit Departures(uint32_t count) : seen_(std::size_t{count} + 1) {}

    /// On the processor's thread alone.
    uint32_t Note(const LumContainer& file) {
        const uint32_t count = file.CountValues("EventDate");
        for (uint32_t i = 0; i < count; ++i) {
            uint32_t date = 0;
            Require(file.GetInt32("EventDate", date, i) && date < seen_.size(), "a date of the backlog");
            Require(!seen_[date], "an event leaves once");
            seen_[date] = true;
        }
        ++files;
        events += count;
        return 0;
    }

    std::atomic<uint32_t> events{0};
    std::atomic<uint32_t> files{0};

private:
    std::vector<bool> seen_;
};

void Upload(uint32_t count) {
    Departures departures(count);
    const FileStoreStandIn store(
        [&](const LumContainer& /*request*/, const LumContainer& file) { return departures.Note(file); });
    LoadedModule module;
    module.DropShipped("Logon");
    module.Start();
    module.Database().Run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                          std::to_string(count) +
                          ") INSERT INTO Event_Logon (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_User) "
                          "SELECT i, 0, i % 200, 0, 'user' || i FROM n");
    Require(TestAgent::CallWith("EventLogManagerUploadEvents", R"({"ModelName":"Logon"})") == 0, "upload");
    module.Activate();
    Require(WaitFor([&] { return departures.events >= count; }, std::chrono::minutes(5)),
            "every event leaves");
    module.Stop();
    Require(departures.files == (count + kFileEvents - 1) / kFileEvents, "every file but the last is full");
    std::printf("%u events in %u files\n", departures.events.load(), departures.files.load());
}

}  // namespace

int main(int argc, char** argv) {
    return RunProgram([&] { Upload(CountFrom(argc, argv, kUsualCount)); });
}
