#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "host/container/internal/LumContainerContent.h"
#include "host/container/internal/LumContainerWalk.h"

namespace {

using Json = nlohmann::json;

/// Writes what holds texts and numbers itself: the library would descend as deep as containers are nested. Of
/// the values it writes those that look the same however they are written, and leaves the others to the
/// library, which takes several times as long for each.
class JsonWriter {
public:
    void BeginContainer(uint32_t /*names*/) {
        Separate();
        out_.push_back('{');
    }
    void EndContainer() { out_.push_back('}'); }

    void Name(std::string_view name) {
        Separate();
        PutText(name);
        out_.push_back(':');
    }

    void BeginList(uint32_t /*positions*/) { out_.push_back('['); }
    void EndList() { out_.push_back(']'); }

    void Value(const LumContainerValue& value) {
        Separate();
        if (const auto* number = std::get_if<int64_t>(&value)) {
            PutNumber(*number);
        } else if (const auto* text = std::get_if<LumString>(&value)) {
            PutText(text->View());
        } else if (const auto* real = std::get_if<double>(&value)) {
            PutByLibrary(*real);
        } else if (const auto* flag = std::get_if<bool>(&value)) {
            out_ += *flag ? "true" : "false";
        } else {
            out_ += "null";
        }
    }

    void Values(std::span<const LumContainerValue> values) {
        for (const LumContainerValue& value : values) {
            Value(value);
        }
    }

    [[nodiscard]] std::string Take() { return std::move(out_); }

private:
    /// Puts the comma between two members of an object or an array. Their texts stand in quotes, so the
    /// last character alone tells whether there is one before.
    void Separate() {
        const char last = out_.empty() ? '{' : out_.back();
        if (last != '{' && last != '[' && last != ':') {
            out_.push_back(',');
        }
    }

    void PutNumber(int64_t number) {
        std::array<char, std::numeric_limits<int64_t>::digits10 + 2> digits{};  // one more, and the sign
        const auto [end, error] = std::to_chars(digits.begin(), digits.end(), number);
        static_cast<void>(error);  // every number fits
        out_.append(digits.begin(), end);
    }

    void PutText(std::string_view text) {
        const auto stands = [](char letter) {
            return letter >= ' ' && letter <= '~' && letter != '"' && letter != '\\';
        };
        if (!std::all_of(text.begin(), text.end(), stands)) {
            PutByLibrary(text);
            return;
        }
        out_.push_back('"');
        out_ += text;
        out_.push_back('"');
    }

    void PutByLibrary(const Json& leaf) { out_ += leaf.dump(-1, ' ', false, Json::error_handler_t::replace); }

    std::string out_;
};

/// Lets the handler know how far the parser has read, which the parser itself tells it only of its own
/// errors.
class TrackedInput {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    TrackedInput(const char* at, const char** reached) : at_(at), reached_(reached) {}

    reference operator*() const { return *at_; }
    TrackedInput& operator++() {
        *reached_ = ++at_;
        return *this;
    }
    bool operator==(const TrackedInput& other) const { return at_ == other.at_; }
    bool operator!=(const TrackedInput& other) const { return at_ != other.at_; }

private:
    const char* at_;
    const char** reached_;
};

/// Builds the container from the parser's events. Each event answers false, with the error set, to stop it.
class JsonBuilder {
public:
    JsonBuilder(const char* begin, LumString& error) : begin_(begin), reached_(begin), error_(error) {}

    const char** Reached() { return &reached_; }
    [[nodiscard]] LumContentRef Take() { return std::move(root_); }

    // NOLINTBEGIN(readability-identifier-naming): the parser calls its events by these names.
    bool null() {
        if (open_.empty()) {
            return FailOutermost();
        }
        ++open_.back().position;
        return true;
    }

    bool boolean(bool value) {
        LumContainerValue* const place = NextPlace();
        return place != nullptr && Put(*place, value);
    }

    bool number_integer(Json::number_integer_t value) {
        if (value < std::numeric_limits<int32_t>::min()) {
            return FailNumber("An integer of more than 32 bits");
        }
        LumContainerValue* const place = NextPlace();
        return place != nullptr && Put(*place, value);
    }

    bool number_unsigned(Json::number_unsigned_t value) {
        if (value > std::numeric_limits<uint32_t>::max()) {
            return FailNumber("An integer of more than 32 bits");
        }
        LumContainerValue* const place = NextPlace();
        return place != nullptr && Put(*place, static_cast<int64_t>(value));
    }

    bool number_float(double value, const std::string& text) {
        if (text.find_first_of(".eE") == std::string::npos) {
            return FailNumber("An integer of more than 32 bits");
        }
        LumContainerValue* const place = NextPlace();
        return place != nullptr && Put(*place, value);
    }

