#include <string>

#include <gtest/gtest.h>

#include "agent/module/ModuleHost.h"
#include "agent/module/ModuleNote.h"
#include "host/core/ModuleInterface.h"
#include "support/AgentProcess.h"
#include "support/LogReader.h"
#include "support/TempDirectory.h"

namespace {

/// The test module's file with another version in every note of the interface.
std::string WithVersion(char version) {
    std::string file = ReadWholeFile(TestModule("Echo"));
    const std::string note(reinterpret_cast<const char*>(&kLumModuleNote), sizeof(kLumModuleNote));
    for (std::size_t at = file.find(note); at != std::string::npos; at = file.find(note, at + 1)) {
        file[at + offsetof(LumModuleNote, version)] = version;
    }
    return file;
}

class ModuleNoteTest : public testing::Test {
protected:
    [[nodiscard]] LumString Write(const std::string& content) const {
        return LumString(scratch_.Write("module.so", content));
    }

    TempDirectory scratch_;
    uint32_t version_ = 77;
};

TEST_F(ModuleNoteTest, AModuleSaysWhatItWasBuiltFor) {
    EXPECT_TRUE(ReadModuleInterface(LumString(TestModule("Echo")), version_));
    EXPECT_EQ(version_, kLumModuleInterface);
    EXPECT_TRUE(ReadModuleInterface(Write(WithVersion(9)), version_));
    EXPECT_EQ(version_, 9U);
}

TEST_F(ModuleNoteTest, AFileWithoutTheNoteSaysNothing) {
    EXPECT_FALSE(ReadModuleInterface("/nowhere", version_));
    EXPECT_FALSE(ReadModuleInterface(Write(""), version_));
    EXPECT_FALSE(ReadModuleInterface(Write(std::string(4096, 'x')), version_));
    EXPECT_FALSE(ReadModuleInterface("/bin/true", version_));
    EXPECT_EQ(version_, 77U);
}

TEST_F(ModuleNoteTest, ANoteWhoseLengthLeadsBeyondItsEndSaysNothing) {
    std::string file = ReadWholeFile(TestModule("Echo"));
    const std::string note(reinterpret_cast<const char*>(&kLumModuleNote), sizeof(kLumModuleNote));
    for (std::size_t at = file.find(note); at != std::string::npos; at = file.find(note, at + 1)) {
        file.replace(at, sizeof(uint32_t), "\xf0\xff\xff\xff");
    }
    EXPECT_FALSE(ReadModuleInterface(Write(file), version_));
    EXPECT_EQ(version_, 77U);
}

TEST_F(ModuleNoteTest, AFileThatIsCutShortIsReadAsFarAsItGoes) {
    const std::string module = ReadWholeFile(TestModule("Echo"));
    for (std::size_t length = 1; length < 1024; length += 7) {
        uint32_t version = kLumModuleInterface;
        static_cast<void>(ReadModuleInterface(Write(module.substr(0, length)), version));
        EXPECT_EQ(version, kLumModuleInterface) << length;
    }
}

TEST_F(ModuleNoteTest, AModuleForAnotherVersionIsRefusedWithBoth) {
    LogLines log;
    LumDebug debug("Agent", "test");
    debug.SetContext(&log.Context());
    ModuleHost host(debug);
    const LumString path = Write(WithVersion(9));
    EXPECT_FALSE(host.Load("Other", path, ""));
    EXPECT_EQ(
        log.Count("error Agent Module 'Other' is not loaded from " + std::string(path.View()) +
                  ": it was built for version 9 of the module interface, and this agent has version 1\n"),
        1U)
        << testing::PrintToString(log.Said());
}

}  // namespace
