#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "admin/ModelState.h"
#include "model/ModelElement.h"
#include "support/CallRecord.h"
#include "support/TestHost.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kLogon = R"({"ModelName":"Logon"})";

class ModelStateTest : public testing::Test {
protected:
    ModelStateTest() {
        module_.StartWith({.params = {{.name = "User"}}});
        LinkedModule::KeepErrorsFromAlerts();
        module_.Log().Forget();
    }
    static uint32_t Call(const char* action, std::string_view values) {
        return LinkedModule::CallWith(std::string("EventLogManager") + action, values);
    }
    [[nodiscard]] bool IsEnabled() const {
        std::shared_ptr<Model_t> model;
        return ModelCollection.Get("Logon", model) && model->IsEnabled();
    }
    [[nodiscard]] std::string Stored() const {
        return module_.Rows("SELECT RM_Enabled FROM RegisteredModel");
    }

    LinkedModule module_;
};

TEST_F(ModelStateTest, IsStoredBeforeItHolds) {
    EXPECT_EQ(Call("DisableModel", kLogon), 0U);
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(Stored(), "0");
    EXPECT_EQ(Call("EnableModel", kLogon), 0U);
    EXPECT_TRUE(IsEnabled());
    EXPECT_EQ(Stored(), "1");
    const std::string handler = "print ActionHandler_EventLogManager";
    EXPECT_THAT(module_.Log().Said(),
                ElementsAre(handler + "DisableModel: Entering",
                            handler + "DisableModel: Model 'Logon' has been disabled with success",
                            handler + "EnableModel: Entering",
                            handler + "EnableModel: Model 'Logon' has been enabled with success"));
}

TEST_F(ModelStateTest, IsLeftAloneWhereItIsSoAlready) {
    const CallRecord record;
    EXPECT_EQ(Call("EnableModel", kLogon), 0U);
    EXPECT_THAT(record.All("SQL "), IsEmpty());
}

TEST_F(ModelStateTest, StaysWhereTheLockCannotBeHad) {
    {
        const DatabaseLockout lockout;
        EXPECT_EQ(Call("DisableModel", kLogon), 1U);
    }
    EXPECT_TRUE(IsEnabled());
    EXPECT_EQ(Stored(), "1");
    EXPECT_EQ(
        module_.Log().Count("error ActionHandler_EventLogManagerDisableModel: Failed to lock database\n"),
        1U);
    ASSERT_EQ(Call("DisableModel", kLogon), 0U);
    {
        const DatabaseLockout lockout;
        EXPECT_EQ(Call("EnableModel", kLogon), 1U);
    }
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(
        module_.Log().Count("error ActionHandler_EventLogManagerEnableModel: Failed to lock database\n"), 1U);
}

TEST_F(ModelStateTest, StaysWhereTheDatabaseRefusesWhichIsSaidWithoutTheLock) {
    module_.Database().Run("DROP TABLE RegisteredModel");
    const CallRecord record;
    EXPECT_EQ(Call("DisableModel", kLogon), 1U);
    EXPECT_TRUE(IsEnabled());
    EXPECT_THAT(
        record.WithoutLock("error "),
        ElementsAre("error ActionHandler_EventLogManagerDisableModel: Failed to disable model 'Logon'"));
}

TEST_F(ModelStateTest, IsRefusedWithoutAModel) {
    EXPECT_EQ(ActionHandler_EventLogManagerEnableModel(nullptr), 13U);
    EXPECT_EQ(Call("EnableModel", "{}"), 13U);
    EXPECT_EQ(Call("DisableModel", R"({"ModelName":"Nobody"})"), 13U);
    EXPECT_EQ(module_.Log().Count("Failed to get model name\n"), 1U);
    EXPECT_EQ(module_.Log().Count("Failed to get model 'Nobody'\n"), 1U);
}

TEST_F(ModelStateTest, DeletesOneModelByItsName) {
    LumContainer values;
    LumContainer request;
    request.SetContainer("Values", values);
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteModel(nullptr), 13U);
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteModel(&request), 1U);
    EXPECT_EQ(
        module_.Log().Count("error ActionHandler_EventLogManagerDeleteModel: Failed to get model name\n"),
        1U);
    values.SetString("ModelName", "Logon");
    request.SetContainer("Values", values);
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteModel(&request), 0U);
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
    EXPECT_EQ(
        module_.Log().Count(
            "print ActionHandler_EventLogManagerDeleteModel: Model 'Logon' has been deleted with success\n"),
        1U);
}

TEST_F(ModelStateTest, DeletesTheOthersWhereOneCannotBeDeleted) {
    EXPECT_EQ(Call("DeleteModels", R"({"ModelName":["Nobody","Logon"]})"), 0U);
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteModels(nullptr), 13U);
}

TEST_F(ModelStateTest, ReloadsWithoutAContainer) {
    module_.Drop({.name = "New", .params = {{.name = "User"}}});
    EXPECT_EQ(ActionHandler_EventLogManagerReloadModels(nullptr), 0U);
    EXPECT_TRUE(ModelCollection.Contains("New"));
    EXPECT_EQ(module_.Log().Count("Models have been reloaded with success\n"), 1U);
}

TEST(ModelState, AgreesInMemoryAndInTheDatabaseHoweverManySwitchAtOnce) {
    const TestHost host;
    host.StartWith(kLogonDefinition);
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("Logon", model));
    for (int round = 0; round < 25; ++round) {
        std::vector<std::thread> clients;
        for (int i = 0; i < 8; ++i) {
            clients.emplace_back([i] {
                EXPECT_EQ(TestHost::CallWith(
                              i % 2 == 0 ? "EventLogManagerEnableModel" : "EventLogManagerDisableModel",
                              R"({"ModelName":"Logon"})"),
                          0U);
            });
        }
        for (std::thread& client : clients) {
            client.join();
        }
        ASSERT_EQ(host.Rows("SELECT RM_Enabled FROM RegisteredModel"), model->IsEnabled() ? "1" : "0");
    }
}

}  // namespace
