#include <gtest/gtest.h>
#include <unistd.h>

#include "agent/request/AccessRules.h"

namespace {

constexpr uid_t kStranger = 4'000'000'001U;

bool May(const AccessRules& rules, const Client& client, AccessNeed need) {
    return rules.Refuse(client, need).IsEmpty();
}

TEST(AccessRules, LetTheOwnerAndRootDoEverything) {
    const AccessRules rules;
    EXPECT_TRUE(May(rules, {true, ::geteuid(), {}}, AccessNeed::kAdminister));
    EXPECT_TRUE(May(rules, {true, 0, {}}, AccessNeed::kAdminister));
    EXPECT_FALSE(May(rules, {true, kStranger, {5}}, AccessNeed::kRead));
    EXPECT_TRUE(May(rules, {true, kStranger, {5}}, AccessNeed::kLook));
}

TEST(AccessRules, GiveEachGroupItsOwn) {
    const AccessRules rules{10, 11, 12};
    const Client administrator{true, kStranger, {5, 10}};
    const Client reader{true, kStranger, {11}};
    const Client creator{true, kStranger, {5, 6, 12}};
    for (const AccessNeed need : {AccessNeed::kRead, AccessNeed::kCreate, AccessNeed::kAdminister}) {
        EXPECT_TRUE(May(rules, administrator, need));
        EXPECT_EQ(May(rules, reader, need), need == AccessNeed::kRead);
        EXPECT_EQ(May(rules, creator, need), need == AccessNeed::kCreate);
    }
    const Client both{true, kStranger, {11, 12}};
    EXPECT_TRUE(May(rules, both, AccessNeed::kRead));
    EXPECT_TRUE(May(rules, both, AccessNeed::kCreate));
    EXPECT_FALSE(May(rules, both, AccessNeed::kAdminister));
}

TEST(AccessRules, SayWhatIsMissing) {
    const AccessRules rules{10, 11, 12};
    const Client stranger{true, kStranger, {5}};
    EXPECT_EQ(
        rules.Refuse(stranger, AccessNeed::kCreate),
        "User 4000000001 may not create events: [Agent] CreateGroup in agent.ini names the group that may.");
    EXPECT_EQ(rules.Refuse(stranger, AccessNeed::kAdminister),
              "User 4000000001 may not administer the agent: [Agent] SocketGroup in agent.ini names the "
              "group that may.");
}

TEST(AccessRules, KnowWhatAnActionAsksFor) {
    EXPECT_EQ(AccessNeedOf("EventLogManagerGetModel"), AccessNeed::kLook);
    EXPECT_EQ(AccessNeedOf("EventLogManagerGetEvents"), AccessNeed::kRead);
    EXPECT_EQ(AccessNeedOf("EventLogManagerCreateAlert"), AccessNeed::kCreate);
    for (const char* const name :
         {"EventLogManagerSetValues", "EventLogManagerDeleteEvents", "EventLogManagerDeleteModels",
          "EventLogManagerEnableModel", "EventLogManagerDisableModel", "EventLogManagerReloadModels",
          "EventLogManagerUploadEvents", "SomethingElse"}) {
        EXPECT_EQ(AccessNeedOf(name), AccessNeed::kAdminister) << name;
        EXPECT_TRUE(IsAudited(name)) << name;
    }
    EXPECT_FALSE(IsAudited("EventLogManagerCreateEvent"));
}

}  // namespace
