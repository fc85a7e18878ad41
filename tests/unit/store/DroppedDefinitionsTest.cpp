// What of a model's state is kept when its definition is dropped again.

#include <filesystem>
#include <functional>
#include <memory>
#include <utility>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "host/thread/LumMutex.h"
#include "model/ModelElement.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"
#include "support/LinkedModule.h"

namespace {

/// What this thread looks at each time it has given a mutex back: what others may see from then on. Null for
/// nothing.
thread_local const std::function<void()>* lookAfterUnlock = nullptr;

}  // namespace

/// Stands in front of the library's, which it calls.
void LumMutex::Unlock() LUM_NO_THREAD_SAFETY_ANALYSIS {
    static auto* const next =
        reinterpret_cast<void (*)(LumMutex*)>(::dlsym(RTLD_NEXT, "_ZN8LumMutex6UnlockEv"));
    next(this);
    if (const auto* const look = std::exchange(lookAfterUnlock, nullptr)) {  // it takes locks itself
        (*look)();
        lookAfterUnlock = look;
    }
}

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

TEST_F(DroppedDefinitions, LeaveNoMomentWithoutAKnownModel) {
    ASSERT_TRUE(LoadRegisteredModels());
    uint32_t looks = 0;
    uint32_t missing = 0;
    const std::function<void()> look = [&] {
        ++looks;
        missing += ModelCollection.Contains("Logon") ? 0 : 1;
    };
    lookAfterUnlock = &look;
    DropAgain();
    lookAfterUnlock = nullptr;
    EXPECT_GT(looks, 0U);
    EXPECT_EQ(missing, 0U);
}

}  // namespace
