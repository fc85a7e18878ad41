#include "host/core/ActionDb.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "contract/Statuses.h"
#include "host/core/LumCaller.h"
#include "host/core/LumMetrics.h"
#include "host/log/LumDebug.h"

namespace {

/// The calls of one module that are running. Shared, so that the last call may still wake the waiter after
/// the registry has forgotten the module.
class RunningCalls {
public:
    void Enter() { count_.fetch_add(1, std::memory_order_relaxed); }
    void Leave() {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            count_.notify_all();
        }
    }
    void WaitForNone() const {
        for (uint32_t running = count_.load(std::memory_order_acquire); running != 0;
             running = count_.load(std::memory_order_acquire)) {
            count_.wait(running, std::memory_order_acquire);
        }
    }

private:
    std::atomic<uint32_t> count_{0};
};

/// The statuses that have a counter of their own; all others share one, so that no action can fill /metrics.
constexpr std::array<uint32_t, 4> kCountedStatuses = {kActionDone, kActionFailed, kActionRefused,
                                                      kActionWithinGap};

/// What /metrics shows of one action.
class ActionFigures {
public:
    explicit ActionFigures(const LumString& name)
        : time_(LumMetricsHistogram("lum_action_seconds", "How long calls of the action took.",
                                    {{"action", name}})) {
        for (std::size_t i = 0; i <= kCountedStatuses.size(); ++i) {
            const LumString status(i < kCountedStatuses.size() ? std::to_string(kCountedStatuses[i])
                                                               : "other");
            counters_[i] =
                &LumMetricsCounter("lum_action_calls_total", "Calls of the action, by their status.",
                                   {{"action", name}, {"status", status}});
        }
    }

    void Note(uint32_t status, std::chrono::steady_clock::duration time) const {
        const auto* const found = std::find(kCountedStatuses.begin(), kCountedStatuses.end(), status);
        counters_[static_cast<std::size_t>(found - kCountedStatuses.begin())]->Add();
        time_.Observe(std::chrono::duration<double>(time).count());
    }

private:
    LumHistogram& time_;
    std::array<LumCounter*, kCountedStatuses.size() + 1> counters_{};
};

struct Action {
    ActionInfo info;
    ActionHandler handler;
    const void* agentHandle;
    std::shared_ptr<RunningCalls> calls;
    ActionFigures figures;
};

/// One call: holds the action, or nothing where there is none, and keeps its module from being unregistered.
class RunningCall {
public:
    explicit RunningCall(std::shared_ptr<const Action> action) : action_(std::move(action)) {
        if (action_ != nullptr) {
            action_->calls->Enter();
        }
    }
    RunningCall(const RunningCall&) = delete;
    RunningCall& operator=(const RunningCall&) = delete;
    ~RunningCall() {
        if (action_ != nullptr) {
            action_->calls->Leave();
        }
    }

    [[nodiscard]] const Action* GetAction() const { return action_.get(); }

private:
    const std::shared_ptr<const Action> action_;
};

class Registry {
public:
    [[nodiscard]] bool Add(const ActionInfo& info, ActionHandler handler, const void* agentHandle) {
        const std::unique_lock<std::shared_mutex> guard(mutex_);
        if (byName_.contains(info.name.View())) {
            return false;
        }
        const auto known = calls_.find(agentHandle);
        const auto calls = known != calls_.end() ? known->second : std::make_shared<RunningCalls>();
        const auto action = std::make_shared<const Action>(
            Action{info, handler, agentHandle, calls, ActionFigures(info.name)});
        // What may run out of memory comes first, so that the action is in all three or in none.
        inOrder_.reserve(inOrder_.size() + 1);
        calls_.try_emplace(agentHandle, calls);
        byName_.emplace(action->info.name.View(), action);
        inOrder_.push_back(action);
        return true;
    }

    void RemoveModule(const void* agentHandle) {
        std::shared_ptr<RunningCalls> calls;
        {
            const std::unique_lock<std::shared_mutex> guard(mutex_);
            const auto found = calls_.find(agentHandle);
            if (found == calls_.end()) {
                return;
            }
            calls = std::move(found->second);
            calls_.erase(found);
            const auto isOfModule = [agentHandle](const std::shared_ptr<const Action>& action) {
                return action->agentHandle == agentHandle;
            };
            std::erase_if(byName_, [&](const auto& entry) { return isOfModule(entry.second); });
            std::erase_if(inOrder_, isOfModule);
        }
        calls->WaitForNone();
    }

    [[nodiscard]] bool Contains(const LumString& name) const {
        const std::shared_lock<std::shared_mutex> guard(mutex_);
        return byName_.contains(name.View());
    }

