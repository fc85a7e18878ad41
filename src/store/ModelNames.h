#pragma once

#include "host/database/Database.h"
#include "host/log/LumDebug.h"
#include "model/Model.h"

/// What a model may be called and what its parameters may be. A name goes into SQL texts and paths as it
/// stands; a parameter's is a key beside those that answers and files have of themselves; and the upgrades
/// take some names of tables for themselves.

/// True where all names of the model may be used; else `routine` says in an error line which may not. What
/// is registered is looked up on `connection`, with DatabaseMutex held by the caller.
[[nodiscard]] bool NamesAreUsable(const Model_t& model, DBConnection& connection, const LumRoutine& routine);
