#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>
#include <ostream>

#include "client/chart/Bars.h"
#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/events/EventFilter.h"
#include "client/events/EventTally.h"
#include "client/events/EventWalk.h"
#include "client/events/RowWriter.h"
#include "client/text/ProgressBar.h"
#include "client/text/Quantity.h"
#include "client/text/Suggestion.h"
#include "client/text/TextTable.h"
#include "client/text/TimeText.h"
#include "contract/ContainerKeys.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr int kHours = 24;
constexpr std::size_t kMostSeries = 12;
constexpr std::string_view kColour = "\x1b[36m";
constexpr std::string_view kPlain = "\x1b[0m";

/// A span of time without an end given lasts until now.
void SetSpan(ChartOptions& options) {
    const int64_t now = std::time(nullptr);
    const int64_t until = options.query.until.value_or(static_cast<int32_t>(now));
    options.query.until = static_cast<int32_t>(until);
    if (!options.query.since) {
        options.query.since =
            static_cast<int32_t>(options.byHour ? StartOfLocalHour(until) - (kHours - 1) * int64_t{3600}
                                                : StartOfLocalDay(until, kDefaultDays - 1));
    }
}

/// The column that `per` names, and its type.
ModelParameter FindPer(const ModelDefinition& model, const std::string& per) {
    std::vector<std::string> known{"device", "group"};
    if (per == known[0] || per == known[1]) {
        return {per == known[0] ? keys::kEventDeviceId : keys::kEventGroupId, std::string(kTypeInteger)};
    }
    for (const ModelParameter& parameter : model.parameters) {
        known.push_back(parameter.name);
        if (parameter.name == per) {
            return parameter;
        }
    }
    throw ClientError("--per: model '" + model.name + "' has no parameter '" + per + "'" +
                      DidYouMean(per, known));
}

std::string LabelOf(int64_t start, bool byHour) {
    const std::string time = FormatLocalTime(start);
    static constexpr std::size_t kDateLength = 10;
    static constexpr std::size_t kMinuteEnd = 16;
    return byHour ? time.substr(0, kDateLength) + " " +
                        time.substr(kDateLength + 1, kMinuteEnd - kDateLength - 1)
                  : time.substr(0, kDateLength);
}

class Chart {
public:
    Chart(CommandContext& context, const ChartOptions& options, const EventTally& tally)
        : console_(context.console), options_(options), tally_(tally) {}

    void Print() const {
        const std::vector<int64_t>& starts = tally_.GetStarts();
        console_.out << Harmless(options_.query.model) << ": events by " << (options_.byHour ? "hour" : "day")
                     << (options_.per ? " per " + Harmless(*options_.per) : "") << ", "
                     << LabelOf(starts.front(), options_.byHour) << " to "
                     << LabelOf(starts.back(), options_.byHour) << "\n\n";
        if (tally_.GetTotal() == 0) {
            console_.out << "No events in this time; --since TIME looks further back.\n";
        } else if (options_.per) {
            PrintSeries();
        } else {
            PrintBars();
        }
    }

private:
    [[nodiscard]] std::string Coloured(const std::string& bar) const {
        return console_.colours ? std::string(kColour) + bar + std::string(kPlain) : bar;
    }

    void PrintBars() const {
        const std::vector<uint64_t> counts = tally_.GetCounts();
        const uint64_t largest = *std::max_element(counts.begin(), counts.end());
        const std::size_t digits = WithThousands(largest).size();
        const std::size_t label = LabelOf(0, options_.byHour).size();
        const std::size_t width =
            console_.columns > label + digits + 14 ? console_.columns - label - digits - 4 : 10;
        for (std::size_t i = 0; i < counts.size(); ++i) {
            const std::string number = WithThousands(counts[i]);
            console_.out << LabelOf(tally_.GetStarts()[i], options_.byHour) << "  "
                         << std::string(digits - number.size(), ' ') << number;
            const std::string bar = HorizontalBar(counts[i], largest, width, console_.unicode);
            console_.out << (bar.empty() ? "" : "  " + Coloured(bar)) << '\n';
        }
        console_.out << "\n" << CountText(tally_.GetTotal(), "event") << '\n';
    }

