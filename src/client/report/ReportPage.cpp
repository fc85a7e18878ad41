#include "client/report/ReportPage.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <functional>

#include "client/report/Html.h"
#include "client/report/ReportStyle.h"
#include "client/text/Quantity.h"
#include "client/text/TimeText.h"

namespace {

constexpr std::size_t kDateLength = 10;
constexpr std::size_t kMinuteLength = 16;
constexpr std::size_t kHoursOfDay = 24;

std::string DateOf(int64_t seconds) {
    return FormatLocalTime(seconds).substr(0, kDateLength);
}

std::string MinuteOf(int64_t seconds) {
    std::string text = FormatLocalTime(seconds).substr(0, kMinuteLength);
    std::replace(text.begin(), text.end(), 'T', ' ');
    return text;
}

/// Labels for the days: the first, the last and three between them.
std::vector<std::string> DayAxis(const std::vector<int64_t>& days) {
    constexpr std::size_t kLabels = 5;
    std::vector<std::string> labels;
    const std::size_t count = std::min(days.size(), kLabels);
    for (std::size_t i = 0; i < count; ++i) {
        labels.push_back(DateOf(days[count == 1 ? 0 : i * (days.size() - 1) / (count - 1)]));
    }
    return labels;
}

std::string Section(const std::string& title, const std::string& below, const std::string& content) {
    return "<section><h2>" + title + "</h2>\n<p class=\"quiet\">" + html::Text(below) + "</p>\n" + content +
           "</section>\n";
}

std::string Tiles(const ReportData& data) {
    std::size_t active = 0;
    for (const ModelReport& model : data.models) {
        active += model.byDevice.GetTotal() > 0 ? 1 : 0;
    }
    const std::vector<RecordGap> gaps = data.FindGaps();
    std::string out =
        "<div class=\"tiles\">\n" + html::Tile(WithThousands(data.CountEvents()), "events") +
        html::Tile(std::to_string(active) + " of " + std::to_string(data.models.size()),
                   "models with events") +
        html::Tile(WithThousands(data.CountByDevice().size()), "devices") +
        html::Tile(gaps.empty() ? "none" : DurationText(gaps.front().to - gaps.front().from), "longest gap");
    if (data.alertsSent) {
        out +=
            html::Tile(WithThousands(static_cast<uint64_t>(*data.alertsSent)), "alerts sent since the start");
    }
    if (data.databaseBytes) {
        out += html::Tile(BytesText(*data.databaseBytes), "database");
    }
    return out + "</div>\n";
}

/// A table of the figures that the columns show, for whoever wants numbers.
std::string DayTable(const ReportData& data, const std::vector<uint64_t>& counts) {
    std::string out =
        "<details><summary>Numbers by day</summary>\n<table><tr><th>Day</th><th "
        "class=\"n\">Events</th></tr>\n";
    for (std::size_t i = 0; i < counts.size(); ++i) {
        out += "<tr><td>" + DateOf(data.days[i]) + "</td><td class=\"n\">" + WithThousands(counts[i]) +
               "</td></tr>\n";
    }
    return out + "</table></details>\n";
}

std::string OverTime(const ReportData& data) {
    std::vector<html::ColumnPart> parts;
    std::vector<uint64_t> sums(data.days.size());
    std::string legend = "<ul class=\"legend\">";
    for (const ModelReport& model : data.models) {
        const std::vector<uint64_t> counts = model.byDevice.GetCounts();
        std::transform(counts.begin(), counts.end(), sums.begin(), sums.begin(), std::plus<>());
        if (model.byDevice.GetTotal() == 0) {
            continue;
        }
        if (parts.size() <= html::kColours) {
            const std::size_t place = parts.size();
            parts.push_back({place, counts});
            legend += R"(<li><span class="key" style="background:)" + html::Colour(place) + "\"></span>" +
                      html::Text(place == html::kColours ? "other models" : model.name) + "</li>";
        } else {
            std::vector<uint64_t>& others = parts.back().counts;
            std::transform(counts.begin(), counts.end(), others.begin(), others.begin(), std::plus<>());
        }
    }
    if (parts.empty()) {
        return Section("Events over time", "No model has an event of this time.", "");
    }
    return Section("Events over time", "Events by local day, the models on top of each other.",
                   html::Columns(parts, 240, "Events by day and model", DayAxis(data.days)) + legend +
                       "</ul>\n" + DayTable(data, sums));
}

/// A bar for each model that has events. The others are named below: a list of empty bars tells nothing.
std::string ModelBars(const ReportData& data, std::size_t colour,
                      const std::function<uint64_t(const ModelReport&)>& count) {
    std::vector<html::Bar> bars;
    std::string without;
    for (const ModelReport& model : data.models) {
        if (count(model) > 0) {
            bars.push_back({model.name, count(model), false});
        } else {
            without += (without.empty() ? "" : ", ") + model.name;
        }
    }
    return html::BarList(bars, colour) +
           (without.empty() ? "" : "<p class=\"quiet rest\">None: " + html::Text(without) + "</p>\n");
}

std::string ByModel(const ReportData& data) {
    return Section("By model", "Events of this time.",
                   ModelBars(data, 0, [](const ModelReport& model) { return model.byDevice.GetTotal(); }));
}

