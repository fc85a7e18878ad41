#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/core/ActionDb.h"
#include "support/LogReader.h"

namespace {

uint32_t AddOne(LumContainer* container) {
    int32_t number = 0;
    if (!container->GetInt32("Number", number)) {
        return 13;
    }
    container->Clear();
    container->SetInt32("Number", number + 1);
    return 0;
}

uint32_t Throw(LumContainer* /*container*/) {
    throw std::runtime_error("no disk today");
}

uint32_t ThrowNumber(LumContainer* /*container*/) {
    throw 7;
}

std::mutex gateMutex;
std::condition_variable gateChanged;
bool isInside = false;
bool isOpen = false;

uint32_t WaitAtGate(LumContainer* /*container*/) {
    std::unique_lock<std::mutex> guard(gateMutex);
    isInside = true;
    gateChanged.notify_all();
    gateChanged.wait(guard, [] { return isOpen; });
    return 5;
}

class ActionDb : public testing::Test {
protected:
    ~ActionDb() override {
        ActionDbUnregisterModule(&first_);
        ActionDbUnregisterModule(&second_);
    }

    bool Register(const char* signature, ActionHandler handler = AddOne) {
        return ActionDbRegisterAction(signature, handler, &first_);
    }

    static uint32_t Call(const char* name, LumContainer& container) {
        uint32_t status = 999;
        EXPECT_TRUE(ActionDbCallAction(name, container, status));
        return status;
    }

    HostLogLines log_;
    LumAgentHandle first_{"First"};
    LumAgentHandle second_{"Second"};
};

TEST_F(ActionDb, CallsAHandlerWithTheCallersContainerAndReturnsItsStatus) {
    ASSERT_TRUE(Register("AddOne (container Values)"));
    LumContainer container;
    EXPECT_EQ(Call("AddOne", container), 13U);
    container.SetInt32("Number", 41);
    EXPECT_EQ(Call("AddOne", container), 0U);
    int32_t number = 0;
    EXPECT_TRUE(container.GetInt32("Number", number));
    EXPECT_EQ(number, 42);
}

TEST_F(ActionDb, KnowsAnActionByTheNameInItsSignature) {
    ASSERT_TRUE(Register("AddOne ()"));
    EXPECT_TRUE(ActionDbIsActionRegistered("AddOne"));
    EXPECT_FALSE(ActionDbIsActionRegistered("AddOne ()"));
    EXPECT_FALSE(ActionDbIsActionRegistered("addone"));
    EXPECT_FALSE(ActionDbIsActionRegistered(""));
}

TEST_F(ActionDb, DoesNothingForAnUnknownAction) {
    LumContainer container;
    container.SetInt32("Number", 1);
    const LumContainer before = container;
    uint32_t status = 77;
    EXPECT_FALSE(ActionDbCallAction("Nobody", container, status));
    EXPECT_EQ(status, 77U);
    EXPECT_TRUE(container == before);
}

TEST_F(ActionDb, ListsActionsInOrderOfRegistration) {
    ASSERT_TRUE(Register("Zebra (container Values)"));
    ASSERT_TRUE(ActionDbRegisterAction("Ant ()", AddOne, &second_));
    ASSERT_TRUE(Register("Mole ()"));
    const std::vector<ActionInfo> list = ActionDbListActions();
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0].name, "Zebra");
    EXPECT_EQ(list[0].signature, "Zebra (container Values)");
    EXPECT_EQ(list[0].module, "First");
    EXPECT_EQ(list[1].name, "Ant");
    EXPECT_EQ(list[1].module, "Second");
    EXPECT_EQ(list[2].name, "Mole");
}

TEST_F(ActionDb, RefusesASignatureOfAnotherFormWithOneWarning) {
    const char* const wrong[] = {"",        "Name",       "Name()",      " (x)",       "Name  (x)",
                                 "Name (x", "Name x)",    "Name (x) ",   "Name (x)y",  "Na me (x)",
                                 "(x)",     "Name ((x))", "Name (a)(b)", "Na\tme (x)", "Name (a\nb)",
                                 "Name )x("};
    for (const char* const signature : wrong) {
        EXPECT_FALSE(Register(signature)) << signature;
    }
    EXPECT_EQ(log_.Count("warning Host Action not registered, its signature is not 'Name (parameters)'"),
              std::size(wrong));
    EXPECT_TRUE(ActionDbListActions().empty());
}

TEST_F(ActionDb, RefusesANullHandlerAndANullHandleWithOneWarningEach) {
    EXPECT_FALSE(ActionDbRegisterAction("AddOne ()", nullptr, &first_));
    EXPECT_FALSE(ActionDbRegisterAction("AddOne ()", AddOne, nullptr));
    EXPECT_EQ(log_.Count("warning Host Action 'AddOne' not registered, it has no handler\n"), 1U);
    EXPECT_EQ(log_.Count("warning Host Action 'AddOne' not registered, it has no module\n"), 1U);
}

