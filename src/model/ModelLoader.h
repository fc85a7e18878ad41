#pragma once

#include <memory>

#include "host/text/LumString.h"
#include "model/Model.h"

/// Reads one definition file, checks it element by element and makes a model of it, checksum included.
/// Touches neither the database nor ModelCollection. May be called from any thread.
///
/// False on any failure, told by one line of the module's log (by the host's where the file is not an XML
/// document): a warning where an element of the model itself is missing or unknown, and then `model` is
/// untouched; an error for its parameters, and then `model` is null. Where memory ran out, or the file could
/// not be read, `isPassing` is set too, unless that is null: the file may be as good as any.
[[nodiscard]] bool LoadModel(const LumString& path, std::shared_ptr<Model_t>& model,
                             bool* isPassing = nullptr);
