#include "host/core/LumHealth.h"

#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace {

struct Reasons {
    std::shared_mutex mutex;
    /// (source, sentence); guarded by mutex. There are a handful.
    std::vector<std::pair<LumString, LumString>> list;
    std::vector<std::pair<const void*, std::function<LumString()>>> checks;  // guarded by mutex

    /// To be called with the lock held.
    [[nodiscard]] std::vector<std::pair<LumString, LumString>>::iterator Find(const LumString& source) {
        return std::find_if(list.begin(), list.end(),
                            [&source](const auto& reason) { return reason.first == source; });
    }
};

Reasons& TheReasons() {
    static Reasons reasons;
    return reasons;
}

/// True where the list says so already.
bool IsKnown(Reasons& reasons, const LumString& source, const LumString& sentence) {
    const std::shared_lock<std::shared_mutex> guard(reasons.mutex);
    const auto found = reasons.Find(source);
    return found == reasons.list.end() ? sentence.IsEmpty() : found->second == sentence;
}

}  // namespace

void LumHealthReport(const LumString& source, const LumString& sentence) {
    Reasons& reasons = TheReasons();
    if (IsKnown(reasons, source, sentence)) {
        return;
    }
    const std::unique_lock<std::shared_mutex> guard(reasons.mutex);
    const auto found = reasons.Find(source);
    if (found == reasons.list.end()) {
        if (!sentence.IsEmpty()) {
            reasons.list.emplace_back(source, sentence);
        }
    } else if (sentence.IsEmpty()) {
        reasons.list.erase(found);
    } else {
        found->second = sentence;
    }
}

std::vector<LumString> LumHealthReasons() {
    Reasons& reasons = TheReasons();
    const std::shared_lock<std::shared_mutex> guard(reasons.mutex);
    std::vector<LumString> sentences;
    for (const auto& [source, sentence] : reasons.list) {
        sentences.push_back(sentence);
    }
    for (const auto& [owner, check] : reasons.checks) {
        LumString sentence = check();
        if (!sentence.IsEmpty()) {
            sentences.push_back(std::move(sentence));
        }
    }
    return sentences;
}

LumHealthCheck::LumHealthCheck(std::function<LumString()> check) {
    Reasons& reasons = TheReasons();
    const std::unique_lock<std::shared_mutex> guard(reasons.mutex);
    reasons.checks.emplace_back(this, std::move(check));
}

LumHealthCheck::~LumHealthCheck() {
    Reasons& reasons = TheReasons();
    const std::unique_lock<std::shared_mutex> guard(reasons.mutex);
    std::erase_if(reasons.checks, [this](const auto& entry) { return entry.first == this; });
}
