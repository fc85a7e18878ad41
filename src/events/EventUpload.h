#pragma once

#include <cstdint>
#include <memory>

#include "host/lum/Database.h"
#include "host/lum/LumContainer.h"
#include "model/Model.h"

/// How many events a file holds at most, so that a backlog becomes many small files.
inline constexpr uint32_t kUploadFileEvents = 100;

/// What an upload file says of its model: name, checksum, and the names and types of its parameters.
[[nodiscard]] LumContainer DescribeModel(const Model_t& model);

/// Fills `file` with `description` and up to kUploadFileEvents rows of `rows` from `first` on, and returns
/// the number of rows it took. `rows` has the columns of the upload statement. Device and group ids are left
/// out where all of them are 0.
[[nodiscard]] uint32_t FillUploadFile(const Model_t& model, const LumContainer& description,
                                      GenSqlResult& rows, uint32_t first, LumContainer& file);

/// Sends the events of one model in a window of time (seconds since 1970 UTC, `end` not included) to the file
/// store, in files of at most kUploadFileEvents, and moves the model's last upload time to the end of the
/// window. A scheduled window ends at the start of the current period of the model's upload policy. With
/// upload switched off, or the model disabled, the time moves all the same and the events are passed over for
/// good.
///
/// The time is stored before the events are read and outside of a transaction, so each event is sent at most
/// once even if the agent dies in between. True where the window was dealt with; false for null and where the
/// database refused. Runs on the processor thread.
bool UploadEvents(const std::shared_ptr<Model_t>& model, uint32_t start, uint32_t end, bool scheduled);

/// Queues the upload of everything of one model since its last upload. "Values": "ModelName". Answers 0 once
/// it is queued, 13 for a missing name or an unknown model. May be called from any thread.
uint32_t ActionHandler_EventLogManagerUploadEvents(LumContainer* container);
