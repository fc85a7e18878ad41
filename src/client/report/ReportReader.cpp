#include "client/report/ReportReader.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "client/commands/CommandOutput.h"
#include "client/commands/StatusPage.h"
#include "client/connection/Answer.h"
#include "client/connection/DataDirectory.h"
#include "client/events/EventWalk.h"
#include "client/events/RowWriter.h"
#include "client/model/Requests.h"
#include "contract/Actions.h"
#include "contract/ContainerKeys.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kTopValues = 6;
/// Values that hardly ever come twice make no picture worth drawing.
constexpr std::size_t kMostValues = 2000;

/// Counts the values of one parameter.
struct ParameterTally {
    std::string name;
    std::string type;
    std::map<std::string, uint64_t, std::less<>> counts;
    bool tooMany = false;

    void Add(const EventValue& value) {
        if (tooMany) {
            return;
        }
        ++counts[CellOf(value, type)];
        tooMany = counts.size() > kMostValues;
    }
};

bool IsCountable(std::string_view type) {
    return type == kTypeString || type == kTypeEnum || type == kTypeBoolean;
}

ValueCounts TopOf(const ParameterTally& tally) {
    ValueCounts top{tally.name, {tally.counts.begin(), tally.counts.end()}, 0};
    std::stable_sort(top.top.begin(), top.top.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    for (std::size_t i = kTopValues; i < top.top.size(); ++i) {
        top.others += top.top[i].second;
    }
    top.top.resize(std::min(top.top.size(), kTopValues));
    return top;
}

class Reader {
public:
    Reader(AgentConnection& agent, ReportData& data, const std::function<void(uint64_t)>& progress)
        : agent_(agent), data_(data), progress_(progress) {}

    void Read(const std::string& name, bool enabled) {
        const AgentAnswer answer = Required(CallAction(agent_, actions::kGetModel, ModelRequest(name)));
        const std::optional<ModelDefinition> definition = ModelDefinitionFromAnswer(answer.content);
        if (!definition) {
            return;
        }
        ModelReport& report = data_.models.emplace_back(name, data_.days);
        report.note = definition->note;
        report.enabled = enabled;
        std::vector<ParameterTally> tallies;
        for (const ModelParameter& parameter : definition->parameters) {
            if (IsCountable(parameter.type)) {
                tallies.push_back({parameter.name, parameter.type, {}, false});
            }
        }
        Count(report, tallies);
        for (const ParameterTally& tally : tallies) {
            if (!tally.tooMany && !tally.counts.empty()) {
                report.values.push_back(TopOf(tally));
            }
        }
    }

private:
    void Count(ModelReport& report, std::vector<ParameterTally>& tallies) {
        const EventRange range{report.name, static_cast<int32_t>(data_.since),
                               static_cast<int32_t>(data_.until), EventOrder::kOldestFirst, std::nullopt};
        EventWalk walk(agent_, range, 0, true);
        EventPage page;
        while (walk.Next(page)) {
            report.stored = page.GetEventCount();
            for (std::size_t row = 0; row < walk.GetEnd(); ++row) {
                AddRow(report, tallies, page, row);
            }
            progress_(read_ += walk.GetEnd());
        }
        Required(walk.GetFailure());
        if (report.stored == 0) {
            report.stored = page.GetEventCount();
        }
    }

    void AddRow(ModelReport& report, std::vector<ParameterTally>& tallies, const EventPage& page,
                std::size_t row) {
        const int64_t date = page.GetDate(row);
        report.byDevice.Add(date, CellOf(page.GetValue(keys::kEventDeviceId, row), kTypeInteger));
        const auto after = std::upper_bound(data_.hours.begin(), data_.hours.end(), date);
        if (after != data_.hours.begin()) {
            ++data_.eventsByHour[static_cast<std::size_t>(after - data_.hours.begin()) - 1];
        }
        for (ParameterTally& tally : tallies) {
            tally.Add(page.GetValue(tally.name, row));
        }
    }

    AgentConnection& agent_;
    ReportData& data_;
    const std::function<void(uint64_t)>& progress_;
    uint64_t read_ = 0;
};

template <class Number>
std::optional<Number> NumberIn(const Json& json, std::string_view name) {
    const Json& value = MemberOf(json, name);
    return value.is_number() ? std::optional(value.get<Number>()) : std::nullopt;
}

void ReadSizes(AgentConnection& agent, ReportData& data) {
    std::error_code failure;
    const uintmax_t bytes = std::filesystem::file_size(DatabaseIn(GuessDataDirectory(agent)), failure);
    if (!failure) {
        data.databaseBytes = bytes;
    }
    const AgentAnswer status = FetchStatus(agent);
    const Json& alerts = StatusMember(status.content, "alerts");
    data.alertsSent = NumberIn<int64_t>(alerts, "sent");
    data.alertsHeldBack = NumberIn<int64_t>(alerts, "heldBack");
    const Json& outbox = StatusMember(status.content, "outbox");
    data.outboxFiles = NumberIn<int64_t>(outbox, "files");
    data.outboxBytes = NumberIn<uint64_t>(outbox, "bytes");
}

}  // namespace

void ReadReportData(AgentConnection& agent, ReportData& data, const std::function<void(uint64_t)>& progress) {
    data.days = PeriodStarts(TallyPeriod::kDay, data.since, data.until);
    data.hours = PeriodStarts(TallyPeriod::kHour, data.since, data.until);
    data.eventsByHour.assign(data.hours.size(), 0);
    const AgentAnswer list = Required(FetchModelList(agent));
    Reader reader(agent, data, progress);
    for (const Json& row : RowsOf(MemberOf(list.content, keys::kResult))) {
        reader.Read(TextOf(MemberOf(row, keys::kModelName)), MemberOf(row, keys::kModelEnabled) == true);
    }
    std::stable_sort(data.models.begin(), data.models.end(), [](const ModelReport& a, const ModelReport& b) {
        return a.byDevice.GetTotal() > b.byDevice.GetTotal();
    });
    ReadSizes(agent, data);
}
