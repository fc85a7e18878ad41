#include "simulation/Reference.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "contract/Statuses.h"

namespace {

namespace chrono = std::chrono;

constexpr int64_t kDay = 86400;
constexpr std::size_t kFileEvents = 100;

chrono::year_month_day DateOf(int64_t time) {
    return chrono::floor<chrono::days>(chrono::sys_seconds(chrono::seconds(time)));
}

int64_t TimeOf(chrono::year_month_day date) {
    return chrono::sys_seconds(chrono::sys_days(date)).time_since_epoch().count();
}

/// Minute, hour, day of the month, day of the week, month and year.
std::array<int64_t, 6> FieldsOf(int64_t time) {
    const chrono::year_month_day date = DateOf(time);
    const chrono::weekday weekday{chrono::sys_days(date)};
    return {time / 60 % 60,
            time / 3600 % 24,
            static_cast<unsigned>(date.day()),
            weekday.c_encoding(),
            static_cast<unsigned>(date.month()),
            static_cast<int>(date.year())};
}

/// What the rows of one automatic row have in common beside device, group and grouping parameters. The day of
/// the month has no part in it for periods up to a day.
std::string BucketOf(Policy policy, int64_t time) {
    const std::array<int64_t, 6> fields = FieldsOf(time);
    std::string bucket = std::to_string(fields[5]) + "," + std::to_string(fields[4]);
    if (policy == Policy::kHourly) {
        bucket += "," + std::to_string(fields[1]);
    }
    return bucket;
}

std::string Number(int64_t number) {
    return std::to_string(number);
}

}  // namespace

std::vector<ParamText> InOrder(const ModelText& model) {
    std::vector<ParamText> params = model.params;
    std::sort(params.begin(), params.end(),
              [](const ParamText& one, const ParamText& other) { return one.name < other.name; });
    return params;
}

int64_t StartOfPeriod(Policy policy, int64_t time) {
    const chrono::year_month_day date = DateOf(time);
    switch (policy) {
        case Policy::kMinutely:
            return time - time % 60;
        case Policy::kHourly:
            return time - time % 3600;
        case Policy::kDaily:
            return time - time % kDay;
        case Policy::kWeekly:
            return time - time % kDay - FieldsOf(time)[3] * kDay;
        case Policy::kMonthly:
            return TimeOf(date.year() / date.month() / 1);
        case Policy::kYearly:
            return TimeOf(date.year() / 1 / 1);
        default:
            return time;
    }
}

std::string ReferenceEvent::Row() const {
    std::string row = Number(date) + "|" + Number(device) + "|" + Number(group);
    for (const std::string& value : values) {
        row += "|" + value;
    }
    return row;
}

Reference::Model* Reference::Find(const std::string& name) {
    const auto found = models_.find(name);
    return found == models_.end() || !found->second.isKnown ? nullptr : &found->second;
}

void Reference::Delete(const std::string& model) {
    if (Find(model) != nullptr) {
        models_.erase(model);
    }
}

uint32_t Reference::Create(const ReferenceCreate& create) {
    Model* const model = Find(create.model);
    if (model == nullptr) {
        return kActionRefused;
    }
    if (!model->memory.enabled) {
        return kActionDone;
    }
    ReferenceEvent event{now_, create.device.value_or(0), create.group.value_or(0)};
    for (const ParamText& param : InOrder(model->text)) {
        const auto value = create.values.find(param.name);
        if (value == create.values.end() && param.defaultText.empty()) {
            return kActionFailed;
        }
        event.values.push_back(value == create.values.end() ? param.defaultText : value->second);
    }
    model->events.push_back(event);
    return kActionDone;
}

uint32_t Reference::Query(const std::string& model, const ReferenceQuery& query,
                          std::vector<ReferenceEvent>& rows) const {
    const auto found = models_.find(model);
    if (found == models_.end() || !found->second.isKnown) {
        return kActionRefused;
    }
    if (query.start.has_value() && query.end.has_value()) {
        return kActionFailed;  // the statement is not SQL, and is to stay so
    }
    for (const ReferenceEvent& event : found->second.events) {
        if (event.date >= query.start.value_or(INT32_MIN) && event.date <= query.end.value_or(INT32_MAX)) {
            rows.push_back(event);
        }
    }
    const bool descends = query.direction == "Desc" && !query.sortColumn.empty();
    const auto sortBy = [&](auto&& key) {
        std::stable_sort(rows.begin(), rows.end(), [&](const ReferenceEvent& one, const ReferenceEvent& two) {
            return descends ? key(two) < key(one) : key(one) < key(two);
        });
    };
    if (query.sortColumn.empty() || query.sortColumn == "EventDate") {
        sortBy([](const ReferenceEvent& event) { return event.date; });
    } else if (query.sortColumn == "EventDeviceId") {
        sortBy([](const ReferenceEvent& event) { return event.device; });
    }
    if (query.pageSize > 0) {
        const auto skip = static_cast<std::size_t>(std::max(query.pageNumber - 1, 0));
        rows.erase(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(std::min(skip, rows.size())));
        rows.resize(std::min(rows.size(), static_cast<std::size_t>(query.pageSize)));
    }
    return kActionDone;
}

