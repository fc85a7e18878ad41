// What a loss of power leaves. Two modules work, and every change of a file is written down. From the record
// the disk is built as it may be after a loss of power at any call, and the modules are started on it: the
// database must be sound, every event whose creation had been answered with 0 must reach the outbox, none
// more than twice and then in two files that are the same, no outbox entry, setting or filed definition may
// be half, a model or a setting that was answered with 0 is there, and events are taken in.
//
//     PowerCut [STATES [SEED]]
//     PowerCut --without-syncs [STATES [SEED]]   with no sync in the record: events must be missing

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "events/UploadBacklog.h"
#include "host/core/LumAgent.h"
#include "host/database/Database.h"
#include "host/file/LumFile.h"
#include "host/text/LumSha256.h"
#include "store/DatabaseScope.h"
#include "support/DiskStates.h"
#include "support/ModulePair.h"
#include "support/Sqlite.h"
#include "support/TempDirectory.h"
#include "support/shim/DiskRecord.h"

namespace {

namespace fs = std::filesystem;

const ModelText kLogon{.name = "Logon", .params = {{.name = "User"}}};
const ModelText kLate{.name = "Late", .params = {{.name = "User"}}};
constexpr uint32_t kSyncMicroseconds = 200;
constexpr int kThreads = 4;

void Mark(const std::string& text) {
    DiskRecordMark(text.c_str());
}

void CreateOne(const std::string& model, const std::string& user) {
    Require(ModulePair::Create(model, user), "an event is refused");
    Mark("event " + user);
}

/// Several threads at once, so that they share syncs.
void CreateMany(const std::string& model, const std::string& prefix, int count) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([=] {
            for (int i = 0; i < count; ++i) {
                CreateOne(model, prefix + std::to_string(thread) + "-" + std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void SetGap(int gap) {
    Mark("try-gap " + std::to_string(gap));
    Require(TestAgent::CallWith("EventLogManagerSetValues",
                                R"({"AlertMinimumGap":)" + std::to_string(gap) + "}") == 0,
            "settings are refused");
    Mark("gap " + std::to_string(gap));
}

/// The events so far; those of the second that runs belong to the next upload.
void UploadAndPurgeAll(const std::string& model) {
    const LumSeconds end = LumNow() + 1;
    while (LumNow() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ModulePair::UploadAndPurge(model, end);
}

void DropLate(const fs::path& place) {
    LumString error;
    Require(
        FileReplace(LumString((place / TestAgent::kModels / "Late.xml").string()), Definition(kLate), error),
        "drop a definition");
}

void TakeLogIn() {
    DBConnection connection(DatabasePool);
    Require(connection.Query("PRAGMA wal_checkpoint(PASSIVE)") != nullptr, "take the log in");
}

/// What is written down.
void Work(const fs::path& place) {
    {
        const ModulePair modules(place);
        Mark("model Logon");
        CreateMany("Logon", "first", 16);
        SetGap(30);
        DropLate(place);
        Require(TestAgent::CallWith("EventLogManagerReloadModels", "{}") == 0, "reload");
        Mark("model Late");
        CreateMany("Late", "late", 4);
        UploadAndPurgeAll("Logon");
        Require(ModulePair::Alert("something"), "an alert is refused");
        Mark("alert something");
        TakeLogIn();
        CreateMany("Logon", "second", 8);
        SetGap(31);
    }
    const ModulePair modules(place);
    CreateMany("Logon", "third", 100);
    UploadAndPurgeAll("Logon");
    UploadAndPurgeAll("Late");
    TakeLogIn();
    Mark("try-delete Late");
    Require(TestAgent::CallWith("EventLogManagerDeleteModels", R"({"ModelName":["Late"]})") == 0, "delete");
    Mark("deleted Late");
    CreateMany("Logon", "fourth", 8);
    SetGap(32);
}

/// What had been answered when the power went.
struct Answered {
    std::set<std::string> events;
    std::set<std::string> models;
    std::set<std::string> alerts;
    std::set<int> gaps{60};  // one of them
    bool mayBeDeleted = false;
    bool isDeleted = false;
};

Answered AnsweredBefore(const std::vector<DiskCall>& calls, std::size_t count) {
    Answered answered;
    for (std::size_t i = 0; i < count; ++i) {
        if (calls[i].kind != DiskCall::Kind::kMark) {
            continue;
        }
        const std::string& text = calls[i].bytes;
        const std::string word = text.substr(0, text.find(' '));
        const std::string rest = text.substr(word.size() + 1);
        if (word == "event") {
            answered.events.insert(rest);
        } else if (word == "model") {
            answered.models.insert(rest);
        } else if (word == "alert") {
            answered.alerts.insert(rest);
        } else if (word == "try-gap") {
            answered.gaps.insert(std::stoi(rest));
        } else if (word == "gap") {
            answered.gaps = {std::stoi(rest)};
        } else {
            answered.mayBeDeleted = true;
            answered.isDeleted = word == "deleted";
        }
    }
    return answered;
}

/// Files that wait in tmp/ are nobody's once they are old.
void AgeTemporaryFiles(const fs::path& place) {
    const fs::path directory = place / "data/tmp";
    if (!fs::exists(directory)) {
        return;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        timespec times[2] = {{}, {}};
        clock_gettime(CLOCK_REALTIME, &times[0]);
        times[0].tv_sec -= 120;
        times[1] = times[0];
        utimensat(AT_FDCWD, entry.path().c_str(), times, 0);
    }
}

/// Each description has its file, whole. The two names reach the disk with one sync, so until the start has
/// looked a description may stand alone.
void CheckOutbox(const fs::path& place, bool isStarted) {
    const fs::path outbox = place / "data/FileStore/outbox";
    if (!fs::exists(outbox)) {
        return;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(outbox)) {
        const std::string name = entry.path().filename().string();
        if (!name.ends_with(".json") || name.starts_with('.')) {
            continue;
        }
        const auto description = nlohmann::json::parse(ReadWholeFile(entry.path().string()), nullptr, false);
        Require(description.is_object(), "half a description: " + name);
        const fs::path path = outbox / description["FileName"].get<std::string>();
        if (!isStarted && !fs::exists(path)) {
            continue;
        }
        Require(fs::exists(path), "a description without its file: " + name);
        Require(Sha256Hex(ReadWholeFile(path.string())) == description["FileChecksum"].get<std::string>(),
                "half an outbox entry: " + name);
    }
}

void CheckDefinitions(const fs::path& place) {
    const fs::path models = place / TestAgent::kModels;
    for (const ModelText& model : {kLogon, kLate}) {
        for (const fs::path& path :
             {models / (model.name + ".xml"),
              models / model.name / MakeModel(model)->GetChecksum().GetString() / (model.name + ".xml")}) {
            Require(!fs::exists(path) || ReadWholeFile(path.string()) == Definition(model),
                    "half a definition: " + path.string());
        }
    }
}

void CheckModels(const Answered& answered) {
    std::shared_ptr<Model_t> model;
    Require(ModelCollection.Get("Logon", model), "the model is gone");
    const bool isLateThere = ModelCollection.Get("Late", model);
    Require(isLateThere || answered.mayBeDeleted || !answered.models.contains("Late"),
            "the reloaded model is gone");
    Require(!isLateThere || !answered.isDeleted, "the deleted model is there");
}

void CheckGap(const Answered& answered) {
    const std::string values = TestAgent::Call("EventLogManagerGetValues", "").container;
    Require(std::any_of(
                answered.gaps.begin(), answered.gaps.end(),
                [&values](int gap) { return values.find(":" + std::to_string(gap)) != std::string::npos; }),
            "a setting is lost: " + values);
}

void CheckDatabase() {
    DBConnection connection(DatabasePool);
    GenSqlResult* const rows = connection.Query("PRAGMA integrity_check");
    LumString answer;
    Require(rows != nullptr && rows->SelectRow(0) && rows->GetColumn(0, answer) && answer == "ok",
            std::string("the database is not sound: ") + answer.GetString());
}

/// Sends all that is left.
void Finish() {
    ModulePair::RunCycle();
    const LumSeconds end = LumNow() + 1;
    for (const char* const model : {"Logon", "Late"}) {
        std::shared_ptr<Model_t> known;
        if (ModelCollection.Get(model, known)) {
            ModulePair::UploadAndPurge(model, end);
        }
    }
    Require(UploadBacklog.GetOutstanding().empty(), "something is outstanding");
}

void CheckEvents(const fs::path& place, const Answered& answered) {
    const auto sent = SentEvents(place);
    std::set<std::string> twice;
    for (const auto& [user, files] : sent) {
        Require(files.size() == 1 || (files.size() == 2 && files[0] == files[1]),
                user + " was sent " + std::to_string(files.size()) + " times");
        if (files.size() == 2) {
            twice.insert(files[0]);
        }
    }
    Require(twice.size() <= 1, std::to_string(twice.size()) + " files were sent twice");
    for (const std::string& user : answered.events) {
        Require(sent.contains(user) || (answered.mayBeDeleted && user.starts_with("late")),
                user + " is lost");
    }
}

void CheckAlerts(const fs::path& place, const Answered& answered) {
    for (const std::string& text : answered.alerts) {
        const fs::directory_iterator outbox(place / "data/FileStore/outbox");
        Require(std::any_of(begin(outbox), end(outbox),
                            [&text](const fs::directory_entry& entry) {
                                return ReadWholeFile(entry.path().string()).find(text) != std::string::npos;
                            }),
                "an alert is lost");
    }
}

void CheckState(const fs::path& place, const Answered& answered) {
    AgeTemporaryFiles(place);
    CheckOutbox(place, false);
    CheckDefinitions(place);
    const ModulePair modules(place);
    CheckOutbox(place, true);
    LumAgentGetDebugContext(nullptr)->SetLevel(LumLogLevel::kPrint);
    CheckDatabase();
    CheckModels(answered);
    CheckGap(answered);
    Require(ModulePair::Create("Logon", "last"), "an event is refused");
    Finish();
    CheckEvents(place, answered);
    CheckAlerts(place, answered);
}

class PowerCut {
public:
    explicit PowerCut(bool ignoreSyncs) {
        ModulePair::Prepare(place_, kLogon);
        DiskStates states(place_);
        DiskRecordBegin(place_.c_str(), kSyncMicroseconds);
        Work(place_);
        std::vector<DiskCall> calls;
        DiskRecordEnd(&calls);
        states.Take(std::move(calls), ignoreSyncs);
        states_ = std::move(states);
    }

    [[nodiscard]] std::size_t CountCalls() const { return states_.Calls().size(); }

    /// Empty where all is well, else what is not.
    [[nodiscard]] std::string Try(uint64_t seed) {
        std::mt19937_64 random(seed);
        const std::size_t count = random() % (CountCalls() + 1);
        const uint64_t stateSeed = random();
        const fs::path place = scratch_.Path() / "state";
        fs::remove_all(place);
        states_.Build(count, stateSeed, place);
        try {
            CheckState(place, AnsweredBefore(states_.Calls(), count));
            return {};
        } catch (const std::exception& error) {
            return "call " + std::to_string(count) + ": " + error.what();
        }
    }

private:
    const TempDirectory scratch_;
    const fs::path place_ = scratch_.Path() / "agent";
    DiskStates states_{scratch_.Path()};
};

}  // namespace

int main(int argc, char** argv) {
    const bool withoutSyncs = argc > 1 && std::string_view(argv[1]) == "--without-syncs";
    const int first = withoutSyncs ? 2 : 1;
    const uint64_t count = argc > first ? std::strtoull(argv[first], nullptr, 10) : 1000;
    const uint64_t seed = argc > first + 1 ? std::strtoull(argv[first + 1], nullptr, 10) : 1;
    try {
        PowerCut powerCut(withoutSyncs);
        uint64_t bad = 0;
        uint64_t lost = 0;
        for (uint64_t i = 0; i < count; ++i) {
            const std::string fault = powerCut.Try(seed + i);
            bad += fault.empty() ? 0 : 1;
            lost += fault.ends_with(" is lost") ? 1 : 0;
            if (!fault.empty() && !withoutSyncs) {
                std::printf("seed %lu, %s\n", static_cast<unsigned long>(seed + i), fault.c_str());
            }
        }
        std::printf("%lu states of %zu calls, %lu of them bad, %lu for want of an event.\n",
                    static_cast<unsigned long>(count), powerCut.CountCalls(), static_cast<unsigned long>(bad),
                    static_cast<unsigned long>(lost));
        return withoutSyncs ? (lost > 0 ? 0 : 1) : (bad == 0 ? 0 : 1);
    } catch (const std::exception& error) {
        std::printf("failed: %s\n", error.what());
        return 1;
    }
}
