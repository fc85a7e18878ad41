#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "admin/ModelState.h"
#include "host/container/LumContainer.h"
#include "model/ModelElement.h"
#include "support/CallRecord.h"
#include "support/LinkedModule.h"
#include "support/StopRequest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kNamingLogon = R"({"ModelName":"Logon"})";

class ModelStateTest : public testing::Test, protected LinkedModule {
protected:
    ModelStateTest() {
        StartWith({.params = {{.name = "User"}}});
        KeepErrorsFromAlerts();
        Log().Forget();
    }
    static uint32_t Call(const char* action, std::string_view values) {
        return CallWith(std::string("EventLogManager") + action, values);
    }
    [[nodiscard]] bool IsEnabled() const {
        std::shared_ptr<Model_t> model;
        return ModelCollection.Get("Logon", model) && model->IsEnabled();
    }
    [[nodiscard]] std::string Stored() const { return Rows("SELECT RM_Enabled FROM RegisteredModel"); }
};

TEST_F(ModelStateTest, IsStoredBeforeItHolds) {
    EXPECT_EQ(Call("DisableModel", kNamingLogon), 0U);
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(Stored(), "0");
    EXPECT_EQ(Call("EnableModel", kNamingLogon), 0U);
    EXPECT_TRUE(IsEnabled());
    EXPECT_EQ(Stored(), "1");
    const std::string handler = "print ActionHandler_EventLogManager";
    EXPECT_THAT(Said(), ElementsAre(handler + "DisableModel: Entering",
                                    handler + "DisableModel: Model 'Logon' has been disabled with success",
                                    handler + "EnableModel: Entering",
                                    handler + "EnableModel: Model 'Logon' has been enabled with success"));
}

TEST_F(ModelStateTest, IsLeftAloneWhereItIsSoAlready) {
    const CallRecord record;
    EXPECT_EQ(Call("EnableModel", kNamingLogon), 0U);
    EXPECT_THAT(record.All("SQL "), IsEmpty());
}

TEST_F(ModelStateTest, StaysWhereTheLockCannotBeHad) {
    {
        const DatabaseLockout lockout;
        EXPECT_EQ(Call("DisableModel", kNamingLogon), 1U);
    }
    EXPECT_TRUE(IsEnabled());
    EXPECT_EQ(Stored(), "1");
    EXPECT_EQ(Log().Count("error ActionHandler_EventLogManagerDisableModel: Failed to lock database\n"), 1U);
    ASSERT_EQ(Call("DisableModel", kNamingLogon), 0U);
    {
        const DatabaseLockout lockout;
        EXPECT_EQ(Call("EnableModel", kNamingLogon), 1U);
    }
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(Log().Count("error ActionHandler_EventLogManagerEnableModel: Failed to lock database\n"), 1U);
}

TEST_F(ModelStateTest, StaysWhereTheDatabaseRefusesWhichIsSaidWithoutTheLock) {
    Database().Run("DROP TABLE RegisteredModel");
    const CallRecord record;
    EXPECT_EQ(Call("DisableModel", kNamingLogon), 1U);
    EXPECT_TRUE(IsEnabled());
    EXPECT_THAT(
        record.WithoutLock("error "),
        ElementsAre("error ActionHandler_EventLogManagerDisableModel: Failed to disable model 'Logon'"));
}

TEST_F(ModelStateTest, IsRefusedWithoutAModel) {
    EXPECT_EQ(ActionHandler_EventLogManagerEnableModel(nullptr), 13U);
    EXPECT_EQ(Call("EnableModel", "{}"), 13U);
    EXPECT_EQ(Call("DisableModel", R"({"ModelName":"Nobody"})"), 13U);
    EXPECT_EQ(Log().Count("Failed to get model name\n"), 1U);
    EXPECT_EQ(Log().Count("Failed to get model 'Nobody'\n"), 1U);
}