uint32_t Reference::Switch(const std::string& model, bool enabled) {
    Model* const found = Find(model);
    if (found == nullptr) {
        return kActionRefused;
    }
    if (found->memory.enabled != enabled) {
        found->memory.enabled = enabled;
        found->row.enabled = enabled;
    }
    return kActionDone;
}

uint32_t Reference::AskForUpload(const std::string& model) {
    const Model* const found = Find(model);
    if (found == nullptr) {
        return kActionRefused;
    }
    queue_.push_back({Kind::kUpload, model, found->memory.lastUpload, static_cast<int32_t>(now_), false});
    return kActionDone;
}

uint32_t Reference::AskForPurge(const std::string& model, std::optional<int32_t> end) {
    if (Find(model) == nullptr) {
        return kActionRefused;
    }
    queue_.push_back({Kind::kPurge, model, 0, end.value_or(static_cast<int32_t>(now_)), false});
    return kActionDone;
}

uint32_t Reference::CheckGap(const std::string& text, int32_t object, uint32_t time) {
    const auto [passed, isNew] = passed_.try_emplace({text, object}, time);
    if (!isNew && passed->second + gap_ * 60 > time) {
        return kActionWithinGap;
    }
    passed->second = time;
    return kActionDone;
}

void Reference::Reload() {
    for (auto file = dropped_.begin(); file != dropped_.end();) {
        const ModelText& text = file->second;
        const auto [model, isNew] = models_.try_emplace(text.name, Model{text});
        if (!isNew && (!model->second.isKnown || Definition(model->second.text) != Definition(text))) {
            ++file;  // refused, and left where it is: its table is there, or it has another checksum
            continue;
        }
        if (!isNew) {
            model->second.memory = {};  // the row stays as it was
        }
        file = dropped_.erase(file);
    }
    TakeBackComplete();
    CheckReferences();
}

void Reference::TakeBackComplete() {
    for (auto model = models_.begin(); model != models_.end();) {
        if (!model->second.isKnown && Resolves(model->second)) {
            model->second.isKnown = true;
            model = models_.begin();
        } else {
            ++model;
        }
    }
}

void Reference::CheckReferences() {
    for (auto model = models_.begin(); model != models_.end();) {
        if (model->second.isKnown && model->second.text.type != ModelType::kUser &&
            !Resolves(model->second)) {
            model->second.isKnown = false;
            model = models_.begin();
        } else {
            ++model;
        }
    }
}

bool Reference::Resolves(const Model& model) {
    const Model* const source = Find(model.text.source);
    const auto has = [source](const std::string& name) {
        return std::any_of(source->text.params.begin(), source->text.params.end(),
                           [&name](const ParamText& param) { return param.name == name; });
    };
    return source != nullptr &&
           std::all_of(model.text.params.begin(), model.text.params.end(),
                       [&has](const ParamText& param) { return has(param.source); }) &&
           std::all_of(model.text.groupedBy.begin(), model.text.groupedBy.end(), has);
}

void Reference::Restart() {
    queue_.clear();
    passed_.clear();
    for (auto& [name, model] : models_) {
        model.memory = model.row;
        model.isKnown = true;
    }
    Reload();
    lookedAt_ = storedTime_;
    if (lookedAt_ == 0) {
        lookedAt_ = now_;
        storedTime_ = now_;
    }
}

void Reference::RunScheduler() {
    constexpr std::array kPolicies = {Policy::kMinutely, Policy::kHourly,  Policy::kDaily,
                                      Policy::kWeekly,   Policy::kMonthly, Policy::kYearly};
    const std::array<int64_t, 6> before = FieldsOf(lookedAt_);
    const std::array<int64_t, 6> now = FieldsOf(now_);
    lookedAt_ = now_;
    for (std::size_t i = 0; i < now.size(); ++i) {
        if (now[i] != before[i]) {
            QueueDue(kPolicies[i]);
        }
    }
    if (now[0] != before[0]) {
        storedTime_ = now_;
    }
}

