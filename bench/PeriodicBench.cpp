// What the periodic work costs beside the least that it can cost: the raw statement for an aggregation and a
// purge, a plain loop of writes, syncs and renames for an upload, a hand-written encoder for its files.
//
//     PeriodicBench [--full]

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include "BenchSupport.h"
#include "BuildPaths.h"
#include "contract/FileStore.h"
#include "events/EventAggregation.h"
#include "events/EventRetention.h"
#include "events/EventUpload.h"
#include "events/UploadFiles.h"
#include "host/core/ActionDb.h"
#include "host/core/LumAgent.h"
#include "host/core/ModuleInterface.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "model/ModelElement.h"
#include "module/ModuleMain.h"
#include "sched/TaskSchedulerThread.h"
#include "store/DatabaseScope.h"
#include "store/ModelRegistry.h"
#include "tasks/Task.h"

namespace {

struct Sizes {
    int rounds;
    uint32_t events;    // of the table that is aggregated, purged and encoded
    uint32_t uploaded;  // events that go through the file store
    uint32_t models;
    uint32_t received;  // files handed to the file store
};

constexpr Sizes kUsual{4, 1000000, 1000000, 10000, 500};
constexpr Sizes kTiny{1, 1000, 300, 20, 3};

constexpr LumSeconds kFirstDate = 1700000000;

/// The module and the file store in this process, as the agent would have them.
class Host : public BenchModule {
public:
    Host() : BenchModule(true) {
        void* const library = ::dlopen(LUM_BINARY_DIR "/modules/FileStore.so", RTLD_NOW | RTLD_LOCAL);
        Require(library != nullptr, "the file store cannot be loaded");
        const auto store = reinterpret_cast<LumModuleMain>(::dlsym(library, kLumModuleEntryPoint));
        Command(store, LumModuleCommand::kRegister, &store_);
        Command(store, LumModuleCommand::kInitialise);
        Initialise();
    }

    [[nodiscard]] std::string Outbox() const { return Directory() / "data/FileStore/outbox"; }

private:
    LumAgentHandle store_{"FileStore"};
};

void Run(const std::string& sql) {
    DBConnection connection(DatabasePool);
    if (connection.Query(LumString(std::string_view(sql))) == nullptr) {
        Fail(sql);
    }
}

/// Registers a model with the parameters of the others' benchmarks, or one that sums its numbers up.
std::shared_ptr<Model_t> AddModel(const char* name, ModelType type, AggregationOperation operation) {
    ModelText text = BenchModel(name);
    text.type = type;
    text.aggregation = Policy::kHourly;
    if (type == ModelType::kAutomatic) {
        text.source = "Bench";
        std::erase_if(text.params, [](const ParamText& param) {
            return param.type != ParamType::kInteger && param.type != ParamType::kDouble;
        });
    }
    for (ParamText& param : text.params) {
        param.source = param.name;
        param.operation = operation;
    }
    return LinkedModule::Add(text);
}

void FillEvents(uint32_t events) {
    Run("DELETE FROM Event_Bench");
    LumString sql;
    sql.Printf(
        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < %u) INSERT INTO "
        "Event_Bench (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_Application, C_Count, C_Remote, "
        "C_Seconds, "
        "C_User) SELECT %d + i, 7200, i %% 200, i %% 7, 'program-' || (1000 + i %% 1000), i %% 100000, i %% "
        "2, i "
        "/ 8.0, 'user' || (i %% 1000) FROM n",
        events, kFirstDate);
    Run(sql.GetString());
}

/// Median seconds of both, in turns, each as often before the other as after it, with `prepare` before each
/// and not counted.
std::pair<double, double> InTurns(int rounds, const std::function<void()>& prepare,
                                  const std::function<void()>& ours, const std::function<void()>& floor) {
    std::vector<double> first;
    std::vector<double> second;
    for (int i = 0; i < rounds; ++i) {
        for (const bool isOurs : {i % 2 == 0, i % 2 != 0}) {
            prepare();
            (isOurs ? first : second).push_back(SecondsOf(isOurs ? ours : floor));
        }
    }
    return {Median(first), Median(second)};
}

