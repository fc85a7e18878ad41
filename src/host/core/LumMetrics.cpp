#include "host/core/LumMetrics.h"

#include <charconv>
#include <cmath>
#include <exception>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <utility>

#include "host/log/LumDebug.h"

namespace {

const std::vector<double> kSeconds = {0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                      0.1,    0.25,    0.5,    1,     2.5,    5,     10,   30};

void AppendNumber(std::string& text, double number) {
    char digits[32];
    const auto [end, error] = std::to_chars(digits, digits + sizeof(digits), number);
    text.append(digits, end);
}

/// Backslashes and line ends, and in a label's value quotes, become escapes.
void AppendEscaped(std::string& text, std::string_view value, bool isLabel) {
    for (const char character : value) {
        if (character == '\n') {
            text += "\\n";
            continue;
        }
        if (character == '\\' || (isLabel && character == '"')) {
            text += '\\';
        }
        text += character;
    }
}

/// {a="1",b="2"} without the braces.
std::string LabelText(const LumMetricLabels& labels) {
    std::string text;
    for (const auto& [name, value] : labels) {
        text.append(text.empty() ? "" : ",").append(name.View()).append("=\"");
        AppendEscaped(text, value.View(), true);
        text += '"';
    }
    return text;
}

void AppendLine(std::string& text, std::string_view name, std::string_view suffix, std::string_view labels,
                double value) {
    text.append(name).append(suffix);
    if (!labels.empty()) {
        text.append("{").append(labels).append("}");
    }
    text += ' ';
    AppendNumber(text, value);
    text += '\n';
}

/// All metrics of one name and one kind, by the text of their labels. A pointer stays good: nothing is
/// removed.
template <class Metric>
using Series = std::map<std::string, std::unique_ptr<Metric>>;

void AppendSeries(std::string& text, std::string_view name, const Series<LumCounter>& series) {
    for (const auto& [labels, counter] : series) {
        AppendLine(text, name, "", labels, static_cast<double>(counter->Get()));
    }
}

void AppendSeries(std::string& text, std::string_view name, const Series<LumGauge>& series) {
    for (const auto& [labels, gauge] : series) {
        if (const double value = gauge->Get(); !std::isnan(value)) {
            AppendLine(text, name, "", labels, value);
        }
    }
}

void AppendSeries(std::string& text, std::string_view name, const Series<LumHistogram>& series) {
    for (const auto& [labels, histogram] : series) {
        const std::vector<double>& bounds = histogram->GetBounds();
        double count = 0;
        for (std::size_t bucket = 0; bucket <= bounds.size(); ++bucket) {
            count += static_cast<double>(histogram->GetCount(bucket));
            std::string bucketLabels = labels + (labels.empty() ? "" : ",") + "le=\"";
            if (bucket < bounds.size()) {
                AppendNumber(bucketLabels, bounds[bucket]);
            } else {
                bucketLabels += "+Inf";
            }
            AppendLine(text, name, "_bucket", bucketLabels + '"', count);
        }
        AppendLine(text, name, "_sum", labels, histogram->GetSum());
        AppendLine(text, name, "_count", labels, count);
    }
}

struct Family {
    std::string help;
    std::vector<double> bounds;
    Series<LumCounter> counters;
    Series<LumGauge> gauges;
    Series<LumHistogram> histograms;

    [[nodiscard]] const char* Kind() const {
        return !counters.empty() ? "counter" : !gauges.empty() ? "gauge" : "histogram";
    }
};

struct Metrics {
    std::mutex mutex;
    std::map<std::string, Family, std::less<>> families;  // guarded by mutex

