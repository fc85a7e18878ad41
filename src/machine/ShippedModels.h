#pragma once

#include <set>
#include <string>
#include <vector>

#include "host/text/LumString.h"

/// Brings the module's models to the event log: a definition is dropped into `modelsDirectory` (with trailing
/// separator) where no model of its name is registered and none is dropped there already, and then the event
/// log is asked to take it in.
///
/// A model that is missing although it was dropped before was deleted by somebody, and stays deleted:
/// `listPath` keeps the names of what was dropped. Where none of the models is registered the event log is a
/// new one, and the list counts for nothing. Models of which `wanted` does not have the user model are left
/// out.
void BringModels(const LumString& modelsDirectory, const LumString& listPath,
                 const std::vector<const char*>& wanted);