void BenchAggregation(const Sizes& sizes) {
    const auto model = AddModel("Sums", ModelType::kAutomatic, AggregationOperation::kSum);
    const EventWindow window{PeriodStart(Policy::kHourly, kFirstDate),
                             PeriodStart(Policy::kHourly, kFirstDate + sizes.events)};
    const std::string raw = BuildAggregation(*model, window).GetString();
    const auto prepare = [&] {
        Run("DELETE FROM Event_Sums");
        model->SetLastAggregationTime(0);
    };
    const auto aggregate = [&] {
        if (!AggregateEvents(model, kFirstDate, kFirstDate + sizes.events, true)) {
            Fail("aggregation");
        }
    };
    const auto [ours, floor] = InTurns(sizes.rounds, prepare, aggregate, [&] { Run(raw); });
    PrintRow("aggregate by hour, s", ours, floor, ours / floor, "<= 1.05");
    prepare();
    const double floorPeak = PeakBytesOf([&] { Run(raw); });
    prepare();
    const double peak = PeakBytesOf(aggregate);
    PrintRow("  its memory at the peak, MiB", peak / kMiB, floorPeak / kMiB, peak / floorPeak,
             "<= 4 MiB more");
}

void BenchPurge(const Sizes& sizes, const std::shared_ptr<Model_t>& model) {
    const uint32_t half = kFirstDate + sizes.events / 2;
    const auto [ours, floor] = InTurns(
        sizes.rounds, [&] { FillEvents(sizes.events); },
        [&] {
            if (!DeleteEvents(model, 0, half, false)) {
                Fail("purge");
            }
        },
        [&] { Run("DELETE FROM Event_Bench WHERE E_Date < " + std::to_string(half) + ";"); });
    PrintRow("delete the older half, s", ours, floor, ours / floor, "<= 1.05");
}

/// Emits CBOR as a file of events needs it, and nothing else.
class HandWritten {
public:
    std::string bytes;

    void Head(uint8_t major, uint64_t value) {
        const auto kind = static_cast<uint8_t>(major << 5U);
        int width = value < 24 ? 0 : value < 256 ? 1 : value < 65536 ? 2 : 4;
        bytes.push_back(static_cast<char>(kind | (width == 0   ? value
                                                  : width == 4 ? 26
                                                               : 23U + static_cast<unsigned>(width))));
        while (width > 0) {
            --width;
            bytes.push_back(static_cast<char>(value >> (8U * static_cast<unsigned>(width))));
        }
    }
    void Text(std::string_view text) {
        Head(3, text.size());
        bytes.append(text);
    }
    void Integer(int64_t value) {
        value < 0 ? Head(1, static_cast<uint64_t>(-1 - value)) : Head(0, static_cast<uint64_t>(value));
    }
    void Real(double value) {
        uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof(bits));
        bits = __builtin_bswap64(bits);
        bytes.push_back(static_cast<char>(0xFB));
        bytes.append(reinterpret_cast<const char*>(&bits), sizeof(bits));
    }
    void Bool(bool value) { bytes.push_back(static_cast<char>(value ? 0xF5 : 0xF4)); }
};

/// One column of up to a hundred rows after the other.
template <class T, class Emit>
void EmitColumn(HandWritten& out, GenSqlResult& rows, uint32_t first, uint32_t count, const char* key,
                uint32_t column, Emit emit) {
    out.Text(key);
    out.Head(4, count);
    T value{};
    for (uint32_t i = 0; i < count; ++i) {
        static_cast<void>(rows.SelectRow(first + i));
        static_cast<void>(rows.GetColumn(column, value));
        emit(value);
    }
}

void EmitByHand(HandWritten& out, GenSqlResult& rows, uint32_t first, const std::string& description) {
    const uint32_t count = std::min(kUploadFileEvents, rows.GetRowCount() - first);
    const auto integer = [&out](int64_t value) { out.Integer(static_cast<int32_t>(value)); };
    const auto text = [&out](const LumString& value) { out.Text(value.View()); };
    out.bytes.assign("\xD9\xD9\xF7");
    out.Head(5, 10);
    out.Text("ModelDef");
    out.bytes += description;
    EmitColumn<int64_t>(out, rows, first, count, "EventDate", 0, integer);
    EmitColumn<int64_t>(out, rows, first, count, "EventGMTOffset", 1, integer);
    EmitColumn<int64_t>(out, rows, first, count, "EventDeviceId", 2, integer);
    EmitColumn<int64_t>(out, rows, first, count, "EventGroupId", 3, integer);
    EmitColumn<LumString>(out, rows, first, count, "Application", 4, text);
    EmitColumn<int64_t>(out, rows, first, count, "Count", 5, integer);
    EmitColumn<bool>(out, rows, first, count, "Remote", 6, [&out](bool value) { out.Bool(value); });
    EmitColumn<double>(out, rows, first, count, "Seconds", 7, [&out](double value) { out.Real(value); });
    EmitColumn<LumString>(out, rows, first, count, "User", 8, text);
}

