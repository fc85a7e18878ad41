#include "agent/request/AccessRules.h"

#include <algorithm>
#include <array>
#include <utility>

#include <unistd.h>

#include "contract/Actions.h"

namespace {

constexpr std::array kNeeds = {
    std::pair{std::string_view(actions::kGetModelNames), AccessNeed::kLook},
    std::pair{std::string_view(actions::kGetModel), AccessNeed::kLook},
    std::pair{std::string_view(actions::kGetEvents), AccessNeed::kRead},
    std::pair{std::string_view(actions::kGetValues), AccessNeed::kRead},
    std::pair{std::string_view(actions::kCreateEvent), AccessNeed::kCreate},
    std::pair{std::string_view(actions::kCreateAlert), AccessNeed::kCreate},
    std::pair{std::string_view(actions::kCheckAlertMinimumGap), AccessNeed::kCreate},
};

bool IsIn(const Client& client, std::optional<gid_t> group) {
    return group.has_value() &&
           std::find(client.groups.begin(), client.groups.end(), *group) != client.groups.end();
}

/// The key of [Agent] that names who may, and what.
std::pair<const char*, const char*> NamesOf(AccessNeed need) {
    switch (need) {
        case AccessNeed::kRead:
            return {"ReadGroup", "read"};
        case AccessNeed::kCreate:
            return {"CreateGroup", "create events"};
        default:
            return {"SocketGroup", "administer the agent"};
    }
}

}  // namespace

AccessNeed AccessNeedOf(std::string_view actionName) {
    const auto* const found = std::find_if(
        kNeeds.begin(), kNeeds.end(), [actionName](const auto& entry) { return entry.first == actionName; });
    return found == kNeeds.end() ? AccessNeed::kAdminister : found->second;
}

bool IsAudited(std::string_view actionName) {
    return AccessNeedOf(actionName) == AccessNeed::kAdminister;
}

LumString AccessRules::Refuse(const Client& client, AccessNeed need) const {
    const bool mayAll = client.user == 0 || client.user == ::geteuid() || IsIn(client, administer);
    const bool may = mayAll || need == AccessNeed::kLook ||
                     (need == AccessNeed::kRead && IsIn(client, read)) ||
                     (need == AccessNeed::kCreate && IsIn(client, create));
    if (client.isLocal && may) {
        return {};
    }
    const auto [key, what] = NamesOf(need);
    LumString sentence;
    if (!client.isLocal) {
        sentence.Printf("This address serves /metrics alone; the rest is on the control socket.");
    } else {
        sentence.Printf("User %S may not %s: [Agent] %s in agent.ini names the group that may.",
                        UserName(client.user), what, key);
    }
    return sentence;
}
