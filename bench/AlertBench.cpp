// What the table of alerts that were let through takes: memory and time of a storm of errors, each with a
// text of its own, and of the same storm again, which is held back. The floor is the standard hash map of the
// times.
//
//     AlertBench [--full]

#include <string>
#include <unordered_map>
#include <vector>

#include "BenchSupport.h"
#include "alerts/AlertGapTable.h"

namespace {

constexpr uint32_t kUsual = 100000;
constexpr uint32_t kTiny = 1000;

constexpr uint32_t kTime = 1700000000;
constexpr uint32_t kGapMinutes = 60;

std::vector<LumString> Errors(uint32_t count) {
    std::vector<LumString> texts(count);
    for (uint32_t i = 0; i < count; ++i) {
        texts[i].Printf("LoadModel: Failed to load model definition of model 'Model%u'", i);
    }
    return texts;
}

/// Counts the texts that pass.
uint32_t Storm(AlertGapTable_t& table, const std::vector<LumString>& texts) {
    uint32_t passed = 0;
    for (const LumString& text : texts) {
        passed += table.LetThrough(text, 0, kTime, kGapMinutes) ? 1U : 0U;
    }
    return passed;
}

}  // namespace

int main(int argc, char** argv) {
    const uint32_t count = IsTiny(argc, argv) ? kTiny : kUsual;
    const std::vector<LumString> texts = Errors(count);
    AlertGapTable_t table;
    std::unordered_map<std::string, uint32_t> times;
    uint32_t passed = 0;
    double first = 0;
    double floorFirst = 0;
    const double floorPeak = PeakBytesOf([&] {
        floorFirst = SecondsOf([&] {
            for (const LumString& text : texts) {
                times.emplace(text.View(), kTime);
            }
        });
    });
    const double peak = PeakBytesOf([&] { first = SecondsOf([&] { passed = Storm(table, texts); }); });
    const double again = SecondsOf([&] { passed += Storm(table, texts); });
    const double floorAgain = SecondsOf([&] {
        for (const LumString& text : texts) {
            passed += times.at(std::string(text.View())) + kGapMinutes * 60 > kTime ? 0U : 1U;
        }
    });
    if (passed != count) {
        Fail("the table let " + std::to_string(passed) + " of " + std::to_string(count) + " texts through");
    }
    PrintHead();
    PrintRow("memory of " + std::to_string(count) + " different alerts, MiB", peak / kMiB, floorPeak / kMiB,
             peak / floorPeak, "");
    PrintRow("  a different alert, bytes", peak / count, floorPeak / count, peak / floorPeak, "");
    PrintRow("an alert that is new, us", first / count * 1e6, floorFirst / count * 1e6, first / floorFirst,
             "");
    PrintRow("an alert that is held back, us", again / count * 1e6, floorAgain / count * 1e6,
             again / floorAgain, "");
    return 0;
}