std::size_t EncodeGenerally(GenSqlResult& rows, uint32_t first) {
    nlohmann::ordered_json file;
    for (uint32_t i = 0; i < kUploadFileEvents && rows.SelectRow(first + i); ++i) {
        const char* const keys[] = {"EventDate", "EventGMTOffset", "EventDeviceId", "EventGroupId", "Count"};
        const uint32_t columns[] = {0, 1, 2, 3, 5};
        for (std::size_t k = 0; k < std::size(keys); ++k) {
            int64_t number = 0;
            static_cast<void>(rows.GetColumn(columns[k], number));
            file[keys[k]].push_back(number);
        }
        LumString text;
        static_cast<void>(rows.GetColumn(4, text));
        file["Application"].push_back(text.GetString());
        static_cast<void>(rows.GetColumn(8, text));
        file["User"].push_back(text.GetString());
        bool flag = false;
        static_cast<void>(rows.GetColumn(6, flag));
        file["Remote"].push_back(flag);
        double real = 0;
        static_cast<void>(rows.GetColumn(7, real));
        file["Seconds"].push_back(real);
    }
    return nlohmann::ordered_json::to_cbor(file).size();
}

void BenchEncoding(const Sizes& sizes, const Model_t& model) {
    const std::size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
    DBConnection connection(DatabasePool);
    const auto end = static_cast<int32_t>(kFirstDate + sizes.events);
    GenSqlResult* const rows = connection.Query(BuildUpload(model, {0, end}));
    if (rows == nullptr || rows->GetRowCount() == 0) {
        Fail("upload statement");
    }
    const std::size_t buffered = mallinfo2().uordblks + mallinfo2().hblkhd - before;
    const UploadFiles files(model);
    LumContainer file;
    std::size_t size = 0;
    static_cast<void>(files.Fill(*rows, 0, file));
    const std::size_t sizeOfFirst = file.ToCbor().size();
    LumContainer inner;
    static_cast<void>(file.GetContainer("ModelDef", inner));
    const std::string description = inner.ToCbor().substr(3);
    HandWritten hand;
    EmitByHand(hand, *rows, 0, description);
    const std::size_t handSize = hand.bytes.size();

    const auto each = [&](const std::function<void(uint32_t)>& encode) {
        for (uint32_t first = 0; first < rows->GetRowCount(); first += kUploadFileEvents) {
            encode(first);
        }
    };
    const auto [ours, floor] = Alternate(
        sizes.rounds,
        [&] {
            each([&](uint32_t first) {
                static_cast<void>(files.Fill(*rows, first, file));
                size += file.ToCbor().size();
            });
        },
        [&] { each([&](uint32_t first) { EmitByHand(hand, *rows, first, description); }); });
    const double general =
        SecondsOf([&] { each([&](uint32_t first) { size += EncodeGenerally(*rows, first); }); });
    const double count = rows->GetRowCount();
    PrintRow("encode, events/s, beside a hand-written loop", count / ours, count / floor, floor / ours,
             ">= 0.5");
    PrintRow("encode, events/s, beside a general library", count / ours, count / general, general / ours, "");
    PrintRow("bytes of a file of 100 events", static_cast<double>(sizeOfFirst), static_cast<double>(handSize),
             static_cast<double>(sizeOfFirst) / static_cast<double>(handSize), "<= 1.05");
    const double perRow = static_cast<double>(buffered) / count;
    PrintRow("memory of the buffered rows, bytes a row", perRow, 115, perRow / 115, "<= 1");
}

/// Writes, syncs and renames the bytes of one file, and syncs the directory.
void WriteByHand(const std::string& directory, const std::string& name, const std::string& bytes) {
    const std::string temporary = directory + "/new";
    const int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0 || ::write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
        ::fsync(file) != 0 || ::close(file) != 0 ||
        ::rename(temporary.c_str(), (directory + "/" + name).c_str()) != 0) {
        Fail("write " + name);
    }
    const int opened = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (::fsync(opened) != 0 || ::close(opened) != 0) {
        Fail("sync " + directory);
    }
}

