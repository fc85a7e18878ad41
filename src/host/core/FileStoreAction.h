#pragma once

#include <cstdint>
#include <optional>

#include "host/container/LumContainer.h"
#include "host/text/LumApi.h"

/// Saves `content` as a container file and hands the file to the file store: type and label are `kind`, name
/// and checksum are the store's to derive, the file is to be sent on, with `priority` where one is given.
/// Nothing tells the caller whether it arrived: what goes wrong is in the log. May be called from any thread.
LUM_API void FileStoreHandOver(const LumContainer& content, const char* kind,
                               std::optional<int32_t> priority);
