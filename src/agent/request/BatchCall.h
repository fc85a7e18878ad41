#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/request/ActionCall.h"
#include "agent/socket/Http.h"

/// A batch: JSON lines in, one argument container each, and for each an answer line in the same order,
/// {"line":n,"status":...,"container":...} or {"line":n,"error":"<sentence>"}. Lines are counted from 1; an
/// empty one is counted and has no answer. What the calls of one turn change becomes durable by one sync,
/// before any of their answers leaves.
class BatchCall : public BatchStream {
public:
    /// A longer line is answered with an error and not called.
    static constexpr std::size_t kMaxLine = std::size_t{16} << 20U;
    /// Work stops when the answers of one turn have this length.
    static constexpr std::size_t kTurn = std::size_t{256} << 10U;

    /// With `explain` each answer has the messages of its call.
    explicit BatchCall(std::unique_ptr<ActionCall> call, bool explain = false)
        : call_(std::move(call)), explain_(explain) {}

    void Take(std::string_view bytes, bool isLast) override;
    [[nodiscard]] bool Work(std::string& answers) override;
    [[nodiscard]] std::size_t GetHeld() const override { return pending_.capacity(); }

private:
    /// What became of one line.
    struct Answer {
        uint64_t line;
        std::string_view text;  ///< the line, within what is pending
        ActionResult result;
        std::string error;  ///< empty where the action was called
    };

    [[nodiscard]] bool CutLine(std::string_view& line);
    /// Calls the action for whole lines; true where some are left.
    [[nodiscard]] bool CallLines(std::vector<Answer>& window);
    /// What the calls of a window have changed could not be made durable: none of it is answered with
    /// success.
    static void FailUnsynced(std::vector<Answer>& window);
    [[nodiscard]] Answer CallLine(std::string_view line) const;
    [[nodiscard]] static std::string LengthError();

    const std::unique_ptr<ActionCall> call_;
    const bool explain_;
    std::string pending_;  ///< what is not yet worked on, from begin_ on
    std::size_t begin_ = 0;
    std::size_t searched_ = 0;  ///< no line ends before it
    uint64_t line_ = 0;
    bool isLast_ = false;
    bool isSkipping_ = false;  ///< inside of a line that is too long
};
