#pragma once

#include <cstdint>
#include <optional>

#include "host/container/LumContainer.h"
#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// How the hand-over of a file went. What went wrong is in the log.
enum class FileStoreOutcome : uint8_t {
    kDone,      ///< the store has it
    kNotMade,   ///< there is no file: it could not be written
    kNotTaken,  ///< there is no store, or it could not take the file, which is where it was
};

/// Saves `content` as a container file and hands the file to the file store: type and label are `kind`, name
/// and checksum are the store's to derive, the file is to be sent on, with `priority` where one is given.
/// `path` is where a file that was not taken lies; it is the caller's. May be called from any thread.
[[nodiscard]] LUM_API FileStoreOutcome FileStoreHandOver(const LumContainer& content, const char* kind,
                                                         std::optional<int32_t> priority, LumString& path);

/// The same for a container file that is there already.
[[nodiscard]] LUM_API FileStoreOutcome FileStoreHandOverFile(const LumString& path, const char* kind,
                                                             std::optional<int32_t> priority);

/// True where some module takes files over.
[[nodiscard]] LUM_API bool FileStoreIsThere();