void Reference::QueueDue(Policy due) {
    const auto time = static_cast<int32_t>(now_);
    for (const auto& [name, model] : models_) {
        if (model.isKnown && model.text.aggregation == due) {
            queue_.push_back({Kind::kAggregate, name, model.memory.lastAggregation, time, true});
        }
    }
    for (const auto& [name, model] : models_) {
        if (model.isKnown && model.text.upload == due) {
            queue_.push_back({Kind::kUpload, name, model.memory.lastUpload, time, true});
        }
    }
    for (const auto& [name, model] : models_) {
        if (model.isKnown && model.text.deletion == due) {
            queue_.push_back({Kind::kPurge, name, 0, time, true});
        }
    }
}

void Reference::RunProcessor() {
    for (const Task& task : std::exchange(queue_, {})) {
        Run(task);
    }
}

void Reference::Run(const Task& task) {
    Model* const found = Find(task.model);
    if (found == nullptr) {
        return;
    }
    Model& model = *found;
    switch (task.kind) {
        case Kind::kAggregate:
            Aggregate(model, task.previous, task.time);
            return;
        case Kind::kUpload:
            Upload(model, task.previous, task.time, task.scheduled);
            return;
        case Kind::kPurge: {
            const int64_t end =
                task.scheduled ? StartOfPeriod(model.text.deletion, task.time) : int64_t{task.time};
            std::erase_if(model.events, [end](const ReferenceEvent& event) { return event.date < end; });
        }
    }
}

void Reference::Upload(Model& model, int32_t start, int32_t end, bool scheduled) {
    const int64_t last = model.memory.lastUpload;
    const int64_t from = std::max<int64_t>(start, last);
    const int64_t to = scheduled ? StartOfPeriod(model.text.upload, end) : int64_t{end};
    if (to <= last) {
        return;
    }
    model.memory.lastUpload = static_cast<int32_t>(to);
    model.row.lastUpload = model.memory.lastUpload;
    if (!uploads_ || !model.memory.enabled) {
        return;
    }
    std::size_t count = 0;
    for (const ReferenceEvent& event : model.events) {
        if (event.date >= from && event.date < to) {
            sent_.insert(model.text.name + "|" + event.Row());
            ++count;
        }
    }
    files_ += (count + kFileEvents - 1) / kFileEvents;
}

void Reference::Aggregate(Model& model, int32_t start, int32_t end) {
    const Policy policy = model.text.aggregation;
    const int64_t last = model.memory.lastAggregation;
    const int64_t from = std::max(StartOfPeriod(policy, start), last);
    const int64_t to = StartOfPeriod(policy, end);
    if (to <= last) {
        return;
    }
    const auto source = models_.find(model.text.source);
    if (aggregation_ && model.memory.enabled) {
        if (source == models_.end()) {
            return;  // the statement fails, and nothing of it stays
        }
        const std::vector<ParamText> sourceParams = InOrder(source->second.text);
        const auto valueOf = [&](const ReferenceEvent& event, const std::string& name) {
            const auto param = std::find_if(sourceParams.begin(), sourceParams.end(),
                                            [&](const ParamText& one) { return one.name == name; });
            return event.values.at(static_cast<std::size_t>(param - sourceParams.begin()));
        };
        std::map<std::string, std::vector<const ReferenceEvent*>> groups;
        for (const ReferenceEvent& event : source->second.events) {
            if (event.date >= from && event.date < to) {
                std::string key =
                    Number(event.group) + "|" + Number(event.device) + "|" + BucketOf(policy, event.date);
                for (const std::string& name : model.text.groupedBy) {
                    key += "|" + valueOf(event, name);
                }
                groups[key].push_back(&event);
            }
        }
        for (const auto& [key, events] : groups) {
            ReferenceEvent row{0, events.front()->device, events.front()->group};
            for (const ReferenceEvent* const event : events) {
                row.date = std::max(row.date, event->date);
            }
            for (const ParamText& param : InOrder(model.text)) {
                int64_t sum = 0;
                int64_t highest = INT64_MIN;
                for (const ReferenceEvent* const event : events) {
                    if (param.operation == AggregationOperation::kSum ||
                        param.operation == AggregationOperation::kMax) {
                        const int64_t value = std::stoll(valueOf(*event, param.source));
                        sum += value;
                        highest = std::max(highest, value);
                    }
                }
                row.values.push_back(param.operation == AggregationOperation::kSum   ? Number(sum)
                                     : param.operation == AggregationOperation::kMax ? Number(highest)
                                     : param.operation == AggregationOperation::kCount
                                         ? Number(static_cast<int64_t>(events.size()))
                                         : valueOf(*events.front(), param.source));
            }
            model.events.push_back(row);
        }
    }
    model.memory.lastAggregation = static_cast<int32_t>(to);
    model.row.lastAggregation = model.memory.lastAggregation;
}

std::pair<std::multiset<std::string>, std::size_t> Reference::TakeSent() {
    return {std::exchange(sent_, {}), std::exchange(files_, 0)};
}
