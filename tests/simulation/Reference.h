#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/ModelText.h"

/// One event as the reference keeps it; the values of the parameters in the order of their names, "NULL" for
/// one without a value.
struct ReferenceEvent {
    int64_t date = 0;
    int32_t device = 0;
    int32_t group = 0;
    std::vector<std::string> values{};

    /// As a row of the table: the parts with | between them.
    [[nodiscard]] std::string Row() const;
};

/// What a create is asked with; a value that is absent is left out.
struct ReferenceCreate {
    std::string model;
    std::optional<int32_t> device;
    std::optional<int32_t> group;
    std::map<std::string, std::string> values;  ///< texts, and integers as texts
};

/// What a query is asked with.
struct ReferenceQuery {
    std::optional<int32_t> start;
    std::optional<int32_t> end;
    int32_t pageSize = 0;
    int32_t pageNumber = 0;
    std::string sortColumn;  ///< empty for none
    std::string direction;   ///< empty for none
};

/// The module's rules, as plainly as they can be written: no database, no threads, no files, in UTC. What the
/// module does must be what this does.
class Reference {
public:
    /// What the module keeps of a model, in memory or in its row.
    struct State {
        bool enabled = true;
        int32_t lastAggregation = 0;
        int32_t lastUpload = 0;
    };
    struct Model {
        ModelText text;
        State memory{};
        State row{};
        std::vector<ReferenceEvent> events{};
        bool isKnown = true;  ///< in memory; else there are its row and its table alone
    };

    explicit Reference(int64_t now) : now_(now) {}

    void SetClock(int64_t now) { now_ = now; }
    [[nodiscard]] int64_t Now() const { return now_; }

    [[nodiscard]] const std::map<std::string, Model>& Models() const { return models_; }
    [[nodiscard]] const std::map<std::string, ModelText>& Dropped() const { return dropped_; }
    [[nodiscard]] int64_t SchedulerTime() const { return storedTime_; }

    // The actions; each returns its status.
    [[nodiscard]] uint32_t Create(const ReferenceCreate& create);
    /// The rows of the answer in their order; where the order leaves it open, in any.
    [[nodiscard]] uint32_t Query(const std::string& model, const ReferenceQuery& query,
                                 std::vector<ReferenceEvent>& rows) const;
    [[nodiscard]] uint32_t Switch(const std::string& model, bool enabled);
    void Delete(const std::string& model);
    [[nodiscard]] uint32_t AskForUpload(const std::string& model);
    [[nodiscard]] uint32_t AskForPurge(const std::string& model, std::optional<int32_t> end);
    [[nodiscard]] uint32_t CheckGap(const std::string& text, int32_t object, uint32_t time);
    void SetUploads(bool on) { uploads_ = on; }
    void SetAggregation(bool on) { aggregation_ = on; }
    void SetGap(uint32_t minutes) { gap_ = minutes; }

    void Drop(const std::string& file, const ModelText& model) { dropped_[file] = model; }
    void Reload();
    void Restart();
    void RunScheduler();
    void RunProcessor();

    /// The rows that were sent since this was asked last, and in how many files.
    [[nodiscard]] std::pair<std::multiset<std::string>, std::size_t> TakeSent();

private:
    enum class Kind : uint8_t { kAggregate, kUpload, kPurge };
    struct Task {
        Kind kind;
        std::string model;
        int32_t previous;
        int32_t time;
        bool scheduled;
    };

    /// The model of that name; null where nobody knows it.
    [[nodiscard]] Model* Find(const std::string& name);
    /// Knows automatic models again whose sources are there now.
    void TakeBackComplete();
    /// Forgets automatic models whose sources are not known, or have not what they refer to.
    void CheckReferences();
    [[nodiscard]] bool Resolves(const Model& model);
    void QueueDue(Policy due);
    void Run(const Task& task);
    void Aggregate(Model& model, int32_t start, int32_t end);
    void Upload(Model& model, int32_t start, int32_t end, bool scheduled);

    int64_t now_;
    std::map<std::string, Model> models_;
    std::map<std::string, ModelText> dropped_;  // by file name
    std::vector<Task> queue_;
    bool uploads_ = true;
    bool aggregation_ = true;
    uint32_t gap_ = 60;
    std::map<std::pair<std::string, int32_t>, uint32_t> passed_;
    int64_t lookedAt_ = 0;
    int64_t storedTime_ = 0;
    std::multiset<std::string> sent_;
    std::size_t files_ = 0;
};

/// The parameters in the order of their names.
[[nodiscard]] std::vector<ParamText> InOrder(const ModelText& model);
/// The start of the period that `time` lies in; the time itself where the policy has none.
[[nodiscard]] int64_t StartOfPeriod(Policy policy, int64_t time);
