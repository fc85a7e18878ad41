#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include <dlfcn.h>
#include <stdlib.h>

#include "BuildPaths.h"
#include "contract/FileStore.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"
#include "host/core/FileStoreAction.h"
#include "host/core/LumAgent.h"
#include "host/core/ModuleInterface.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"

/// Ends the program where `holds` is false.
inline void Require(bool holds, const std::string& what) {
    if (!holds) {
        std::fprintf(stderr, "failed: %s\n", what.c_str());
        std::exit(1);
    }
}

/// Agent directories of the program's own, with the shipped settings in them.
class AgentDirectories {
public:
    AgentDirectories() {
        char path[] = "/tmp/lumfault.XXXXXX";
        Require(::mkdtemp(path) != nullptr, "make a scratch directory");
        path_ = path;
        std::filesystem::create_directories(path_ + "/config");
        std::filesystem::copy_file(LUM_SOURCE_DIR "/etc/EventLogManager.ini",
                                   path_ + "/config/EventLogManager.ini");
        LumString error;
        const LumAgentOptions options{LumString((path_ + "/config").c_str()),
                                      LumString((path_ + "/data").c_str())};
        Require(LumAgentSetUp(options, error), error.GetString());
        Require(log_.OpenFile(LumString((path_ + "/log").c_str()), std::size_t{64} << 20U, 1, error),
                error.GetString());
    }
    AgentDirectories(const AgentDirectories&) = delete;
    AgentDirectories& operator=(const AgentDirectories&) = delete;
    ~AgentDirectories() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] std::string Path(const std::string& name) const { return path_ + "/" + name; }

    /// Drops a shipped definition into the models directory.
    void Drop(const std::string& model) const {
        const std::string models = path_ + "/data/EventLogManager/models";
        std::filesystem::create_directories(models);
        const LumString from((LUM_SOURCE_DIR "/etc/models/" + model + ".xml").c_str());
        Require(FileCopy(from, LumString((models + "/" + model + ".xml").c_str()), false), "drop " + model);
    }

private:
    std::string path_;
    LumDebugContext log_;
};

/// EventLogManager.so, loaded as the agent does it.
class LoadedModule {
public:
    LoadedModule() : library_(::dlopen(kPath, RTLD_NOW | RTLD_LOCAL)) {
        Require(library_ != nullptr, "load the module");
        main_ = reinterpret_cast<LumModuleMain>(::dlsym(library_, kLumModuleEntryPoint));
        Require(main_ != nullptr, "find ModuleMain");
    }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;
    ~LoadedModule() {
        ActionDbUnregisterModule(&handle_);
        ::dlclose(library_);
    }

    void Run(LumModuleCommand command) {
        Require(main_(static_cast<uint32_t>(command), 0, &handle_) == kLumModuleDone, "run a command");
    }

    [[nodiscard]] static bool IsInMemory() {
        void* const library = ::dlopen(kPath, RTLD_NOW | RTLD_NOLOAD);
        if (library != nullptr) {
            ::dlclose(library);
        }
        return library != nullptr;
    }

private:
    static constexpr const char* kPath = LUM_BINARY_DIR "/modules/EventLogManager.so";

    LumAgentHandle handle_{"EventLogManager"};
    void* const library_;
    LumModuleMain main_ = nullptr;
};

/// Calls an action with `arguments` as JSON; its status.
inline uint32_t CallActionWith(const char* name, const std::string& arguments) {
    LumContainer container;
    LumString error;
    Require(container.FromJson(arguments, error), error.GetString());
    uint32_t status = 0;
    Require(ActionDbCallAction(name, container, status), std::string("find ") + name);
    return status;
}

/// The same with the JSON of "Values" alone, as most actions have nothing else.
inline uint32_t CallAction(const char* name, const std::string& values) {
    return CallActionWith(name, "{\"Values\":" + values + "}");
}