void BenchUpload(const Sizes& sizes, const Host& host, const TempDirectory& scratch,
                 const std::shared_ptr<Model_t>& model) {
    const std::string directory = scratch / "floor";
    std::filesystem::create_directories(directory);
    double ours = 0;
    const double peak = PeakBytesOf([&] {
        ours = SecondsOf([&] {
            if (!UploadEvents(model, 0, kFirstDate + sizes.uploaded, false)) {
                Fail("upload");
            }
        });
    });
    std::vector<std::string> contents;
    for (const auto& entry : std::filesystem::directory_iterator(host.Outbox())) {
        std::ifstream file(entry.path(), std::ios::binary);
        contents.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    const double floor = SecondsOf([&] {
        for (std::size_t i = 0; i < contents.size(); ++i) {
            WriteByHand(directory, std::to_string(i), contents[i]);
        }
    });
    PrintRow("upload into the outbox, s (" + std::to_string(contents.size()) + " files)", ours, floor,
             floor / ours, ">= 0.9");
    const double perRow = peak / sizes.uploaded;
    PrintRow("  its memory at the peak, bytes a row", perRow, 115, perRow / 115, "<= 1");
}

void BenchReceive(const Sizes& sizes, const TempDirectory& scratch) {
    const std::string source = scratch / "source";
    const std::string target = scratch / "target";
    std::filesystem::create_directories(source);
    std::filesystem::create_directories(target);
    const std::string bytes(4000, 'x');
    std::vector<double> ours;
    std::vector<double> floor;
    for (uint32_t i = 0; i < sizes.received; ++i) {
        const std::string path = source + "/file" + std::to_string(i);
        std::ofstream(path) << bytes;
        LumContainer request;
        request.SetString(kFileStoreMovePath, LumString(std::string_view(path)));
        request.SetString(kFileStoreFileType, "Bench");
        request.SetString(kFileStoreFileLabel, "Bench");
        ours.push_back(SecondsOf([&] {
            uint32_t status = 1;
            if (!ActionDbCallAction(kFileStoreAction, request, status) || status != 0) {
                Fail("receive");
            }
        }));
        std::ofstream(path) << bytes;
        floor.push_back(SecondsOf([&] {
            const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            if (::fsync(file) != 0 || ::close(file) != 0 ||
                ::rename(path.c_str(), (target + "/file" + std::to_string(i)).c_str()) != 0) {
                Fail("rename");
            }
            WriteByHand(target, "json" + std::to_string(i), bytes.substr(0, 250));
        }));
    }
    const double one = Median(ours);
    const double other = Median(floor);
    PrintRow("file store receive, us", one * 1e6, other * 1e6, one / other, "<= 1.2");
}

void BenchScheduler(const Sizes& sizes) {
    for (uint32_t i = 0; i < sizes.models; ++i) {
        LumString name;
        name.Printf("Model%u", i);
        static_cast<void>(ModelCollection.Add(std::make_shared<Model_t>(
            name, "", "", "", "", ModelType::kUser, Policy::kNever, Policy::kNever, Policy::kNever)));
    }
    Run("UPDATE Scheduler SET S_Timestamp = " + std::to_string(kFirstDate));
    TaskSchedulerThread scheduler;
    scheduler.Initialise();
    scheduler.RunCycle(kFirstDate);
    const double count = ModelCollection.GetCount();
    const double still = SecondsOf([&] { scheduler.RunCycle(kFirstDate + 1); });
    const double hour = SecondsOf([&] { scheduler.RunCycle(kFirstDate + 1 + 3600); });
    PrintRow("scheduler, a field changed, us a model", hour * 1e6 / count, 1, hour * 1e6 / count, "< 1");
    PrintRow("scheduler, nothing changed, us in all", still * 1e6, 1, still * 1e6, "");
}

}  // namespace

int main(int argc, char** argv) {
    const Sizes& sizes = IsTiny(argc, argv) ? kTiny : kUsual;
    const TempDirectory scratch;
    const Host host;
    UploadEnabled = true;
    AggregationEnabled = true;
    const auto model = AddModel("Bench", ModelType::kUser, AggregationOperation::kNone);
    FillEvents(sizes.events);
    PrintHead();
    BenchAggregation(sizes);
    BenchEncoding(sizes, *model);
    BenchUpload(sizes, host, scratch, model);
    BenchReceive(sizes, scratch);
    BenchPurge(sizes, model);
    BenchScheduler(sizes);
    return 0;
}
