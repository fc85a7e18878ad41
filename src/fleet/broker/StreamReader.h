#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fleet/broker/Broker.h"

/// Takes messages of a stream through its shared consumer. Uses the broker it was opened on, which must
/// outlive it. One thread at a time.
class StreamReader {
public:
    struct Handle;

    StreamReader();
    StreamReader(const StreamReader&) = delete;
    StreamReader& operator=(const StreamReader&) = delete;
    ~StreamReader();

    [[nodiscard]] bool Open(Broker& broker, const std::string& stream, const std::string& consumer,
                            std::string& error);
    void Close();

    /// Appends up to `limit` messages of together at most about `maxBytes` to `messages`, or one that is
    /// larger; waits up to `waitMs` for as many. True also where nothing comes within that time. False, with
    /// the reason in `error`, where the stream cannot be read.
    [[nodiscard]] bool Fetch(std::size_t limit, int64_t maxBytes, int64_t waitMs,
                             std::vector<BrokerMessage>& messages, std::string& error);

private:
    std::unique_ptr<Handle> handle_;
};