TEST_F(ActionDb, RefusesATakenNameAndKeepsTheFirst) {
    ASSERT_TRUE(Register("AddOne ()"));
    EXPECT_FALSE(ActionDbRegisterAction("AddOne (container Values)", Throw, &second_));
    EXPECT_EQ(log_.Count("warning Host Action 'AddOne' of module 'Second' not registered, the name is taken"),
              1U);
    LumContainer container;
    EXPECT_EQ(Call("AddOne", container), 13U);
}

TEST_F(ActionDb, TurnsAnExceptionIntoStatusOneAndAnErrorLine) {
    ASSERT_TRUE(Register("Throw ()", Throw));
    ASSERT_TRUE(Register("ThrowNumber ()", ThrowNumber));
    LumContainer container;
    EXPECT_EQ(Call("Throw", container), 1U);
    EXPECT_EQ(Call("ThrowNumber", container), 1U);
    EXPECT_EQ(log_.Count("error Host Action 'Throw' ended with an exception: no disk today\n"), 1U);
    EXPECT_EQ(log_.Count("error Host Action 'ThrowNumber' ended with an exception\n"), 1U);
}

TEST_F(ActionDb, UnregistersOnlyTheActionsOfTheModule) {
    ASSERT_TRUE(Register("One ()"));
    ASSERT_TRUE(ActionDbRegisterAction("Two ()", AddOne, &second_));
    ASSERT_TRUE(Register("Three ()"));
    ActionDbUnregisterModule(&first_);
    ASSERT_EQ(ActionDbListActions().size(), 1U);
    EXPECT_EQ(ActionDbListActions()[0].name, "Two");
    EXPECT_FALSE(ActionDbIsActionRegistered("One"));
    ActionDbUnregisterModule(&first_);
    EXPECT_TRUE(Register("One ()"));
}

TEST_F(ActionDb, WaitsForRunningCallsBeforeAModuleIsGone) {
    ASSERT_TRUE(Register("Wait ()", WaitAtGate));
    std::atomic<bool> isUnregistered = false;
    std::thread caller([] {
        LumContainer container;
        EXPECT_EQ(Call("Wait", container), 5U);
    });
    {
        std::unique_lock<std::mutex> guard(gateMutex);
        gateChanged.wait(guard, [] { return isInside; });
    }
    std::thread unregisterer([&] {
        ActionDbUnregisterModule(&first_);
        isUnregistered = true;
    });
    while (ActionDbIsActionRegistered("Wait")) {
        std::this_thread::yield();
    }
    // Nothing can be waited for where nothing may happen: time enough for one that does not wait to get here.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(isUnregistered);
    {
        const std::lock_guard<std::mutex> guard(gateMutex);
        isOpen = true;
        gateChanged.notify_all();
    }
    unregisterer.join();
    caller.join();
}

TEST_F(ActionDb, SurvivesCallsWhileModulesComeAndGo) {
    ASSERT_TRUE(Register("Steady ()"));
    std::atomic<bool> isDone = false;
    std::vector<std::thread> callers;
    for (int i = 0; i < 3; ++i) {
        callers.emplace_back([&] {
            while (!isDone) {
                LumContainer container;
                uint32_t status = 0;
                EXPECT_TRUE(ActionDbCallAction("Steady", container, status));
                static_cast<void>(ActionDbCallAction("Passing", container, status));
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        LumAgentHandle passing{"Passing"};
        EXPECT_TRUE(ActionDbRegisterAction("Passing ()", AddOne, &passing));
        ActionDbUnregisterModule(&passing);
    }
    isDone = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
}

TEST_F(ActionDb, InvokesWithACopyAndHandsTheAnswerOver) {
    ASSERT_TRUE(Register("AddOne ()"));
    LumContainer arguments;
    arguments.SetInt32("Number", 1);
    LumContainer answer;
    EXPECT_TRUE(
        ActionDbInvokeContainer(nullptr, "", "AddOne", arguments, &answer, 0xFFFFFFFF, 0xFFFFFFFF, false));
    EXPECT_TRUE(
        ActionDbInvokeContainer(nullptr, "", "AddOne", arguments, nullptr, 0xFFFFFFFF, 0xFFFFFFFF, false));
    int32_t number = 0;
    EXPECT_TRUE(arguments.GetInt32("Number", number));
    EXPECT_EQ(number, 1);
    EXPECT_TRUE(answer.GetInt32("Number", number));
    EXPECT_EQ(number, 2);
}

TEST_F(ActionDb, WarnsOnceWhenAnUnknownActionIsInvoked) {
    LumContainer answer;
    answer.SetInt32("Number", 3);
    EXPECT_FALSE(ActionDbInvokeContainer(nullptr, "", "Nobody", LumContainer(), &answer, 0xFFFFFFFF,
                                         0xFFFFFFFF, false));
    EXPECT_EQ(log_.Count("warning Host Action 'Nobody' invoked, but no module has registered it\n"), 1U);
    EXPECT_TRUE(answer.Contains("Number"));
}

}  // namespace
