#include "agent/request/BatchCall.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "contract/Statuses.h"
#include "host/database/Database.h"

namespace {

/// About the bytes of an answer beside its container.
constexpr std::size_t kAnswerFrame = 40;

void AppendAnswer(uint64_t line, const ActionResult& result, const std::string& error, std::string& answers) {
    answers.append(R"({"line":)").append(std::to_string(line)).append(",");
    if (error.empty()) {
        result.AppendTo(answers);
    } else {
        const nlohmann::json text = error;
        answers.append(R"("error":)");
        answers.append(text.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    }
    answers.append("}\n");
}

}  // namespace

void BatchCall::Take(std::string_view bytes, bool isLast) {
    pending_.erase(0, begin_);
    searched_ -= std::min(searched_, begin_);
    begin_ = 0;
    if (isSkipping_) {
        const std::size_t end = bytes.find('\n');
        isSkipping_ = end == std::string_view::npos;
        bytes.remove_prefix(isSkipping_ ? bytes.size() : end + 1);
    }
    pending_.append(bytes);
    isLast_ = isLast;
}

bool BatchCall::CutLine(std::string_view& line) {
    const std::size_t end = pending_.find('\n', std::max(begin_, searched_));
    if (end == std::string::npos && (!isLast_ || begin_ == pending_.size())) {
        searched_ = pending_.size();
        return false;
    }
    line = std::string_view(pending_).substr(begin_, end == std::string::npos ? end : end - begin_);
    begin_ = end == std::string::npos ? pending_.size() : end + 1;
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    ++line_;
    return true;
}

bool BatchCall::Work(std::string& answers) {
    std::vector<Answer> window;
    bool hasMore = false;
    {
        const DBDurabilityDelay delay;
        hasMore = CallLines(window);
    }
    DBAwaitDurable();
    if (!DBTakeDurable()) {
        FailUnsynced(window);
    }
    for (const Answer& answer : window) {
        AppendAnswer(answer.line, answer.result, answer.error, answers);
    }
    return hasMore;
}

bool BatchCall::CallLines(std::vector<Answer>& window) {
    std::string_view line;
    for (std::size_t length = 0; length < kTurn;
         length += kAnswerFrame + window.back().result.container.size()) {
        do {
            if (!CutLine(line)) {
                if (pending_.size() - begin_ > kMaxLine) {
                    window.push_back({++line_, {}, {}, LengthError()});
                    isSkipping_ = true;
                    begin_ = pending_.size();
                }
                return false;
            }
        } while (line.empty());
        window.push_back(CallLine(line));
    }
    return true;
}

void BatchCall::FailUnsynced(std::vector<Answer>& window) {
    for (Answer& answer : window) {
        LumContainer arguments;
        LumString ignored;  // the line was a container when its action was called
        if (answer.error.empty() && answer.result.status == kActionDone &&
            arguments.FromJson(answer.text, ignored)) {
            answer.result.status = kActionFailed;
            answer.result.container = arguments.ToJson();
        }
    }
}

BatchCall::Answer BatchCall::CallLine(std::string_view line) const {
    Answer answer{line_, line, {}, {}};
    LumString error;
    if (line.size() > kMaxLine) {
        answer.error = LengthError();
    } else if (!call_->Run(line, explain_, answer.result, error)) {
        answer.error = error.IsEmpty() ? "The action is not there any more."
                                       : "The line is not a container: " + std::string(error.View()) + ".";
    }
    return answer;
}

std::string BatchCall::LengthError() {
    return "The line is longer than " + std::to_string(kMaxLine) + " bytes.";
}