std::string ByDevice(const ReportData& data) {
    constexpr std::size_t kMost = 10;
    std::vector<html::Bar> bars;
    uint64_t others = 0;
    for (const auto& [device, count] : data.CountByDevice()) {
        if (bars.size() < kMost) {
            bars.push_back({"Device " + device, count, false});
        } else {
            others += count;
        }
    }
    if (others > 0) {
        bars.push_back({"other devices", others, true});
    }
    return Section("By device", "All models; events without a device are of device 0.",
                   html::BarList(bars, 2));
}

/// Day by day and hour by hour, so that a time without events is a hole.
std::string Gaps(const ReportData& data) {
    constexpr std::size_t kMost = 8;
    std::vector<std::vector<uint64_t>> rows(kHoursOfDay, std::vector<uint64_t>(data.days.size()));
    for (std::size_t i = 0, day = 0; i < data.hours.size(); ++i) {
        while (day + 1 < data.days.size() && data.hours[i] >= data.days[day + 1]) {
            ++day;
        }
        const std::time_t time = data.hours[i];
        std::tm fields{};
        localtime_r(&time, &fields);
        rows[static_cast<std::size_t>(fields.tm_hour)][day] += data.eventsByHour[i];
    }
    std::string content = html::HeatField(rows, "Events by day and hour of the day",
                                          {"0 h", "6 h", "12 h", "18 h", "23 h"}, DayAxis(data.days));
    const std::vector<RecordGap> gaps = data.FindGaps();
    if (!gaps.empty()) {
        content +=
            "<h3>The longest gaps</h3>\n<table><tr><th>From</th><th>To</th><th "
            "class=\"n\">Length</th></tr>\n";
    }
    for (std::size_t i = 0; i < std::min(gaps.size(), kMost); ++i) {
        content += "<tr><td>" + MinuteOf(gaps[i].from) + "</td><td>" + MinuteOf(gaps[i].to) +
                   "</td><td class=\"n\">" + DurationText(gaps[i].to - gaps[i].from) + "</td></tr>\n";
    }
    content += gaps.empty() ? "" : "</table>\n";
    return Section("Gaps in the record",
                   gaps.empty()
                       ? "Each column is a day, each row an hour. No two hours in a row are without an event."
                       : "Each column is a day, each row an hour. " + CountText(gaps.size(), "time") +
                             " of two hours or more without any event.",
                   content);
}

std::string Alerts(const ReportData& data) {
    if (!data.alertsSent || !data.alertsHeldBack) {
        return Section("Alerts", "This agent does not count its alerts.", "");
    }
    return Section("Alerts", "Since the agent's start.",
                   html::BarList({{"sent", static_cast<uint64_t>(*data.alertsSent), false},
                                  {"held back", static_cast<uint64_t>(*data.alertsHeldBack), false}},
                                 5));
}

std::string Sizes(const ReportData& data) {
    std::string below = "Events stored in all, whatever their time.";
    if (data.databaseBytes) {
        below += " The database takes " + BytesText(*data.databaseBytes) + ".";
    }
    if (data.outboxFiles && data.outboxBytes) {
        below += " " + CountText(static_cast<uint64_t>(*data.outboxFiles), "file") + " of " +
                 BytesText(*data.outboxBytes) + " wait to be sent.";
    }
    return Section("Sizes", below, ModelBars(data, 3, [](const ModelReport& model) {
                       return static_cast<uint64_t>(std::max<int64_t>(model.stored, 0));
                   }));
}

std::string ModelSection(const ReportData& data, const ModelReport& model, std::size_t place) {
    std::string content = html::Columns({{place, model.byDevice.GetCounts()}}, 90,
                                        "Events of " + model.name + " by day", DayAxis(data.days));
    content += "<div class=\"values\">\n";
    for (const ValueCounts& values : model.values) {
        std::vector<html::Bar> bars;
        for (const auto& [value, count] : values.top) {
            bars.push_back({value, count, false});
        }
        if (values.others > 0) {
            bars.push_back({std::string(kOtherValues), values.others, true});
        }
        content +=
            "<div><h3>" + html::Text(values.parameter) + "</h3>\n" + html::BarList(bars, place) + "</div>\n";
    }
    content += "</div>\n";
    const std::string tag = model.enabled ? "" : "<span class=\"tag\">disabled</span>";
    return Section(html::Text(model.name) + tag,
                   CountText(model.byDevice.GetTotal(), "event") + ". " + model.note, content);
}

}  // namespace

std::string ReportAsHtml(const ReportData& data) {
    const std::string title = "Events of " + data.host;
    std::string out =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta name=\"color-scheme\" content=\"light dark\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
        "'unsafe-inline'; img-src data:\">\n<link rel=\"icon\" href=\"data:,\">\n<title>" +
        html::Text(title) + "</title>\n<style>" + kReportStyle + "</style>\n</head>\n<body>\n<main>\n";
    out += "<h1>" + html::Text(title) + "</h1>\n<p class=\"quiet\">" + MinuteOf(data.since) + " to " +
           MinuteOf(data.until) + ", local time</p>\n";
    out += Tiles(data) + OverTime(data);
    out += "<div class=\"pair\">\n" + ByModel(data) + ByDevice(data) + "</div>\n";
    out += Gaps(data);
    out += "<div class=\"pair\">\n" + Alerts(data) + Sizes(data) + "</div>\n";
    std::size_t place = 0;
    for (const ModelReport& model : data.models) {
        if (model.byDevice.GetTotal() > 0) {
            out += ModelSection(data, model, std::min(place++, html::kColours));
        }
    }
    out += "<footer>Made on " + MinuteOf(data.made) +
           " by lumctl " LUM_VERSION ".</footer>\n</main>\n</body>\n</html>\n";
    return out;
}