    bool string(std::string& value) {
        LumContainerValue* const place = NextPlace();
        return place != nullptr && Put(*place, LumString(std::move(value)));
    }

    bool binary(Json::binary_t& /*value*/) { return Fail("A value that JSON does not have"); }

    bool start_object(std::size_t /*count*/) {
        if (open_.size() >= kLumMaxContainerDepth) {
            return Fail("Containers are nested too deep");
        }
        open_.push_back({LumContainerContent::Make(), {}, 0, false});
        return true;
    }

    bool key(std::string& name) {
        Frame& frame = open_.back();
        frame.name = std::move(name);
        frame.content->EmptyName(frame.name);
        return true;
    }

    bool end_object() {
        LumContentRef ended = std::move(open_.back().content);
        open_.pop_back();
        ended->DropEmptied();
        if (open_.empty()) {
            root_ = std::move(ended);
            return true;
        }
        uint32_t index = 0;
        if (!NextIndex(index)) {
            return false;
        }
        open_.back().content->PlaceContainer(open_.back().name, index, std::move(ended));
        return true;
    }

    bool start_array(std::size_t /*count*/) {
        if (open_.empty()) {
            return FailOutermost();
        }
        if (open_.back().inList) {
            return Fail("A list in a list");
        }
        open_.back().inList = true;
        open_.back().position = 0;
        return true;
    }

    bool end_array() {
        open_.back().inList = false;
        return true;
    }

    bool parse_error(std::size_t /*position*/, const std::string& /*lastToken*/,
                     const nlohmann::detail::exception& error) {
        constexpr int kNumberOverflow = 406;
        if (error.id == kNumberOverflow) {
            return FailNumber("A number too large for a double");
        }
        // The parser's text is "[...] parse error at ...: syntax error while parsing ... - REASON; last read:
        // ...", the last of which may be all of the input and anything but UTF-8.
        std::string_view reason = error.what();
        reason = reason.substr(0, reason.find("; last read: '"));
        const std::size_t dash = reason.find(" - ");
        reason = dash != std::string_view::npos ? reason.substr(dash + 3) : reason;
        error_.Printf("This is not JSON, %S at byte %ld", reason, static_cast<int64_t>(reached_ - begin_));
        return false;
    }
    // NOLINTEND(readability-identifier-naming)

private:
    /// A container that is being read, and what its next value belongs to.
    struct Frame {
        LumContentRef content;
        std::string name;
        uint32_t position;
        bool inList;
    };

    bool Fail(const char* what) { return FailAt(what, reached_); }
    /// The parser knows the end of a number from the character after it, which it has read then.
    bool FailNumber(const char* what) { return FailAt(what, reached_ - 1); }
    bool FailAt(const char* what, const char* at) {
        error_.Printf("%s at byte %ld", what, static_cast<int64_t>(at - begin_));
        return false;
    }
    bool FailOutermost() { return Fail("The outermost value is not an object"); }

    template <class T>
    static bool Put(LumContainerValue& place, T&& value) {
        place = std::forward<T>(value);
        return true;
    }

    bool NextIndex(uint32_t& index) {
        Frame& frame = open_.back();
        index = frame.inList ? frame.position++ : kLumSingleValue;
        return !frame.inList || index < LumContainer::kMaxPositions || Fail("A list of too many values");
    }

    /// Where the value that was just read belongs; null, with the error set, where that is nowhere.
    [[nodiscard]] LumContainerValue* NextPlace() {
        uint32_t index = 0;
        if (open_.empty()) {
            static_cast<void>(FailOutermost());  // the null says it
            return nullptr;
        }
        return NextIndex(index) ? &open_.back().content->Place(open_.back().name, index) : nullptr;
    }

    const char* const begin_;
    const char* reached_;
    LumString& error_;
    std::vector<Frame> open_;
    LumContentRef root_;
};

}  // namespace

std::string LumContainer::ToJson() const {
    JsonWriter writer;
    LumContainerWalk<JsonWriter>(writer).Run(content_.get());
    return writer.Take();
}

bool LumContainer::FromJson(std::string_view json, LumString& error) {
    // The parser takes a null byte for the end of the text.
    const std::size_t null = json.find('\0');
    if (null != std::string_view::npos) {
        error.Printf("This is not JSON, a null character at byte %ld", static_cast<int64_t>(null) + 1);
        return false;
    }
    ContentRef read;
    if (!json.empty()) {
        JsonBuilder builder(json.data(), error);
        const TrackedInput begin(json.data(), builder.Reached());
        const TrackedInput end(json.data() + json.size(), builder.Reached());
        if (!Json::sax_parse(begin, end, &builder)) {
            return false;
        }
        read = builder.Take();
    }
    content_ = std::move(read);
    walked_ = 0;
    return true;
}