    void PrintSeries() const {
        const std::vector<EventTally::Series> all = tally_.GetSeries(kMostSeries);
        std::size_t valueWidth = 0;
        uint64_t largest = 0;
        const std::size_t columns = std::max<std::size_t>(console_.columns, 60) / 2;
        for (const EventTally::Series& series : all) {
            valueWidth = std::max(valueWidth, DisplayWidth(Shown(series.value)));
            const std::vector<uint64_t> counts = Condensed(series.counts, columns);
            largest = std::max(largest, *std::max_element(counts.begin(), counts.end()));
        }
        for (const EventTally::Series& series : all) {
            const std::string value = Shown(series.value);
            console_.out << value << std::string(valueWidth - DisplayWidth(value), ' ') << "  "
                         << Coloured(Sparkline(Condensed(series.counts, columns), largest, console_.unicode))
                         << "  " << WithThousands(series.total) << '\n';
        }
        console_.out << "\n"
                     << CountText(tally_.GetTotal(), "event") << "; the highest mark is "
                     << WithThousands(largest) << '\n';
    }

    static std::string Shown(const std::string& value) {
        constexpr std::size_t kLongest = 30;
        std::string shown = Harmless(value.empty() ? "(empty)" : value);
        if (DisplayWidth(shown) > kLongest) {
            TextTable::CutTo(shown, kLongest);
        }
        return shown;
    }

    const Console& console_;
    const ChartOptions& options_;
    const EventTally& tally_;
};

Json ToJson(const ChartOptions& options, const EventTally& tally) {
    Json json{{"model", options.query.model}, {"by", options.byHour ? "hour" : "day"}};
    json["starts"] = tally.GetStarts();
    json["counts"] = tally.GetCounts();
    if (options.per) {
        json["per"] = *options.per;
        json["series"] = Json::array();
        for (const EventTally::Series& series : tally.GetSeries(kMostSeries)) {
            json["series"].push_back(
                {{"value", series.value}, {"total", series.total}, {"counts", series.counts}});
        }
    }
    json["total"] = tally.GetTotal();
    return json;
}

/// Walks over the events of the span and counts those that the filter takes.
void Count(CommandContext& context, const ChartOptions& options, const EventFilter& filter,
           const ModelParameter& per, EventTally& tally) {
    ProgressBar bar(context.console.err, context.console.errIsTerminal);
    EventWalk walk(context.agent,
                   {options.query.model, options.query.since, options.query.until, EventOrder::kOldestFirst,
                    std::nullopt},
                   0, true);
    EventPage page;
    while (walk.Next(page)) {
        for (std::size_t row = 0; row < walk.GetEnd(); ++row) {
            if (filter.Takes(page, row)) {
                tally.Add(page.GetDate(row),
                          options.per ? CellOf(page.GetValue(per.name, row), per.type) : "");
            }
        }
        bar.Update(0, 0, tally.GetTotal());
    }
    bar.Erase();
    Required(walk.GetFailure());
}

}  // namespace

ExitStatus ShowChart(CommandContext& context, const ChartOptions& given) {
    ChartOptions options = given;
    const ModelDefinition model = FetchModel(context.agent, options.query.model);
    const EventFilter filter(model, options.query);
    const ModelParameter per = options.per ? FindPer(model, *options.per) : ModelParameter();
    SetSpan(options);
    if (*options.query.since > *options.query.until) {
        return Fail(context, ExitStatus::kWrongCommandLine, "--since is later than --until");
    }
    EventTally tally(PeriodStarts(options.byHour ? TallyPeriod::kHour : TallyPeriod::kDay,
                                  *options.query.since, *options.query.until));
    Count(context, options, filter, per, tally);
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, ToJson(options, tally));
    } else {
        Chart(context, options, tally).Print();
    }
    return ExitStatus::kDone;
}
