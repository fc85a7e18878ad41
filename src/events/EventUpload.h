#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

#include "events/Period.h"
#include "events/UploadJournal.h"
#include "host/text/LumString.h"
#include "model/Model.h"

class LumContainer;

/// What an upload task covers: from `start`, but never before `last`, up to which the model has been
/// uploaded, to `end`, which for a scheduled upload is cut to the start of the period of `policy` that it
/// lies in. Nothing where that end is not after `last`.
[[nodiscard]] std::optional<EventWindow> UploadWindow(Policy policy, LumSeconds start, LumSeconds end,
                                                      bool scheduled, LumSeconds last);

/// What upload files are given, for the order in which waiting files are sent on.
inline constexpr int32_t kUploadFilePriority = 100;

/// The statement that reads the events of `model` in `window`, in the order that UploadFiles expects of the
/// columns. A constant text of its inputs.
[[nodiscard]] LumString BuildUpload(const Model_t& model, EventWindow window);

/// The statement that reads up to `limit` of the same events again, from number `first` on, in the same order
/// and without those that have come since: the plus sign keeps the database from looking for them by their
/// id.
[[nodiscard]] LumString BuildUploadRest(const Model_t& model, EventWindow window, const UploadExtent& extent,
                                        uint32_t first, uint32_t limit);

/// Sends the events of one model in a window of time (`end` not included) to the file
/// store, in files of at most kUploadFileEvents, and moves the model's last upload time to the end of the
/// window. With upload switched off, or the model disabled, the time moves all the same and the events are
/// passed over for good.
///
/// The time is stored before the events are read and outside of a transaction; a journal of the window is
/// synced before it. What cannot be handed over, or is cut off by the end of the process, stays in the
/// journal, and ResumeUploads goes on with it: the last file that was handed over may then come once more,
/// byte for byte the same, and no other. A window whose events cannot be read, while the time could be
/// stored, is tried again as long as the process lives, and not by the next one.
///
/// True where the window was dealt with; false for null, where the database refused, and where the journal
/// could not be written, which leaves the window to the next cycle. Runs on the processor thread.
bool UploadEvents(const std::shared_ptr<Model_t>& model, LumSeconds start, LumSeconds end, bool scheduled);

/// Goes on with every upload that is under way, as far as it comes. Runs on the processor thread, once a
/// cycle, before any task.
void ResumeUploads();

/// Queues the upload of everything of one model since its last upload. "Values": "ModelName". Answers 0 once
/// it is queued, 13 for a missing name or an unknown model. May be called from any thread.
uint32_t ActionHandler_EventLogManagerUploadEvents(LumContainer* container);

/// The setting that lets events and alerts go to the Master.
extern std::atomic<bool> UploadEnabled;
