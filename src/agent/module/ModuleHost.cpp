#include "agent/module/ModuleHost.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>

#include <dlfcn.h>
#include <sys/stat.h>

#include "agent/module/FileTrust.h"
#include "agent/module/ModuleNote.h"
#include "host/text/LumSystemError.h"

namespace {

struct CloseLibrary {
    void operator()(void* library) const { ::dlclose(library); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

LumString PathOf(const LumString& file, const LumString& moduleDirectory) {
    return !file.IsEmpty() && file.View().front() == '/' ? file : moduleDirectory + "/" + file;
}

/// Opening a pipe would wait for its other end, so what is not a regular file is not opened at all; nor is
/// what others could change, because it would run as the agent.
bool IsLoadable(const LumString& path, LumString& error) {
    struct stat status = {};
    if (::stat(path.GetString(), &status) != 0) {
        error = LumSystemErrorText();
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        error = "it is not a regular file";
        return false;
    }
    const std::string directory = std::filesystem::path(path.View()).parent_path().string();
    return IsTrustworthy(LumString(std::string_view(directory)), error) && IsTrustworthy(path, error);
}

}  // namespace

struct ModuleHost::Module {
    LumAgentHandle handle;
    LumString path;
    Library library;
    LumModuleMain main = nullptr;
    LumString description;
    LumString version;

    /// Runs one command. False, with the reason in `error`, for any answer but "done", and for a module that
    /// throws.
    [[nodiscard]] bool Run(LumModuleCommand command, void* pointer, LumString& error) const {
        const auto number = static_cast<uint32_t>(command);
        try {
            const uint32_t answer = main(number, 0, pointer);
            if (answer == kLumModuleDone) {
                return true;
            }
            error.Printf("command %u was answered with %u", number, answer);
        } catch (const std::exception& exception) {
            error.Printf("command %u ended with an exception: %s", number, exception.what());
        } catch (...) {
            error.Printf("command %u ended with an exception", number);
        }
        return false;
    }

    /// The answer to one of the two commands that ask for a text; empty where the module has none.
    [[nodiscard]] LumString Ask(LumModuleCommand command) const {
        std::array<wchar_t, kLumModuleTextLength> buffer = {};
        LumString error;
        LumString text;
        if (Run(command, buffer.data(), error)) {
            buffer.back() = L'\0';
            text.SetToTCHAR(buffer.data());
        }
        return text;
    }
};

ModuleHost::ModuleHost(LumDebug& debug) : debug_(debug) {}

ModuleHost::~ModuleHost() {
    UnloadAll();
}

bool ModuleHost::Load(const LumString& name, const LumString& file, const LumString& moduleDirectory) {
    auto module = std::make_unique<Module>();
    module->handle.moduleName = name;
    module->path = PathOf(file, moduleDirectory);
    LumString error;
    if (!Open(*module, error) || !Start(*module, error)) {
        LumString failure;
        failure.Printf("Module '%S' is not loaded from %S: %S", name, module->path, error);
        debug_.ErrorWithNL("%S", failure);
        failures_.push_back(failure + ".");
        return false;
    }
    module->description = module->Ask(LumModuleCommand::kGetDescription);
    module->version = module->Ask(LumModuleCommand::kGetVersion);
    debug_.PrintWithNL("Module '%S' is active: %S, version %S", name, module->path, module->version);
    modules_.push_back(std::move(module));
    return true;
}

bool ModuleHost::Open(Module& module, LumString& error) const {
    if (!IsLoadable(module.path, error)) {
        return false;
    }
    uint32_t interface = kLumModuleInterface;
    if (ReadModuleInterface(module.path, interface) && interface != kLumModuleInterface) {
        error.Printf("it was built for version %u of the module interface, and this agent has version %u",
                     interface, kLumModuleInterface);
        return false;
    }
    module.library.reset(::dlopen(module.path.GetString(), RTLD_NOW | RTLD_LOCAL));
    if (module.library == nullptr) {
        error = ::dlerror();
        return false;
    }
    const auto isTaken = [&module](const std::unique_ptr<Module>& other) {
        return other->library == module.library || other->handle.moduleName == module.handle.moduleName;
    };
    if (std::any_of(modules_.begin(), modules_.end(), isTaken)) {
        error = "a module of that name, or from that file, is loaded already";
        return false;
    }
    module.main = reinterpret_cast<LumModuleMain>(::dlsym(module.library.get(), kLumModuleEntryPoint));
    if (module.main == nullptr) {
        error.Printf("it does not export %s", kLumModuleEntryPoint);
        return false;
    }
    return true;
}

bool ModuleHost::Start(Module& module, LumString& error) {
    if (!module.Run(LumModuleCommand::kRegister, &module.handle, error)) {
        End(module, false);
        return false;
    }
    if (!module.Run(LumModuleCommand::kInitialise, nullptr, error) ||
        !module.Run(LumModuleCommand::kActivate, nullptr, error)) {
        End(module, true);
        return false;
    }
    return true;
}

void ModuleHost::End(Module& module, bool wasInitialised) {
    // Whatever a module answers now, the end goes on.
    LumString ignored;
    if (wasInitialised) {
        static_cast<void>(module.Run(LumModuleCommand::kCleanup, nullptr, ignored));
    }
    static_cast<void>(module.Run(LumModuleCommand::kUnregister, nullptr, ignored));
    ActionDbUnregisterModule(&module.handle);
}

void ModuleHost::UnloadAll() {
    while (!modules_.empty()) {
        const std::unique_ptr<Module> module = std::move(modules_.back());
        modules_.pop_back();
        End(*module, true);
        const LumString name = module->handle.moduleName;
        module->library.reset();
        debug_.PrintWithNL("Module '%S' is unloaded", name);
    }
}

std::vector<ModuleInfo> ModuleHost::ListModules() const {
    std::vector<ModuleInfo> list;
    for (const std::unique_ptr<Module>& module : modules_) {
        list.push_back({module->handle.moduleName, module->path, module->description, module->version});
    }
    return list;
}
