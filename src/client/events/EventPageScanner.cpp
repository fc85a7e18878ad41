// Reads a page in the one form in which the agent writes it, in a fraction of the time that a reader of any
// JSON takes.

#include <algorithm>
#include <charconv>

#include "client/events/EventPage.h"

/// Takes a page from {"status":0,"container":{"Result":{"EventCount":n,"NAME":[...],...}},"messages":[]}
/// without blanks and without escapes in its texts. Whatever else comes is left to the library.
class EventPage::Scanner {
public:
    Scanner(EventPage& page, std::string_view text) : page_(page), rest_(text) {}

    /// False where the text is of another form; the page then holds a part of it.
    [[nodiscard]] bool Run() {
        EventValue count;
        if (!Skip(R"({"status":0,"container":{"Result":{"EventCount":)") || !TakeNumber(count) ||
            count.kind != EventValue::Kind::kInteger) {
            return false;
        }
        page_.eventCount_ = count.number;
        while (Skip(",")) {
            if (!TakeColumn()) {
                return false;
            }
        }
        return rest_ == "}}}" || rest_ == R"(}},"messages":[]})";
    }

private:
    [[nodiscard]] bool Skip(std::string_view text) {
        const bool isNext = rest_.starts_with(text);
        rest_.remove_prefix(isNext ? text.size() : 0);
        return isNext;
    }

    [[nodiscard]] bool TakeColumn() {
        EventValue name;
        if (!TakeText(name) || !Skip(":[")) {
            return false;
        }
        const std::size_t column = page_.ColumnFor(name.text);
        do {
            EventValue value;
            if (!TakeValue(value)) {
                return false;
            }
            page_.Put(column, value);
        } while (Skip(","));
        return Skip("]");
    }

    [[nodiscard]] bool TakeValue(EventValue& value) {
        if (rest_.starts_with('"')) {
            return TakeText(value);
        }
        if (Skip("null")) {
            return true;
        }
        const bool isTrue = Skip("true");
        if (isTrue || Skip("false")) {
            value = {EventValue::Kind::kBool, isTrue ? 1 : 0, {}};
            return true;
        }
        return TakeNumber(value);
    }

    [[nodiscard]] bool TakeText(EventValue& value) {
        const std::size_t end = rest_.find('"', 1);
        if (!rest_.starts_with('"') || end == std::string_view::npos) {
            return false;
        }
        const std::string_view text = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        value = {EventValue::Kind::kText, 0, text};
        return std::none_of(text.begin(), text.end(), [](char letter) {
            return letter == '\\' || static_cast<unsigned char>(letter) < ' ';
        });
    }

    [[nodiscard]] bool TakeNumber(EventValue& value) {
        const std::string_view text = rest_.substr(0, rest_.find_first_of(",]}"));
        const char* const end = text.data() + text.size();
        rest_.remove_prefix(text.size());
        value.kind = EventValue::Kind::kInteger;
        const auto [stop, failure] = std::from_chars(text.data(), end, value.number);
        if (failure == std::errc() && stop == end) {
            return true;
        }
        double real = 0;
        const auto [realStop, realFailure] = std::from_chars(text.data(), end, real);
        value = {EventValue::Kind::kReal, 0, text};
        return realFailure == std::errc() && realStop == end &&
               text.find_first_of("ni") == std::string_view::npos;
    }

    EventPage& page_;
    std::string_view rest_;
};

bool EventPage::Scan(std::string_view answer) {
    return Scanner(*this, answer).Run();
}
