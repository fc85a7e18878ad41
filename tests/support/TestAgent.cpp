#include "support/TestAgent.h"

#include <stdexcept>
#include <utility>

#include "BuildPaths.h"
#include "host/container/LumContainer.h"
#include "host/core/LumAgent.h"
#include "host/log/LumDebug.h"

namespace {

constexpr std::size_t kMaxLogBytes = std::size_t{64} << 20U;

std::string Quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

}  // namespace

void Require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

std::string Shipped(const std::string& name) {
    return ReadWholeFile(LUM_SOURCE_DIR "/etc/" + name);
}

TestAgent::TestAgent() : scratch_(std::in_place), directory_(scratch_->Path()) {
    directory_.Write(kIni, Shipped("EventLogManager.ini"));
    directory_.MakeDirectory(kModels);
    SetUp();
}

TestAgent::TestAgent(std::filesystem::path place) : directory_(std::move(place)) {
    SetUp();
}

void TestAgent::SetUp() const {
    LumString error;
    Require(LumAgentSetUp({directory_.At("config"), directory_.At("data")}, error), error.GetString());
    LumDebugContext& log = *LumAgentGetDebugContext(nullptr);
    log.SetLevel(LumLogLevel::kTrace);
    Require(log.OpenFile(directory_.At("log"), kMaxLogBytes, 1, error), error.GetString());
    LumHostDebug().SetContext(&log);
}

void TestAgent::Command(LumModuleMain main, LumModuleCommand command, void* pointer) {
    Require(main(static_cast<uint32_t>(command), 0, pointer) == kLumModuleDone,
            "the module does not know a command");
}

void TestAgent::Drop(std::string_view fileName, std::string_view definition) const {
    directory_.Write(std::string(kModels) + "/" + std::string(fileName), definition);
}

TestAgent::Answer TestAgent::Call(const std::string& action, std::string_view arguments) {
    LumContainer container;
    LumString error;
    Require(container.FromJson(arguments, error), error.GetString());
    Answer answer{};
    Require(ActionDbCallAction(action.c_str(), container, answer.status), "no such action: " + action);
    answer.container = container.ToJson();
    return answer;
}

uint32_t TestAgent::CallWith(const std::string& action, std::string_view values) {
    return Call(action, R"({"Values":)" + std::string(values) + "}").status;
}

uint32_t TestAgent::Create(std::string_view model, std::string_view params) {
    return CallWith("EventLogManagerCreateEvent",
                    R"({"ModelName":)" + Quoted(model) + R"(,"EventParams":)" + std::string(params) + "}");
}

TestAgent::Answer TestAgent::Query(std::string_view values) {
    return Call("EventLogManagerGetEvents", R"({"Values":)" + std::string(values) + "}");
}
