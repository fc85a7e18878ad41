#include <gtest/gtest.h>

#include "admin/ModelListing.h"
#include "model/ModelElement.h"
#include "support/LinkedModule.h"

namespace {

class ModelListing : public testing::Test {
protected:
    ModelListing() {
        LinkedModule::Initialise();
        LinkedModule::KeepErrorsFromAlerts();
        LinkedModule::Add(
            {.name = "Logon", .params = {{.name = "User"}, {.name = "Count", .type = ParamType::kInteger}}});
        LinkedModule::Add({.name = "Disk", .params = {{.name = "Path"}}})->SetEnabled(false);
        module_.Log().Forget();
    }

    LinkedModule module_;
};

TEST_F(ModelListing, GivesTheModelsInTheOrderOfTheirNames) {
    EXPECT_EQ(LinkedModule::Call("EventLogManagerGetModelNames", "{}").container,
              R"({"Result":{"ModelName":["Disk","Logon"],"ModelClass":["Test","Test"],)"
              R"("ModelNote":["A note","A note"],"ModelEnabled":[false,true]}})");
    EXPECT_EQ(module_.Log().Count("print ActionHandler_EventLogManagerGetModelNames: Entering\n"), 1U);
}

TEST_F(ModelListing, IsRefusedWithoutAContainer) {
    EXPECT_EQ(ActionHandler_EventLogManagerGetModelNames(nullptr), 13U);
    EXPECT_EQ(ActionHandler_EventLogManagerGetModel(nullptr), 13U);
}

TEST_F(ModelListing, DescribesOneModel) {
    const TestAgent::Answer answer =
        LinkedModule::Call("EventLogManagerGetModel", R"({"Values":{"ModelName":"Logon"}})");
    EXPECT_EQ(answer.status, 0U);
    EXPECT_EQ(
        answer.container,
        R"({"Result":{"ModelDef":{"ModelVars":{"ModelVarName":["Count","User"],"ModelVarType":["_INTEGER_",)"
        R"("_STRING_"]},"ModelName":"Logon","ModelClass":"Test","ModelSeverity":"1","ModelNote":"A note"}}})");
}

TEST_F(ModelListing, SaysWhichModelItDoesNotKnow) {
    EXPECT_EQ(LinkedModule::CallWith("EventLogManagerGetModel", "{}"), 13U);
    EXPECT_EQ(LinkedModule::CallWith("EventLogManagerGetModel", R"({"ModelName":"logon"})"), 13U);
    EXPECT_EQ(module_.Log().Count("error ActionHandler_EventLogManagerGetModel: Failed to get model name\n"),
              1U);
    EXPECT_EQ(
        module_.Log().Count("error ActionHandler_EventLogManagerGetModel: Failed to get model 'logon'\n"),
        1U);
}

}  // namespace