    [[nodiscard]] std::vector<ActionInfo> List() const {
        const std::shared_lock<std::shared_mutex> guard(mutex_);
        std::vector<ActionInfo> list;
        list.reserve(inOrder_.size());
        for (const std::shared_ptr<const Action>& action : inOrder_) {
            list.push_back(action->info);
        }
        return list;
    }

    /// The call counts itself under the lock: whoever unregisters the module after that sees it.
    [[nodiscard]] RunningCall Begin(const LumString& name) const {
        const std::shared_lock<std::shared_mutex> guard(mutex_);
        const auto found = byName_.find(name.View());
        return RunningCall(found == byName_.end() ? nullptr : found->second);
    }

private:
    mutable std::shared_mutex mutex_;

    // Guarded by mutex_.
    /// Keys point into the actions that they stand for.
    std::unordered_map<std::string_view, std::shared_ptr<const Action>> byName_;
    std::vector<std::shared_ptr<const Action>> inOrder_;
    std::unordered_map<const void*, std::shared_ptr<RunningCalls>> calls_;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

/// Cuts the name off a signature: "Name (parameters)". Empty for another form.
std::string_view NameOfSignature(std::string_view signature) {
    const std::size_t end = signature.find_first_of(" ()");
    if (end == 0 || end == std::string_view::npos || signature.substr(end, 2) != " (") {
        return {};
    }
    const std::string_view parameters = signature.substr(end + 2);
    if (parameters.find_first_of("()") != parameters.size() - 1 || parameters.back() != ')') {
        return {};
    }
    const bool hasControl = std::any_of(signature.begin(), signature.end(), [](char character) {
        return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
    });
    return hasControl ? std::string_view() : signature.substr(0, end);
}

/// Runs the handler; what it throws ends here.
uint32_t RunHandler(const Action& action, LumContainer& container) {
    constexpr uint32_t failed = 1;
    try {
        return action.handler(&container);
    } catch (const std::exception& error) {
        LumHostDebug().ErrorWithNL("Action '%S' ended with an exception: %s", action.info.name, error.what());
    } catch (...) {
        LumHostDebug().ErrorWithNL("Action '%S' ended with an exception", action.info.name);
    }
    return failed;
}

}  // namespace

bool ActionDbRegisterAction(const LumString& signature, ActionHandler handler, void* agentHandle) {
    const std::string_view name = NameOfSignature(signature.View());
    if (name.empty()) {
        LumHostDebug().WarningWithNL("Action not registered, its signature is not 'Name (parameters)': '%S'",
                                     signature);
        return false;
    }
    if (handler == nullptr || agentHandle == nullptr) {
        LumHostDebug().WarningWithNL("Action '%S' not registered, it has no %s", name,
                                     handler == nullptr ? "handler" : "module");
        return false;
    }
    const ActionInfo info{LumString(name), signature,
                          static_cast<const LumAgentHandle*>(agentHandle)->moduleName};
    if (!TheRegistry().Add(info, handler, agentHandle)) {
        LumHostDebug().WarningWithNL("Action '%S' of module '%S' not registered, the name is taken",
                                     info.name, info.module);
        return false;
    }
    return true;
}

void ActionDbUnregisterModule(void* agentHandle) {
    TheRegistry().RemoveModule(agentHandle);
}

bool ActionDbIsActionRegistered(const LumString& name) {
    return TheRegistry().Contains(name);
}

std::vector<ActionInfo> ActionDbListActions() {
    return TheRegistry().List();
}

bool ActionDbCallAction(const LumString& name, LumContainer& container, uint32_t& status) {
    const RunningCall call = TheRegistry().Begin(name);
    if (call.GetAction() == nullptr) {
        return false;
    }
    const auto before = std::chrono::steady_clock::now();
    status = RunHandler(*call.GetAction(), container);
    call.GetAction()->figures.Note(status, std::chrono::steady_clock::now() - before);
    return true;
}

bool ActionDbDeliver(const LumString& name, LumContainer& container, uint32_t& status) {
    const LumCallerScope asModule(nullptr);
    if (ActionDbCallAction(name, container, status)) {
        return true;
    }
    LumHostDebug().WarningWithNL("Action '%S' invoked, but no module has registered it", name);
    return false;
}

bool ActionDbInvokeContainer(void* /*handle*/, const LumString& /*target*/, const LumString& name,
                             const LumContainer& arguments, LumContainer* answer, uint32_t /*priority*/,
                             uint32_t /*timeout*/, bool /*wait*/) {
    LumContainer container = arguments;
    uint32_t status = 0;
    if (!ActionDbDeliver(name, container, status)) {
        return false;
    }
    if (answer != nullptr) {
        *answer = std::move(container);
    }
    return true;
}
