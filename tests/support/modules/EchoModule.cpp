#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "host/core/ActionDb.h"
#include "host/core/LumAgent.h"
#include "host/core/ModuleInterface.h"
#include "host/log/LumDebug.h"

/// A module for tests, built several times under different names (ECHO_NAME). Every action's name begins with
/// the module's; the names "Refusing", "Throwing", "ThrowingNumber", "Mute" and "Slow" misbehave as they say.

namespace {

constexpr std::string_view kName = ECHO_NAME;

LumDebug moduleDebug(ECHO_NAME, "A module for tests");

/// Says in the log that the library has really left the process.
struct Farewell {
    Farewell() = default;
    Farewell(const Farewell&) = delete;
    Farewell& operator=(const Farewell&) = delete;
    ~Farewell() { moduleDebug.PrintWithNL("library gone"); }
} farewell;

uint32_t Back(LumContainer* /*container*/) {
    return 0;
}

uint32_t Status(LumContainer* container) {
    uint32_t status = 0;
    static_cast<void>(container->GetInt32("Status", status));
    container->Clear();
    return status;
}

uint32_t Sleep(LumContainer* container) {
    uint32_t milliseconds = 0;
    static_cast<void>(container->GetInt32("Milliseconds", milliseconds));
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    return 0;
}

uint32_t Throw(LumContainer* /*container*/) {
    throw std::runtime_error("thrown on purpose");
}

uint32_t ThrowNumber(LumContainer* /*container*/) {
    throw 42;
}

uint32_t Log(LumContainer* container) {
    LumString text;
    static_cast<void>(container->GetString("Text", text));
    moduleDebug.PrintWithNL("%S", text);
    return 0;
}

/// Answers "Count" texts of 1024 bytes.
uint32_t Fill(LumContainer* container) {
    uint32_t count = 0;
    static_cast<void>(container->GetInt32("Count", count));
    container->Clear();
    const LumString text(std::string(1024, 'x'));
    for (uint32_t i = 0; i < count; ++i) {
        container->SetString("Texts", text, i);
    }
    return 0;
}

/// Returns once "Count" calls are in here together.
uint32_t Meet(LumContainer* container) {
    static std::mutex mutex;
    static std::condition_variable changed;
    static uint32_t present = 0;
    uint32_t count = 0;
    static_cast<void>(container->GetInt32("Count", count));
    std::unique_lock<std::mutex> guard(mutex);
    ++present;
    changed.notify_all();
    const bool met = changed.wait_for(guard, std::chrono::seconds(20), [count] { return present >= count; });
    return met ? 0 : 1;
}

std::vector<int> heldDescriptors;

/// Takes every descriptor that the process may still have.
uint32_t HoldDescriptors(LumContainer* /*container*/) {
    for (int descriptor = 0; descriptor >= 0;) {
        descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (descriptor >= 0) {
            heldDescriptors.push_back(descriptor);
        }
    }
    return 0;
}

uint32_t ReleaseDescriptors(LumContainer* /*container*/) {
    for (const int descriptor : heldDescriptors) {
        ::close(descriptor);
    }
    heldDescriptors.clear();
    return 0;
}

/// Takes all the memory that the process may have, for "Milliseconds".
uint32_t HoldMemory(LumContainer* container) {
    uint32_t milliseconds = 0;
    static_cast<void>(container->GetInt32("Milliseconds", milliseconds));
    std::vector<std::unique_ptr<char[]>> held;
    held.reserve(100'000);
    for (std::size_t size = std::size_t{16} << 20U; size >= 64;) {
        std::unique_ptr<char[]> block(new (std::nothrow) char[size]);
        if (block != nullptr && held.size() < held.capacity()) {
            held.push_back(std::move(block));
        } else {
            size /= 2;
        }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    return 0;
}

void Register(void* handle) {
    moduleDebug.SetContext(LumAgentGetDebugContext(handle));
    const struct {
        const char* signature;
        ActionHandler handler;
    } actions[] = {{"Back (container Values)", Back},
                   {"Status (container Values)", Status},
                   {"Sleep (container Values)", Sleep},
                   {"Throw ()", Throw},
                   {"ThrowNumber ()", ThrowNumber},
                   {"Log (container Values)", Log},
                   {"Fill (container Values)", Fill},
                   {"Meet (container Values)", Meet},
                   {"HoldDescriptors ()", HoldDescriptors},
                   {"ReleaseDescriptors ()", ReleaseDescriptors},
                   {"HoldMemory (container Values)", HoldMemory}};
    for (const auto& action : actions) {
        ActionDbRegisterAction(LumString(kName) + action.signature, action.handler, handle);
    }
}

uint32_t Initialise() {
    if (kName == "Slow") {
        LumString go;
        LumAgentGetConfigDir(go);
        go += "go";
        while (::access(go.GetString(), F_OK) != 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    return kName == "Refusing" ? 7 : kLumModuleDone;
}

/// What a module still does while it stops reaches the modules that were loaded before it.
void SayThatItStops() {
    LumContainer arguments;
    arguments.SetString("Text", LumString(kName) + " stops");
    ActionDbInvokeContainer(nullptr, "", "EchoLog", arguments, nullptr, 0xFFFFFFFF, 0xFFFFFFFF, false);
}

void CopyText(const std::string& text, void* buffer) {
    for (std::size_t i = 0; i <= text.size(); ++i) {
        static_cast<wchar_t*>(buffer)[i] = static_cast<wchar_t>(text.c_str()[i]);
    }
}

}  // namespace

extern "C" __attribute__((visibility("default"))) uint32_t ModuleMain(uint32_t command, uint32_t /*word*/,
                                                                      void* pointer) {
    const auto known = static_cast<LumModuleCommand>(command);
    if (known == LumModuleCommand::kRegister) {
        Register(pointer);
    }
    moduleDebug.PrintWithNL("command %u", command);
    switch (known) {
        case LumModuleCommand::kInitialise:
            return Initialise();
        case LumModuleCommand::kActivate:
            if (kName == "Throwing") {
                throw std::runtime_error("no threads today");
            }
            if (kName == "ThrowingNumber") {
                throw 42;
            }
            return kLumModuleDone;
        case LumModuleCommand::kCleanup:
            SayThatItStops();
            return kLumModuleDone;
        case LumModuleCommand::kGetDescription:
            if (kName == "Mute") {
                return kLumModuleUnknownCommand;
            }
            CopyText(std::string(kName) + " module for tests", pointer);
            return kLumModuleDone;
        case LumModuleCommand::kGetVersion:
            CopyText("1.2.3", pointer);
            return kLumModuleDone;
        default:
            return kLumModuleDone;
    }
}
