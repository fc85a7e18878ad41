#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "events/Period.h"
#include "host/container/LumContainer.h"
#include "host/database/Database.h"
#include "host/text/LumString.h"
#include "model/Model.h"
#include "store/EventTable.h"

/// How many events a file holds at most, so that a backlog becomes many small files.
inline constexpr uint32_t kUploadFileEvents = 100;

/// What an upload task covers: from `start`, but never before `last`, up to which the model has been
/// uploaded, to `end`, which for a scheduled upload is cut to the start of the period of `policy` that it
/// lies in. Nothing where that end is not after `last`.
[[nodiscard]] std::optional<EventWindow> UploadWindow(Policy policy, int32_t start, int32_t end,
                                                      bool scheduled, int32_t last);

/// The statement that reads the events of `model` in `window`, in the order that UploadFiles expects of the
/// columns. A constant text of its inputs.
[[nodiscard]] LumString BuildUpload(const Model_t& model, EventWindow window);

/// Turns the rows of the upload statement of one model into the contents of upload files.
class UploadFiles {
public:
    explicit UploadFiles(const Model_t& model);

    /// Fills `file` with the description of the model and up to kUploadFileEvents rows of `rows` from `first`
    /// on, and returns the number of rows it took. Device and group ids are left out where all of them are 0.
    [[nodiscard]] uint32_t Fill(GenSqlResult& rows, uint32_t first, LumContainer& file) const;

private:
    LumContainer description_;
    ParamCells params_;
};

/// Sends the events of one model in a window of time (`end` not included) to the file
/// store, in files of at most kUploadFileEvents, and moves the model's last upload time to the end of the
/// window. With upload switched off, or the model disabled, the time moves all the same and the events are
/// passed over for good.
///
/// The time is stored before the events are read and outside of a transaction, so each event is sent at most
/// once even if the agent dies in between. True where the window was dealt with; false for null and where the
/// database refused. Runs on the processor thread.
bool UploadEvents(const std::shared_ptr<Model_t>& model, LumSeconds start, LumSeconds end, bool scheduled);

/// Queues the upload of everything of one model since its last upload. "Values": "ModelName". Answers 0 once
/// it is queued, 13 for a missing name or an unknown model. May be called from any thread.
uint32_t ActionHandler_EventLogManagerUploadEvents(LumContainer* container);

/// The setting that lets events and alerts go to the Master.
extern std::atomic<bool> UploadEnabled;
