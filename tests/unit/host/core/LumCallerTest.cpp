#include <thread>

#include <gtest/gtest.h>

#include "host/core/ActionDb.h"
#include "host/core/LumCaller.h"

namespace {

const LumCaller* seen = nullptr;

uint32_t See(LumContainer*) {
    seen = LumCallerCurrent();
    return 0;
}

class LumCallerContext : public testing::Test {
protected:
    LumCallerContext() { ActionDbRegisterAction("See ()", See, &handle_); }
    ~LumCallerContext() override { ActionDbUnregisterModule(&handle_); }

    LumAgentHandle handle_{"Tester"};
};

TEST_F(LumCallerContext, IsAModuleUnlessSomebodySaysOtherwise) {
    EXPECT_EQ(LumCallerCurrent(), nullptr);
    const LumCaller alice{1000, "alice"};
    {
        const LumCallerScope scope(&alice);
        EXPECT_EQ(LumCallerCurrent(), &alice);
        std::thread([] { EXPECT_EQ(LumCallerCurrent(), nullptr); }).join();
        {
            const LumCallerScope inner(nullptr);
            EXPECT_EQ(LumCallerCurrent(), nullptr);
        }
        EXPECT_EQ(LumCallerCurrent(), &alice);
    }
    EXPECT_EQ(LumCallerCurrent(), nullptr);
}

TEST_F(LumCallerContext, OfACallIsKnownToTheHandler) {
    const LumCaller alice{1000, "alice"};
    const LumCallerScope scope(&alice);
    LumContainer container;
    uint32_t status = 1;
    ASSERT_TRUE(ActionDbCallAction("See", container, status));
    EXPECT_EQ(seen, &alice);
}

TEST_F(LumCallerContext, OfAnInvokedActionIsTheModuleThatInvokesIt) {
    const LumCaller alice{1000, "alice"};
    const LumCallerScope scope(&alice);
    seen = &alice;
    ASSERT_TRUE(ActionDbInvokeContainer(nullptr, "", "See", LumContainer(), nullptr, 0, 0, false));
    EXPECT_EQ(seen, nullptr);
    EXPECT_EQ(LumCallerCurrent(), &alice);
}

}  // namespace
