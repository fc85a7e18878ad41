#pragma once

#include <memory>

#include "host/text/LumString.h"
#include "model/Model.h"

/// The registry keeps three things in step: the database (a row in RegisteredModel and an event table for
/// each model), the models directory (dropped definition files, and the filed ones of registered models) and
/// ModelCollection.
///
/// Every operation may be called from any thread; each says its failures in the log. A model is taken in or
/// removed under DatabaseMutex as a whole, so that the three stay in step; the collection's lock is only ever
/// taken inside it.

/// Loads each model of the table RegisteredModel from its filed definition. True where the table was read,
/// even if some definition was not.
bool LoadRegisteredModels();

/// Loads the definition filed under a name and a checksum. True where one was loaded; else `model` is of no
/// use.
[[nodiscard]] bool LoadRegisteredModel(const LumString& name, const LumString& checksum,
                                       std::shared_ptr<Model_t>& model);

/// Takes in the definition files that were dropped into the models directory: a new model is registered, a
/// known one is replaced by an equal definition, and the file is filed. What cannot be taken in stays where
/// it is. True unless the directory cannot be opened.
bool LoadUnregisteredModels();

/// Makes the event table, its indexes and the registry row of a model, all or nothing. False for null.
[[nodiscard]] bool RegisterModel(const std::shared_ptr<Model_t>& model);

/// Removes table, row and filed definition of a model; the model stays in memory. False for null, and where
/// the database refuses, which leaves everything as it was.
[[nodiscard]] bool UnregisterModel(const std::shared_ptr<Model_t>& model);

/// Removes the model called `name` from database, disk and memory. May be called while DatabaseMutex is held.
bool RemoveRegisteredModel(const LumString& name);
