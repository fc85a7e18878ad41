// What of a model's state is kept when its definition is dropped again.

#include <filesystem>
#include <memory>

#include <gtest/gtest.h>

#include "model/ModelElement.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"
#include "support/LinkedModule.h"

namespace {

class DroppedDefinitions : public testing::Test, protected LinkedModule {
protected:
    DroppedDefinitions() {
        StartWith(kLogon);
        Change(
            "UPDATE RegisteredModel SET RM_Enabled = 0, RM_LastAggregationTimestamp = 11, "
            "RM_LastUploadTimestamp = 22");
        std::shared_ptr<Model_t> model = Logon();
        ModelCollection.Remove(model);
    }

    static std::shared_ptr<Model_t> Logon() {
        std::shared_ptr<Model_t> model;
        EXPECT_TRUE(ModelCollection.Get("Logon", model));
        return model;
    }
    void DropAgain() const {
        Drop("again.xml", Definition(kLogon));
        EXPECT_TRUE(LoadUnregisteredModels());
    }
};

TEST_F(DroppedDefinitions, CarriesTheStateOverWhereTheFiledDefinitionWasLost) {
    std::filesystem::remove_all(ModelDirectory("Logon").GetString());
    ASSERT_TRUE(LoadRegisteredModels());
    DropAgain();
    EXPECT_FALSE(Logon()->IsEnabled());
    EXPECT_EQ(Logon()->GetLastAggregationTime(), 11);
    EXPECT_EQ(Logon()->GetLastUploadTime(), 22);
}

TEST_F(DroppedDefinitions, CarriesNothingOverWhereTheModelIsKnown) {
    ASSERT_TRUE(LoadRegisteredModels());
    DropAgain();
    EXPECT_TRUE(Logon()->IsEnabled());
    EXPECT_EQ(Logon()->GetLastAggregationTime(), 0);
    EXPECT_EQ(Logon()->GetLastUploadTime(), 0);
}

}  // namespace
