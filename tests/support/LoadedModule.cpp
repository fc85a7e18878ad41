#include "support/LoadedModule.h"

#include <utility>

#include <dlfcn.h>

#include "BuildPaths.h"

namespace {

constexpr const char* kPath = LUM_BINARY_DIR "/modules/EventLogManager.so";

}  // namespace

LoadedModule::~LoadedModule() {
    if (library_ != nullptr) {
        Stop();
    }
}

void LoadedModule::Load() {
    library_ = ::dlopen(kPath, RTLD_NOW | RTLD_LOCAL);
    Require(library_ != nullptr, std::string("the module cannot be loaded: ") + kPath);
    main_ = reinterpret_cast<LumModuleMain>(::dlsym(library_, kLumModuleEntryPoint));
    Require(main_ != nullptr, "the module has no entry point");
    Command(main_, LumModuleCommand::kRegister, &handle_);
}

void LoadedModule::Unload() {
    Command(main_, LumModuleCommand::kUnregister);
    ActionDbUnregisterModule(&handle_);
    ::dlclose(std::exchange(library_, nullptr));
    Require(!IsInMemory(), "the module stays loaded");
}

void LoadedModule::Start() {
    Load();
    Initialise();
}

void LoadedModule::Stop() {
    CleanUp();
    Unload();
}

bool LoadedModule::IsInMemory() {
    void* const library = ::dlopen(kPath, RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr) {
        ::dlclose(library);
    }
    return library != nullptr;
}
