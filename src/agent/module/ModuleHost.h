#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "host/core/ActionDb.h"
#include "host/core/ModuleInterface.h"
#include "host/log/LumDebug.h"
#include "host/text/LumString.h"

/// What a module says of itself.
struct ModuleInfo {
    LumString name;
    LumString file;  ///< the path that it was loaded from
    LumString description;
    LumString version;
};

/// Loads modules and drives them through their life. All operations belong to one thread.
class ModuleHost {
public:
    /// `debug` must outlive the host.
    explicit ModuleHost(LumDebug& debug);
    ModuleHost(const ModuleHost&) = delete;
    ModuleHost& operator=(const ModuleHost&) = delete;
    ~ModuleHost();

    /// Loads the module and registers, initialises and activates it. False, with one error line that names
    /// the file and the reason and nothing of the module left, where that fails. `file` is absolute or
    /// relative to `moduleDirectory`.
    bool Load(const LumString& name, const LumString& file, const LumString& moduleDirectory);

    /// Ends all modules in reverse order: clean-up, unregistration, its actions leave the registry, unload.
    void UnloadAll();

    /// A sentence for each module that could not be loaded.
    [[nodiscard]] const std::vector<LumString>& GetFailures() const { return failures_; }

    /// The loaded modules in order of loading.
    [[nodiscard]] std::vector<ModuleInfo> ListModules() const;

private:
    struct Module;

    [[nodiscard]] bool Open(Module& module, LumString& error) const;
    [[nodiscard]] static bool Start(Module& module, LumString& error);
    static void End(Module& module, bool wasInitialised);

    LumDebug& debug_;
    std::vector<std::unique_ptr<Module>> modules_;
    std::vector<LumString> failures_;
};
