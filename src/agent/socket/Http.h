#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "agent/socket/Client.h"

/// Requests and answers of the control socket, without the way that they come and go.

struct ClientRequest {
    std::string_view method;
    std::string_view target;  ///< as it stands, percent-encoded
    std::string_view body;
    const Client& client;
};

/// The answer to one request. `allow` names the methods of the path after a 405 and is empty otherwise.
struct HttpAnswer {
    unsigned status = 200;
    std::string body;
    std::string_view allow;
    std::string_view contentType = "application/json";
};

/// An answer {"error": "<sentence>"}.
[[nodiscard]] HttpAnswer MakeErrorAnswer(unsigned status, std::string_view sentence);

/// Where a request is answered.
enum class RequestKind {
    kImmediate,  ///< at once, on the thread of all connections
    kObserving,  ///< looks around; on a thread of its own, so that it never waits for actions
    kAction,     ///< runs an action, on a thread of the pool
    kBatch,      ///< runs an action for each line of a body without end, on threads of the pool
};

/// The lines of one batch request. Belongs to one thread at a time.
class BatchStream {
public:
    virtual ~BatchStream() = default;

    /// Takes further bytes of the body over; without `isLast` more may come.
    virtual void Take(std::string_view bytes, bool isLast) = 0;
    /// Calls the action for the lines that are whole by now, until their answers have some length, and
    /// appends the answers to `answers`. True where whole lines are left: then it is to be called again.
    [[nodiscard]] virtual bool Work(std::string& answers) = 0;
    /// How many bytes it holds.
    [[nodiscard]] virtual std::size_t GetHeld() const = 0;
};
