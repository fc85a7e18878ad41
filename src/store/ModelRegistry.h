#pragma once

#include <memory>
#include <vector>

#include "host/text/LumString.h"
#include "host/thread/LumMutex.h"
#include "model/Model.h"
#include "store/EventTable.h"

/// The registry keeps three things in step: the database (a row in RegisteredModel and an event table for
/// each model), the models directory (dropped definition files, and the filed ones of registered models) and
/// ModelCollection.
///
/// Every operation may be called from any thread; each says its failures in the log, and holds RegistryMutex
/// as a whole, so that a model that is taken in and one that is removed never meet half-way. DatabaseMutex is
/// taken inside it, over statements alone.

/// The first of the module's locks: DatabaseMutex may be taken while it is held, never the other way round
/// but by a start, which holds both from the beginning.
extern LumMutex RegistryMutex;

/// A registered model that memory does not have, because its definition could not be loaded.
struct UnloadedModel {
    RegisteredRow row;
    bool wasReadable = false;  ///< its files were read, so reading them again would change nothing
};
/// These models, as the last LoadRegisteredModels and what was dropped since have left them. RegistryMutex is
/// to be held.
extern std::vector<UnloadedModel> UnloadedModels;

/// Loads each model of the table RegisteredModel from its filed definition. True where the table was read,
/// even if some definition was not. Until then the health of the agent says that it was not.
bool LoadRegisteredModels();

/// Loads the definition filed under a name and a checksum. True where one was loaded; else `model` is of no
/// use, and `isPassing`, unless that is null, is set where another reading could do better.
[[nodiscard]] bool LoadRegisteredModel(const LumString& name, const LumString& checksum,
                                       std::shared_ptr<Model_t>& model, bool* isPassing = nullptr);

/// Loads the model of one row and files it in the collection with what the row says of it; where that fails
/// it is one of UnloadedModels.
void LoadRow(const RegisteredRow& row);

/// Loads what could not be read before and can be now, a descriptor, a disk or memory having failed
/// meanwhile, and what was dropped for want of it. True where something was loaded: then it is to be checked
/// anew.
bool LoadWhatCanBeReadAgain();

/// Takes in the definition files that were dropped into the models directory: a new model is registered, a
/// known one is replaced by an equal definition, one that is registered without a filed definition gets the
/// equal one, and the file is filed. What cannot be taken in stays where it is, and with `mayStop` so does
/// the rest once the agent is to stop. True unless the directory cannot be opened.
bool LoadUnregisteredModels(bool mayStop = true);

/// Makes the event table, its indexes and the registry row of a model, all or nothing. False for null.
[[nodiscard]] bool RegisterModel(const std::shared_ptr<Model_t>& model);

/// Removes table, row and filed definition of a model; the model stays in memory. False for null, and where
/// the database refuses, which leaves everything as it was.
[[nodiscard]] bool UnregisterModel(const std::shared_ptr<Model_t>& model);

/// Removes the model called `name` from database, disk and memory. May be called while DatabaseMutex is held
/// by a start, which holds RegistryMutex too.
bool RemoveRegisteredModel(const LumString& name);
