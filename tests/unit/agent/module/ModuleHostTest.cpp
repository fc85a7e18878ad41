#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "agent/module/ModuleHost.h"
#include "host/core/ActionDb.h"
#include "host/core/LumAgent.h"
#include "support/AgentProcess.h"
#include "support/LogReader.h"

namespace {

LumString Text(const std::string& text) {
    return LumString(std::string_view(text));
}

class ModuleHostFiles : public testing::Test {
protected:
    ModuleHostFiles() {
        debug_.SetContext(&log_.Context());
        LumString error;
        EXPECT_TRUE(
            LumAgentGetDebugContext(nullptr)->OpenFile(Text(scratch_ / "modules.log"), 1 << 20, 1, error));
    }

    bool Load(const std::string& name, const std::string& file) {
        return host_.Load(Text(name), Text(file), Text(BinaryDirectory() + "/../test_modules"));
    }

    /// Expects that the module was refused with one error line that names the file and ends with the reason.
    void ExpectRefusal(const std::string& name, const std::string& path, const std::string& reason) const {
        EXPECT_EQ(log_.Count("error Agent Module '" + name + "' is not loaded from " + path + ": "), 1U)
            << testing::PrintToString(log_.Said());
        EXPECT_EQ(log_.Count(reason + "\n"), 1U) << testing::PrintToString(log_.Said());
    }

    /// What the modules have said, without the times.
    [[nodiscard]] std::string GetModuleLines() const {
        std::string lines;
        std::string line;
        std::ifstream file(scratch_ / "modules.log");
        while (std::getline(file, line)) {
            constexpr std::string_view level = " print ";
            const std::size_t at = line.find(level);
            // What the host itself has to say stands in the same file at other levels.
            if (at != std::string::npos) {
                lines += line.substr(at + level.size()) + "\n";
            }
        }
        return lines;
    }

    TempDirectory scratch_;
    HostLogLines log_;
    LumDebug debug_{"Agent", "test"};
    ModuleHost host_{debug_};
};

TEST_F(ModuleHostFiles, DrivesAModuleThroughItsLife) {
    ASSERT_TRUE(Load("First", "Echo.so"));
    EXPECT_TRUE(ActionDbIsActionRegistered("EchoBack"));
    ASSERT_EQ(host_.ListModules().size(), 1U);
    const ModuleInfo info = host_.ListModules()[0];
    EXPECT_EQ(info.name, "First");
    EXPECT_EQ(info.file, (BinaryDirectory() + "/../test_modules/Echo.so").c_str());
    EXPECT_EQ(info.description, "Echo module for tests");
    EXPECT_EQ(info.version, "1.2.3");
    EXPECT_EQ(ActionDbListActions()[0].module, "First");
    host_.UnloadAll();
    EXPECT_FALSE(ActionDbIsActionRegistered("EchoBack"));
    EXPECT_TRUE(host_.ListModules().empty());
    EXPECT_EQ(GetModuleLines(),
              "Echo command 1\nEcho command 3\nEcho command 4\nEcho command 6\nEcho command 7\n"
              "Echo command 5\nEcho Echo stops\nEcho command 2\nEcho library gone\n");
}

TEST_F(ModuleHostFiles, TakesAModuleThatSaysNothingOfItself) {
    ASSERT_TRUE(Load("Mute", "Mute.so"));
    EXPECT_EQ(host_.ListModules().at(0).description, "");
    EXPECT_EQ(host_.ListModules().at(0).version, "1.2.3");
}

TEST_F(ModuleHostFiles, EndsModulesInReverseOrder) {
    ASSERT_TRUE(Load("Echo", TestModule("Echo")));
    ASSERT_TRUE(Load("Relay", "Relay.so"));
    host_.UnloadAll();
    const std::string lines = GetModuleLines();
    EXPECT_NE(lines.find("Relay command 5\nEcho Relay stops\nRelay command 2\nRelay library gone\n"
                         "Echo command 5\nEcho Echo stops\nEcho command 2\nEcho library gone\n"),
              std::string::npos)
        << lines;
}

TEST_F(ModuleHostFiles, LoadsAModuleAgainAfterItWasUnloaded) {
    ASSERT_TRUE(Load("Echo", "Echo.so"));
    host_.UnloadAll();
    EXPECT_TRUE(Load("Echo", "Echo.so"));
}

TEST_F(ModuleHostFiles, SaysWhyAFileCannotBeLoaded) {
    EXPECT_FALSE(Load("Missing", "missing.so"));
    ExpectRefusal("Missing", BinaryDirectory() + "/../test_modules/missing.so", "No such file or directory");
    const std::string broken = scratch_.Write("broken.so", "not a library");
    EXPECT_FALSE(Load("Broken", broken));
    ExpectRefusal("Broken", broken, broken + ": file too short");
    EXPECT_FALSE(Load("Nothing", ""));
    EXPECT_EQ(log_.Count("Module 'Nothing'"), 1U);
    const std::string library = BinaryDirectory() + "/../lib/libLum.so";
    EXPECT_FALSE(Load("Library", library));
    ExpectRefusal("Library", library, "it does not export ModuleMain");
}

TEST_F(ModuleHostFiles, DoesNotOpenWhatIsNoRegularFile) {
    const std::string pipe = scratch_ / "pipe.so";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(Load("Pipe", pipe));
    EXPECT_FALSE(Load("Directory", scratch_.Path().string()));
    EXPECT_EQ(log_.Count(": it is not a regular file\n"), 2U);
}

TEST_F(ModuleHostFiles, RefusesANameOrAFileTwice) {
    ASSERT_TRUE(Load("Echo", "Echo.so"));
    EXPECT_FALSE(Load("Other", "Echo.so"));
    EXPECT_FALSE(Load("Echo", "Relay.so"));
    EXPECT_EQ(log_.Count(": a module of that name, or from that file, is loaded already\n"), 2U);
    EXPECT_TRUE(ActionDbIsActionRegistered("EchoBack"));
    EXPECT_FALSE(ActionDbIsActionRegistered("RelayBack"));
}

TEST_F(ModuleHostFiles, LeavesNothingOfAModuleThatFails) {
    EXPECT_FALSE(Load("Refusing", "Refusing.so"));
    ExpectRefusal("Refusing", BinaryDirectory() + "/../test_modules/Refusing.so",
                  "command 3 was answered with 7");
    EXPECT_FALSE(Load("Throwing", "Throwing.so"));
    ExpectRefusal("Throwing", BinaryDirectory() + "/../test_modules/Throwing.so",
                  "command 4 ended with an exception: no threads today");
    EXPECT_FALSE(Load("ThrowingNumber", "ThrowingNumber.so"));
    ExpectRefusal("ThrowingNumber", BinaryDirectory() + "/../test_modules/ThrowingNumber.so",
                  "command 4 ended with an exception");
    EXPECT_TRUE(ActionDbListActions().empty());
    EXPECT_EQ(GetModuleLines(),
              "Refusing command 1\nRefusing command 3\nRefusing command 5\nRefusing command 2\n"
              "Refusing library gone\n"
              "Throwing command 1\nThrowing command 3\nThrowing command 4\nThrowing command 5\n"
              "Throwing command 2\nThrowing library gone\n"
              "ThrowingNumber command 1\nThrowingNumber command 3\nThrowingNumber command 4\n"
              "ThrowingNumber command 5\nThrowingNumber command 2\n"
              "ThrowingNumber library gone\n");
}

}  // namespace