    template <class Metric, class Make>
    Metric& Get(const char* name, const char* help, const LumMetricLabels& labels,
                Series<Metric> Family::*series, Make make) {
        std::string labelText = LabelText(labels);
        const std::lock_guard<std::mutex> guard(mutex);
        Family& family = families[name];
        if (family.help.empty()) {
            family.help = help;
        }
        std::unique_ptr<Metric>& metric = (family.*series)[std::move(labelText)];
        if (metric == nullptr) {
            metric = make(family);
        }
        return *metric;
    }
};

/// Never destroyed: a module's thread may count while the process ends.
Metrics& TheMetrics() {
    static auto* const metrics = std::make_unique<Metrics>().release();
    return *metrics;
}

/// What modules have handed in to be called; a call holds the lock shared, so that the end of an entry waits.
template <class Function>
class Callbacks {
public:
    void Add(const void* owner, const LumString& name, Function function) {
        const std::unique_lock<std::shared_mutex> guard(mutex_);
        entries_.push_back({owner, name, std::move(function)});
    }
    void Remove(const void* owner) {
        const std::unique_lock<std::shared_mutex> guard(mutex_);
        std::erase_if(entries_, [owner](const Entry& entry) { return entry.owner == owner; });
    }
    /// Calls `call(name, function)` for each; what one throws is its own loss.
    template <class Call>
    void ForEach(Call call) {
        const std::shared_lock<std::shared_mutex> guard(mutex_);
        for (const Entry& entry : entries_) {
            try {
                call(entry.name, entry.function);
            } catch (const std::exception& error) {
                LumHostDebug().WarningWithNL("The status of '%S' failed: %s", entry.name, error.what());
            }
        }
    }

private:
    struct Entry {
        const void* owner = nullptr;
        LumString name;
        Function function;
    };
    std::shared_mutex mutex_;
    std::vector<Entry> entries_;  // guarded by mutex_
};

Callbacks<std::function<void()>>& TheRefreshes() {
    static Callbacks<std::function<void()>> refreshes;
    return refreshes;
}

Callbacks<std::function<void(LumContainer&)>>& TheProviders() {
    static Callbacks<std::function<void(LumContainer&)>> providers;
    return providers;
}

}  // namespace

LumCounter& LumMetricsCounter(const char* name, const char* help, const LumMetricLabels& labels) {
    return TheMetrics().Get(name, help, labels, &Family::counters,
                            [](const Family&) { return std::make_unique<LumCounter>(); });
}

LumGauge& LumMetricsGauge(const char* name, const char* help, const LumMetricLabels& labels) {
    return TheMetrics().Get(name, help, labels, &Family::gauges,
                            [](const Family&) { return std::make_unique<LumGauge>(); });
}

LumHistogram& LumMetricsHistogram(const char* name, const char* help, const LumMetricLabels& labels,
                                  const std::vector<double>& bounds) {
    return TheMetrics().Get(name, help, labels, &Family::histograms, [&bounds](Family& family) {
        if (family.bounds.empty()) {
            family.bounds = bounds.empty() ? kSeconds : bounds;
        }
        return std::make_unique<LumHistogram>(family.bounds);
    });
}

LumString LumMetricsText() {
    TheRefreshes().ForEach([](const LumString&, const std::function<void()>& refresh) { refresh(); });
    Metrics& metrics = TheMetrics();
    const std::lock_guard<std::mutex> guard(metrics.mutex);
    std::string text;
    for (const auto& [name, family] : metrics.families) {
        text.append("# HELP ").append(name).append(" ");
        AppendEscaped(text, family.help, false);
        text.append("\n# TYPE ").append(name).append(" ").append(family.Kind()).append("\n");
        AppendSeries(text, name, family.counters);
        AppendSeries(text, name, family.gauges);
        AppendSeries(text, name, family.histograms);
    }
    return LumString(std::move(text));
}

LumMetricsRefresh::LumMetricsRefresh(std::function<void()> refresh) {
    TheRefreshes().Add(this, LumString(), std::move(refresh));
}

LumMetricsRefresh::~LumMetricsRefresh() {
    TheRefreshes().Remove(this);
}

LumStatusProvider::LumStatusProvider(const LumString& name, std::function<void(LumContainer&)> fill) {
    TheProviders().Add(this, name, std::move(fill));
}

LumStatusProvider::~LumStatusProvider() {
    TheProviders().Remove(this);
}

void LumStatusCollect(LumContainer& status) {
    TheProviders().ForEach([&status](const LumString& name, const std::function<void(LumContainer&)>& fill) {
        if (name.IsEmpty()) {
            fill(status);
            return;
        }
        LumContainer part;
        fill(part);
        status.SetContainer(name, std::move(part));
    });
}

void LumStatusSetNumber(LumContainer& status, const LumString& name, uint64_t number) {
    if (number <= static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) {
        status.SetInt32(name, static_cast<int32_t>(number));
    } else {
        status.SetDouble(name, static_cast<double>(number));
    }
}
