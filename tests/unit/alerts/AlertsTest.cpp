#include <chrono>
#include <future>
#include <string>

#include <gtest/gtest.h>

#include "alerts/AlertCeiling.h"
#include "alerts/AlertGapTable.h"
#include "alerts/Alerts.h"
#include "contract/ContainerKeys.h"
#include "contract/FileStore.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"
#include "host/core/ActionFrame.h"
#include "host/file/LumFile.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "support/CallRecord.h"
#include "support/FileStoreStandIn.h"
#include "support/StartedModule.h"
#include "support/TempDirectory.h"

namespace {

class Alerts : public testing::Test, protected StartedModule {
protected:
    Alerts() {
        AlertMinimumGap = 60;
        ModuleDebug.SetErrorActionInvokeAddress(RaiseAlertOnError);
    }
    ~Alerts() override { ModuleDebug.SetErrorActionInvokeAddress(nullptr); }

    static uint32_t Create(const char* description, const LumContainer& values) {
        LumContainer container;
        if (*description != '\0') {
            container.SetString("Description", description);
        }
        container.SetContainer(keys::kValues, values);
        return ActionHandler_EventLogManagerCreateAlert(&container);
    }
    static uint32_t Check(uint32_t time) {
        LumContainer check;
        check.SetString("Description", "disk");
        check.SetString("Status", "1");
        check.SetInt32("EventTimeGMT", static_cast<int32_t>(time));
        return ActionHandler_EventLogManagerCheckAlertMinimumGap(&check);
    }
    static LumString TextOf(const LumContainer& file, const char* name) {
        LumString text;
        static_cast<void>(file.GetString(name, text));
        return text;
    }
};

TEST_F(Alerts, AnswerWithoutAContainer) {
    EXPECT_EQ(ActionHandler_EventLogManagerCreateAlert(nullptr), kActionDone);
    EXPECT_EQ(ActionHandler_EventLogManagerCheckAlertMinimumGap(nullptr), kActionDone);
}

TEST_F(Alerts, HandTheFileOverUpstreamAndWithoutAPriority) {
    const FileStoreStandIn received;
    EXPECT_EQ(Create("disk full", LumContainer()), kActionDone);
    ASSERT_EQ(received.Requests().size(), 1U);
    const LumContainer request = received.Requests().front();
    EXPECT_EQ(TextOf(request, "FileType"), "EventManagerEvent");
    EXPECT_EQ(TextOf(request, "FileLabel"), "EventManagerEvent");
    LumString name("unset");
    EXPECT_TRUE(request.GetString("FileName", name));
    EXPECT_EQ(name, "");
    EXPECT_TRUE(request.GetString("FileChecksum", name));
    EXPECT_EQ(name, "");
    bool upstream = false;
    EXPECT_TRUE(request.GetBool("Upstream", upstream));
    EXPECT_TRUE(upstream);
    EXPECT_EQ(request.CountValues("Priority"), 0U);
}

TEST_F(Alerts, PassAtTheGapAndBecomeTheReference) {
    AlertMinimumGap = 1;
    EXPECT_EQ(Check(1000), kActionDone);
    EXPECT_EQ(Check(1059), kActionWithinGap);
    EXPECT_EQ(Log().Count("trace The following alert has already been created and will not be "
                          "uploaded to the Master: 'disk-1'\n"),
              1U);
    EXPECT_EQ(Check(1060), kActionDone);
    EXPECT_EQ(Check(1119), kActionWithinGap);
}

TEST_F(Alerts, AreSentEachTimeWithoutAGap) {
    AlertMinimumGap = 0;
    const FileStoreStandIn received;
    Create("disk full", LumContainer());
    Create("disk full", LumContainer());
    EXPECT_EQ(received.Files().size(), 2U);
}

TEST_F(Alerts, TakeNothingThatNamesTheAlertForEventManagerEvent) {
    const FileStoreStandIn received;
    EXPECT_EQ(Create("", LumContainer()), kActionDone);
    EXPECT_EQ(Create("EventManagerEvent", LumContainer()), kActionDone);
    EXPECT_EQ(received.Files().size(), 1U);
}

TEST_F(Alerts, CarryAMillionVariables) {
    LumContainer entry;
    entry.SetString("EventManagerVariableValue", "v");
    LumContainer variables;
    for (uint32_t i = 0; i < 1000000; ++i) {
        variables.SetContainer("EventManagerVariableEntry", entry, i);
    }
    LumContainer values;
    values.SetContainer("EventManagerVariables", variables);
    const FileStoreStandIn received;
    EXPECT_EQ(Create("", values), kActionDone);
    ASSERT_EQ(received.Files().size(), 1U);
    LumContainer sent;
    ASSERT_TRUE(received.Files().front().GetContainer("EventManagerVariables", sent));
    EXPECT_EQ(sent.CountValues("EventManagerVariableEntry"), 1000000U);
    EXPECT_EQ(Create("", values), kActionDone);
    EXPECT_EQ(received.Files().size(), 1U);
}

TEST_F(Alerts, CarryADescriptionOfAMegabyte) {
    const std::string description(std::size_t{1} << 20U, 'd');
    const FileStoreStandIn received;
    EXPECT_EQ(Create(description.c_str(), LumContainer()), kActionDone);
    ASSERT_EQ(received.Files().size(), 1U);
    EXPECT_EQ(TextOf(received.Files().front(), "Description"), LumString(description));
}

TEST_F(Alerts, AreGivenUpWhereNobodyStoresThem) {
    EXPECT_EQ(Create("disk full", LumContainer()), kActionDone);
    EXPECT_EQ(
        HostLog().Count("warning Action 'FileStoreReceiveFile' invoked, but no module has registered it\n"),
        1U);
}

uint32_t Refuse(LumContainer* /*container*/) {
    return 13;
}

TEST_F(Alerts, AreGivenUpWhereTheStoreRefusesThem) {
    LumAgentHandle store{"Store"};
    ActionDbRegisterAction(kFileStoreSignature, Refuse, &store);
    EXPECT_EQ(Create("disk full", LumContainer()), kActionDone);
    EXPECT_EQ(Create("disk empty", LumContainer()), kActionDone);
    ActionDbUnregisterModule(&store);
}

std::promise<void>* storeIsReached = nullptr;
std::future<void>* storeMayGoOn = nullptr;

uint32_t StoreSlowly(LumContainer* /*container*/) {
    storeIsReached->set_value();
    storeMayGoOn->wait();
    return 0;
}

TEST_F(Alerts, DoNotWaitForTheStoreOfAnother) {
    std::promise<void> reached;
    std::promise<void> goOn;
    std::future<void> mayGoOn = goOn.get_future();
    storeIsReached = &reached;
    storeMayGoOn = &mayGoOn;
    LumAgentHandle store{"Store"};
    ActionDbRegisterAction(kFileStoreSignature, StoreSlowly, &store);
    std::thread slow([] { Create("disk full", LumContainer()); });
    reached.get_future().wait();
    EXPECT_EQ(Check(1000), kActionDone);
    EXPECT_EQ(Create("disk full", LumContainer()), kActionDone) << "a repeat is held back at once";
    goOn.set_value();
    slow.join();
    ActionDbUnregisterModule(&store);
}

TEST_F(Alerts, ComeOfAnErrorLineOnce) {
    const FileStoreStandIn received;
    ModuleDebug.ErrorWithNL("%S: Failed to do it", std::string_view("Routine"));
    ASSERT_EQ(received.Files().size(), 1U);
    EXPECT_EQ(TextOf(received.Files().front(), "Description"), "Routine: Failed to do it");
    EXPECT_EQ(TextOf(received.Files().front(), "EventManagerType"), "_DB_EVENTTYPE_ERRORONCLIENT_");
    ModuleDebug.ErrorWithNL("%S: Failed to do it", std::string_view("Routine"));
    EXPECT_EQ(received.Files().size(), 1U);
    ModuleDebug.WarningWithNL("%S: Did not do it", std::string_view("Routine"));
    EXPECT_EQ(received.Files().size(), 1U);
}

TEST_F(Alerts, SayThatTheErrorIsOnTheServer) {
    const FileStoreStandIn received;
    LumAgentHandle server{"Server"};
    ActionDbRegisterAction("MasterReceiveFile (container)", Refuse, &server);
    ModuleDebug.ErrorWithNL("%S: Failed to do it", std::string_view("Routine"));
    ActionDbUnregisterModule(&server);
    ASSERT_EQ(received.Files().size(), 1U);
    EXPECT_EQ(TextOf(received.Files().front(), "EventManagerType"), "_DB_EVENTTYPE_ERRORONSERVER_");
}

TEST_F(Alerts, ComeOfAnErrorUnderTheDatabaseLock) {
    const FileStoreStandIn received;
    const LumMutexLock lock(DatabaseMutex);
    ModuleDebug.ErrorWithNL("%S: Failed to do it", std::string_view("Routine"));
    EXPECT_EQ(received.Files().size(), 1U);
}

TEST_F(Alerts, ComeOfAnErrorThatTheLockIsMissing) {
    const FileStoreStandIn received;
    const DatabaseLockout exhausted;
    ModuleDebug.ErrorWithNL("%S: Failed to lock database", std::string_view("Routine"));
    EXPECT_EQ(received.Files().size(), 1U);
}

uint32_t calls = 0;

uint32_t FailWithAnError(LumContainer* /*container*/) {
    ++calls;
    ModuleDebug.ErrorWithNL("%S: Failed call %u", std::string_view("Store"), calls);
    return 1;
}

TEST_F(Alerts, DoNotComeOfAnErrorWhileOneIsMade) {
    LumAgentHandle store{"Store"};
    ActionDbRegisterAction(kFileStoreSignature, FailWithAnError, &store);
    calls = 0;
    ModuleDebug.ErrorWithNL("%S: Failed to do it", std::string_view("Routine"));
    ActionDbUnregisterModule(&store);
    EXPECT_EQ(calls, 1U);
    EXPECT_EQ(Log().Count("error Store: Failed call 1\n"), 1U);
}

TEST_F(Alerts, AreCheckedUnderTheirLockToTheEnd) {
    AlertMinimumGap = 60;
    ASSERT_EQ(Check(1000), kActionDone);
    const CallRecord record;
    EXPECT_EQ(Check(1001), kActionWithinGap);
    EXPECT_EQ(record.UnderAlertLock("trace ").size(), 1U);
}

TEST_F(Alerts, OfErrorsAreMadeOneAtATimeUnderTheDatabaseLock) {
    bool wasHeld = false;
    const FileStoreStandIn store([&wasHeld](const LumContainer&, const LumContainer&) {
        wasHeld = DatabaseMutex.IsHeldByThisThread() && !AlertGapMutex.IsHeldByThisThread();
        return 0U;
    });
    const CallRecord record;
    ModuleDebug.ErrorWithNL("%S: Failed to do it", std::string_view("Routine"));
    EXPECT_TRUE(wasHeld);
}

/// The lock order: whoever has the alert lock never waits for the database's. Under the thread sanitizer the
/// reverse order anywhere in these calls is a report.
TEST_F(Alerts, TakeTheirOwnLockInsideTheDatabaseLock) {
    AlertMinimumGap = 0;
    const FileStoreStandIn received;
    std::thread checks([] {
        for (uint32_t i = 0; i < 200; ++i) {
            static_cast<void>(Check(i));
        }
    });
    for (uint32_t i = 0; i < 200; ++i) {
        const LumMutexLock lock(DatabaseMutex);
        ModuleDebug.ErrorWithNL("%S: Failed %u", std::string_view("Routine"), i);
    }
    checks.join();
    EXPECT_EQ(received.Files().size(), 200U);
}

TEST_F(Alerts, LeaveUpToACeiling) {
    const FileStoreStandIn received;
    AlertMinimumGap = 0;
    AlertCeiling.SetPerMinute(5);
    const std::time_t minute = std::time(nullptr) / 60;
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(Create(("disk " + std::to_string(i)).c_str(), LumContainer()), kActionDone);
    }
    if (std::time(nullptr) / 60 == minute) {  // else the minute has just changed
        EXPECT_EQ(received.Files().size(), 5U);
        EXPECT_EQ(AlertCeiling.TakeHeldBack(std::time(nullptr) + 60), 15U);
    }
}

