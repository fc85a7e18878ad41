#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "contract/FileStore.h"
#include "contract/Statuses.h"
#include "filestore/ModuleMain.h"
#include "host/container/LumContainer.h"
#include "host/core/LumAgent.h"
#include "host/core/LumHealth.h"
#include "host/core/LumMetrics.h"
#include "support/TestAgent.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

/// The module in the test's own process, as the agent drives it.
class ModuleMainTest : public testing::Test, protected TestAgent {
protected:
    static void Do(LumModuleCommand command, void* pointer = nullptr) {
        Command(ModuleMain, command, pointer);
    }
    void Begin() {
        Do(LumModuleCommand::kRegister, &store_);
        Do(LumModuleCommand::kInitialise);
        Do(LumModuleCommand::kActivate);
    }
    void TearDown() override {
        Do(LumModuleCommand::kCleanup);
        Do(LumModuleCommand::kUnregister);
        ActionDbUnregisterModule(&store_);
    }
    [[nodiscard]] static uint32_t Receive(const std::string& fields) {
        return Call(kFileStoreAction, fields).status;
    }
    [[nodiscard]] std::vector<std::string> StoreSaid() const { return storeLog_.Said(); }

    static constexpr const char* kOutbox = "data/FileStore/outbox";

private:
    LumAgentHandle store_{"FileStore"};
    LogReader storeLog_{Directory() / "log", "FileStore"};
};

TEST_F(ModuleMainTest, KnowsItsCommandsAlone) {
    Begin();
    Do(LumModuleCommand::kAcknowledged);
    wchar_t text[kLumModuleTextLength] = {};
    Do(LumModuleCommand::kGetVersion, text);
    EXPECT_EQ(std::wstring(text), L"1.0.0");
    Do(LumModuleCommand::kGetDescription, text);
    EXPECT_EQ(std::wstring(text), L"File store module (FileStoreModule)");
    EXPECT_EQ(ModuleMain(8, 0, nullptr), kLumModuleUnknownCommand);
}

TEST_F(ModuleMainTest, RefusesARequestWithoutAPath) {
    Begin();
    EXPECT_EQ(Receive("{}"), kActionRefused);
    EXPECT_EQ(Receive(R"({"MovePath":5})"), kActionRefused);
    EXPECT_THAT(StoreSaid(), Contains("error ActionHandler_FileStoreReceiveFile: Failed to get the path of "
                                      "the file to move"));
}

TEST_F(ModuleMainTest, TakesAFileAndShowsIt) {
    Begin();
    const std::string made = Directory().Write("made", "abc");
    EXPECT_EQ(Receive(R"({"MovePath":")" + made + R"(","FileLabel":"Events","Priority":7})"), 0U);
    EXPECT_FALSE(fs::exists(made));
    Directory().Write(std::string(kOutbox) + "/.lumforward.json", R"({"Connected":true})");
    LumContainer status;
    LumStatusCollect(status);
    EXPECT_THAT(status.ToJson(), HasSubstr(R"("outbox":{"files":1,)"));
    EXPECT_THAT(status.ToJson(), HasSubstr(R"("forwarder":{"connected":true})"));
    EXPECT_THAT(LumHealthReasons(), IsEmpty());
}

TEST_F(ModuleMainTest, SaysWhatAnEarlierLifeLeft) {
    Directory().Write(std::string(kOutbox) + "/20261121T011025Z-7-Events.cbor", "abc");
    Directory().Write(std::string(kOutbox) + "/other.cbor", "abc");
    Directory().Write(std::string(kOutbox) + "/gone.json", R"({"FileName":"gone.cbor"})");
    Directory().Write("data/FileStore/next-number", "nonsense");
    Begin();
    const std::string start = "warning StoreInitialise: ";
    EXPECT_THAT(StoreSaid(), Contains(start + "Files without a description in the outbox: 1, the first is "
                                              "'20261121T011025Z-7-Events.cbor'; they were given one from "
                                              "their names"));
    EXPECT_THAT(StoreSaid(), Contains(start + "Files without a description in the outbox: 1, the first is "
                                              "'other.cbor'; they were left as they are"));
    EXPECT_THAT(StoreSaid(), Contains(start + "Descriptions without their file in the outbox: 1, the first "
                                              "is 'gone.json'; they were removed"));
    EXPECT_THAT(StoreSaid(), Contains(HasSubstr("next-number: its content is not a number")));
}

TEST_F(ModuleMainTest, IsNotWellWithoutItsOutbox) {
    Directory().Write("data/FileStore", "a file in its place");
    Begin();
    EXPECT_THAT(StoreSaid(), Contains(HasSubstr("error StoreInitialise: Failed to open the outbox, ")));
    const std::string made = Directory().Write("made", "abc");
    EXPECT_EQ(Receive(R"({"MovePath":")" + made + "\"}"), 1U);
    EXPECT_EQ(LumHealthReasons().size(), 1U);
    fs::remove(Directory() / "data/FileStore");
    EXPECT_EQ(Receive(R"({"MovePath":")" + made + "\"}"), 0U);
    EXPECT_THAT(LumHealthReasons(), IsEmpty());
}

}  // namespace
