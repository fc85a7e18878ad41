#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/container/LumContainer.h"
#include "host/text/LumString.h"

/// One thing that happened on this machine, as an event of one of the module's models.
struct MachineEvent {
    const char* model = nullptr;  ///< a literal
    LumContainer params;          ///< what "EventParams" takes
    uint64_t record = 0;          ///< which record of the source it is (RecordId.h); 0 for a measurement
};

/// What one reading of a source gave.
struct SourceBatch {
    std::vector<MachineEvent> events;
    std::string position;  ///< where to go on once the events are stored
    bool more = false;     ///< there is more to be read at once
    /// More of what is there already is on its way: the descriptor tells when it can be read.
    bool awaitsMore = false;
    /// The position no longer leads anywhere (the log was replaced, say), so the source begins anew and gives
    /// again what it gave before: the store has to say which of it is known.
    bool begunAnew = false;
};

/// Something that events come from. It answers one question, "what is new since this position?", and keeps
/// nothing that it could not find again from the position: that one is kept by the caller, with the events.
/// An object belongs to one thread at a time.
class Source {
public:
    virtual ~Source() = default;

    /// The section of the ini file that the source is set in; also names the file of its position.
    [[nodiscard]] virtual const char* GetName() const = 0;
    /// The models whose events the source gives.
    [[nodiscard]] virtual std::vector<const char*> GetModels() const = 0;

    /// Looks for what is read. False, with a sentence in `error`, where it is not there; the caller asks
    /// again later. A source that is open is opened anew.
    [[nodiscard]] virtual bool Open(LumString& error) = 0;

    /// Reads on from `position` (empty: from the oldest that is wanted), about `limit` events at most. False,
    /// with a sentence in `error`, where the source has gone: it has to be opened anew.
    [[nodiscard]] virtual bool ReadSince(const std::string& position, std::size_t limit, SourceBatch& batch,
                                         LumString& error) = 0;

    /// A descriptor that is readable once there may be something new; -1 where there is none.
    [[nodiscard]] virtual int GetDescriptor() const { return -1; }
    /// After how many milliseconds ReadSince is to be called even if the descriptor stays silent.
    [[nodiscard]] virtual uint32_t GetWaitMs() const = 0;
};