/// Who was held back by the ceiling has not been sent, so a repeat has to pass as soon as there is room.
TEST_F(Alerts, AreNotRememberedAsSentWhereTheCeilingHeldThemBack) {
    const FileStoreStandIn received;
    const std::time_t minute = std::time(nullptr) / 60;
    AlertCeiling.SetPerMinute(1);
    EXPECT_EQ(Create("first", LumContainer()), kActionDone);
    EXPECT_EQ(Create("second", LumContainer()), kActionDone);
    EXPECT_EQ(Create("first", LumContainer()), kActionDone);
    if (std::time(nullptr) / 60 == minute) {  // else the minute has just changed
        EXPECT_EQ(received.Files().size(), 1U);
        EXPECT_EQ(AlertCeiling.TakeHeldBack(std::time(nullptr) + 60), 1U) << "the repeat is not counted";
    }
    AlertCeiling.SetPerMinute(0);
    EXPECT_EQ(Create("second", LumContainer()), kActionDone);
    EXPECT_EQ(received.Files().size(), 2U);
}

TEST_F(Alerts, WaitForTheStoreUpToACeiling) {
    AlertMinimumGap = 0;
    AlertCeiling.SetPerMinute(0);
    const TestDirectory waiting(GetTempDirectory().GetString());
    for (uint32_t i = 0; i + 1 < kMaxWaitingAlerts; ++i) {
        static_cast<void>(waiting.Write("lum-" + std::to_string(i), ""));
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Create("disk full", LumContainer()), kActionDone);
    }
    EXPECT_EQ(waiting.CountEntries(), kMaxWaitingAlerts);
    EXPECT_EQ(AlertCeiling.TakeLost(std::time(nullptr) + 60), 2U);
}

TEST_F(Alerts, SayOnceAMinuteHowManyAreLost) {
    const std::time_t lastMinute = std::time(nullptr) - 60;
    AlertCeiling.NoteLost(lastMinute);
    AlertCeiling.NoteLost(lastMinute);
    TellHeldBackAlerts();
    TellHeldBackAlerts();
    EXPECT_EQ(Log().Count("warning TellHeldBackAlerts: 2 alerts are lost: their files could not be "
                          "written, or 1000 wait in "),
              1U);
}

TEST_F(Alerts, AreToldApartByAllTheirVariables) {
    const FileStoreStandIn received;
    for (const char* const last : {"a", "b"}) {
        LumContainer entry;
        LumContainer variables;
        entry.SetString("EventManagerVariableValue", "same");
        variables.SetContainer("EventManagerVariableEntry", entry, 0);
        entry.SetString("EventManagerVariableValue", last);
        variables.SetContainer("EventManagerVariableEntry", entry, 2);  // position 1 is empty
        LumContainer values;
        values.SetContainer("EventManagerVariables", variables);
        EXPECT_EQ(Create("", values), kActionDone);
    }
    EXPECT_EQ(received.Files().size(), 2U);
}

}  // namespace
