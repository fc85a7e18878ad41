#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/core/ActionDb.h"
#include "host/time/LumTime.h"
#include "support/LinkedModule.h"

/// The two modules at work in this process: EventLogManager, linked, and FileStore, loaded, initialised on a
/// directory that has config/ and data/.
class ModulePair {
public:
    /// `beforeStart`, where there is one, is called once the modules are there and before they are
    /// initialised.
    explicit ModulePair(const std::filesystem::path& place, const std::function<void()>& beforeStart = {});
    ModulePair(const ModulePair&) = delete;
    ModulePair& operator=(const ModulePair&) = delete;
    ~ModulePair();

    /// Prepares a directory: the shipped settings, and one definition dropped.
    static void Prepare(const std::filesystem::path& place, const ModelText& model);

    /// Each is true where the action answered 0.
    [[nodiscard]] static bool Create(const std::string& model, const std::string& user);
    static bool Alert(const std::string& text);

    /// Uploads and deletes what is before `end`, as the thread of the tasks would.
    static void UploadAndPurge(const std::string& model, LumSeconds end);
    static void RunCycle();

private:
    LinkedModule module_;
    void* library_;
    LumAgentHandle storeHandle_{"FileStore"};
};

/// The users of all events in the outbox of `place`, each with the bytes of the files that it is in. A file
/// without a description is not complete and is passed over.
[[nodiscard]] std::map<std::string, std::vector<std::string>> SentEvents(const std::filesystem::path& place);
