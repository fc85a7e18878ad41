#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "model/Model.h"
#include "support/TestAgent.h"
#include "tasks/Task.h"

/// The module linked into the test's own program, so that a test can reach its rooms. What the module keeps
/// for as long as it is loaded is made anew at the end, as unloading and loading it would: each test finds it
/// fresh.
class LinkedModule : public TestAgent {
public:
    /// Registers the module's actions.
    LinkedModule();
    /// On a machine that is there already: `place` has config/ and data/.
    explicit LinkedModule(std::filesystem::path place);
    LinkedModule(const LinkedModule&) = delete;
    LinkedModule& operator=(const LinkedModule&) = delete;
    /// Ends the module's threads.
    ~LinkedModule();

    static void Initialise();
    /// Starts and ends the module's threads.
    static void Activate();
    static void CleanUp();
    /// Initialises the module with a definition dropped, so that the model is registered.
    void StartWith(const ModelText& model) const;
    /// Has errors stay lines, without an alert for each.
    static void KeepErrorsFromAlerts();

    /// Registers a model and files it in the collection.
    static std::shared_ptr<Model_t> Add(const ModelText& text);
    /// Takes every task out of the queue.
    static std::vector<std::unique_ptr<Task_t>> TakeTasks();
};

/// While it lives, this thread has taken DatabaseMutex as often as it may and cannot take it once more.
class DatabaseLockout {
public:
    DatabaseLockout();
    DatabaseLockout(const DatabaseLockout&) = delete;
    DatabaseLockout& operator=(const DatabaseLockout&) = delete;
    ~DatabaseLockout();

private:
    uint32_t taken_ = 0;
};