TEST_F(ModelStateTest, DeletesOneModelByItsName) {
    LumContainer values;
    LumContainer request;
    request.SetContainer("Values", values);
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteModel(nullptr), 13U);
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteModel(&request), 1U);
    EXPECT_EQ(Log().Count("error ActionHandler_EventLogManagerDeleteModel: Failed to get model name\n"), 1U);
    values.SetString("ModelName", "Logon");
    request.SetContainer("Values", values);
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteModel(&request), 0U);
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
    EXPECT_EQ(
        Log().Count(
            "print ActionHandler_EventLogManagerDeleteModel: Model 'Logon' has been deleted with success\n"),
        1U);
    request.SetContainer("Values", values);
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteModel(&request), 1U) << "it is gone";
}

TEST_F(ModelStateTest, DeletesTheOthersWhereOneCannotBeDeleted) {
    EXPECT_EQ(Call("DeleteModels", R"({"ModelName":["Nobody","Logon"]})"), 0U);
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
    EXPECT_EQ(ActionHandler_EventLogManagerDeleteModels(nullptr), 13U);
}

TEST_F(ModelStateTest, LeavesTheRestOfAListAloneOnceTheAgentIsToStop) {
    Drop({.name = "Second", .params = {{.name = "User"}}});
    EXPECT_EQ(Call("ReloadModels", "{}"), 0U);
    {
        const StopRequest stop(2);
        EXPECT_EQ(Call("DeleteModels", R"({"ModelName":["Logon","Second"]})"), 0U);
    }
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
    EXPECT_TRUE(ModelCollection.Contains("Second"));
    EXPECT_EQ(Log().Count("warning ActionHandler_EventLogManagerDeleteModels: The agent stops: model "
                          "'Second' and those named after it are not deleted\n"),
              1U);
}

TEST_F(ModelStateTest, LeavesDroppedDefinitionsToTheNextStartOnceTheAgentIsToStop) {
    Drop({.name = "New", .params = {{.name = "User"}}});
    {
        const StopRequest stop;
        EXPECT_EQ(Call("ReloadModels", "{}"), 0U);
    }
    EXPECT_FALSE(ModelCollection.Contains("New"));
    EXPECT_EQ(Call("ReloadModels", "{}"), 0U);
    EXPECT_TRUE(ModelCollection.Contains("New"));
}

TEST_F(ModelStateTest, BringsAnAutomaticModelBackOnceItsSourceIsThere) {
    Drop({.name = "Sums",
          .type = ModelType::kAutomatic,
          .source = "Visit",
          .aggregation = Policy::kHourly,
          .params = {{.name = "Users", .source = "User"}}});
    EXPECT_EQ(Call("ReloadModels", "{}"), 0U);
    EXPECT_FALSE(ModelCollection.Contains("Sums"));
    Drop({.name = "Visit", .params = {{.name = "User"}}});
    EXPECT_EQ(Call("ReloadModels", "{}"), 0U);
    EXPECT_TRUE(ModelCollection.Contains("Sums"));
}

TEST_F(ModelStateTest, ReloadsWithoutAContainer) {
    Drop({.name = "New", .params = {{.name = "User"}}});
    EXPECT_EQ(ActionHandler_EventLogManagerReloadModels(nullptr), 0U);
    EXPECT_TRUE(ModelCollection.Contains("New"));
    EXPECT_EQ(Log().Count("Models have been reloaded with success\n"), 1U);
}

TEST_F(ModelStateTest, IsOneStepUnderTheLockOfTheRegistry) {
    const CallRecord record;
    EXPECT_EQ(Call("DisableModel", kNamingLogon), 0U);
    EXPECT_FALSE(record.All("SQL ").empty());
    EXPECT_EQ(record.UnderRegistryLock("SQL "), record.All("SQL "));
}

TEST_F(ModelStateTest, AgreesInMemoryAndInTheDatabaseHoweverManySwitchAtOnce) {
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("Logon", model));
    for (int round = 0; round < 25; ++round) {
        std::vector<std::thread> clients;
        for (int i = 0; i < 8; ++i) {
            clients.emplace_back(
                [i] { EXPECT_EQ(Call(i % 2 == 0 ? "EnableModel" : "DisableModel", kNamingLogon), 0U); });
        }
        for (std::thread& client : clients) {
            client.join();
        }
        ASSERT_EQ(Stored(), model->IsEnabled() ? "1" : "0");
    }
}

}  // namespace
