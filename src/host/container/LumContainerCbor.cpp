#include <array>
#include <bit>
#include <cstring>
#include <utility>

#include "host/container/internal/LumContainerContent.h"
#include "host/container/internal/LumContainerText.h"
#include "host/container/internal/LumContainerWalk.h"

namespace {

/// The major types of CBOR (RFC 8949, section 3.1) and the simple values of containers, in their places in an
/// item's first byte.
enum : uint8_t {
    kUnsigned = 0x00,
    kNegative = 0x20,
    kText = 0x60,
    kArray = 0x80,
    kMap = 0xA0,
    kFalse = 0xF4,
    kTrue = 0xF5,
    kNull = 0xF6,
    kDouble = 0xFB,
};
constexpr uint8_t kMajorMask = 0xE0;
constexpr std::size_t kMaxHeadBytes = 9;

constexpr std::string_view kTag = "\xD9\xD9\xF7";

/// Values from here on are in the 1, 2, 4 or 8 bytes after an item's first one.
constexpr uint8_t kFirstWide = 24;
constexpr uint8_t kLastWide = 27;

class CborWriter {
public:
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): only bytes that were written are ever read.
    CborWriter() { out_.reserve(kUsualBytes); }

    void BeginContainer(uint32_t names) { Head(kMap, names); }
    void EndContainer() {}
    void Name(std::string_view name) { SetEnd(PutText(name, kMaxHeadBytes)); }
    void BeginList(uint32_t positions) { Head(kArray, positions); }
    void EndList() {}

    void Value(const LumContainerValue& value) { Values({&value, 1}); }

    void Values(std::span<const LumContainerValue> values) {
        for (; values.size() > kRunValues; values = values.subspan(kRunValues)) {
            PutRun(values.first(kRunValues));
        }
        PutRun(values);
    }

    [[nodiscard]] std::string Take() {
        Flush();
        return std::move(out_);
    }

private:
    static constexpr std::size_t kUsualBytes = 8192;
    static constexpr std::size_t kRunValues = 128;
    static constexpr std::size_t kShortText = 512;

    /// Puts values with one look at the room that they all need, texts apart.
    void PutRun(std::span<const LumContainerValue> values) {
        char* out = Room(kMaxHeadBytes * values.size());
        for (const LumContainerValue& value : values) {
            if (const auto* number = std::get_if<int64_t>(&value)) {
                out = *number >= 0 ? PutHead(out, kUnsigned, static_cast<uint64_t>(*number))
                                   : PutHead(out, kNegative, static_cast<uint64_t>(~*number));
            } else if (const auto* text = std::get_if<LumString>(&value)) {
                SetEnd(out);
                const auto left = static_cast<std::size_t>(values.data() + values.size() - &value);
                out = PutText(text->View(), kMaxHeadBytes * left);
            } else if (const auto* real = std::get_if<double>(&value)) {
                out = PutWide(out, kDouble, std::bit_cast<uint64_t>(*real), 8);
            } else {
                const auto* const flag = std::get_if<bool>(&value);
                *out++ = static_cast<char>(flag == nullptr ? kNull : *flag ? kTrue : kFalse);
            }
        }
        SetEnd(out);
    }

    void Head(unsigned major, uint64_t argument) { SetEnd(PutHead(Room(kMaxHeadBytes), major, argument)); }

    /// Puts a text, and returns the end of what is written, with room for its head and `more` bytes.
    char* PutText(std::string_view text, std::size_t more) {
        if (!LumIsUtf8(text)) {
            return PutText(LumCleanUtf8(text), more);
        }
        if (text.size() > kShortText) {
            SetEnd(PutHead(Room(kMaxHeadBytes), kText, text.size()));
            Flush();
            out_.append(text);
            return Room(more);
        }
        char* const out = PutHead(Room(text.size() + more), kText, text.size());
        std::memcpy(out, text.data(), text.size());
        return out + text.size();
    }

    /// Puts the shortest form of an item's head, and returns its end.
    static char* PutHead(char* out, unsigned major, uint64_t argument) {
        if (argument < kFirstWide) {
            *out = static_cast<char>(major | static_cast<unsigned>(argument));
            return out + 1;
        }
        if (argument <= 0xFFU) {
            return PutWide(out, major | kFirstWide, argument, 1);
        }
        if (argument <= 0xFFFFU) {
            return PutWide(out, major | (kFirstWide + 1U), argument, 2);
        }
        return argument <= 0xFFFFFFFFU ? PutWide(out, major | (kFirstWide + 2U), argument, 4)
                                       : PutWide(out, major | kLastWide, argument, 8);
    }

    /// Puts a first byte and a number of `width` bytes after it, and returns the end of both. Writes
    /// kMaxHeadBytes whatever the width.
    static char* PutWide(char* out, unsigned first, uint64_t number, std::size_t width) {
        const uint64_t bigEndian = __builtin_bswap64(number << (64 - 8 * width));
        *out = static_cast<char>(first);
        std::memcpy(out + 1, &bigEndian, sizeof(bigEndian));
        return out + 1 + width;
    }

    /// The end of what is written, with room for `count` more bytes.
    char* Room(std::size_t count) {
        if (buffer_.size() - used_ < count) {
            Flush();
        }
        return buffer_.data() + used_;
    }

    void SetEnd(const char* end) { used_ = static_cast<std::size_t>(end - buffer_.data()); }

    void Flush() {
        out_.append(buffer_.data(), used_);
        used_ = 0;
    }

    std::string out_{kTag};
    /// What is not in out_ yet: values are too short to be appended one by one.
    std::array<char, kShortText + kMaxHeadBytes * kRunValues> buffer_;
    std::size_t used_ = 0;
};

/// Reads what CborWriter writes, and integers and lengths that are wider than need be. nlohmann's reader is
/// not used because it recurses as deep as its input says (texts in chunks), lets 64-bit negative numbers
/// wrap around, and does not tell its handler where it is.
class CborReader {
public:
    CborReader(std::string_view bytes, LumString& error) : bytes_(bytes), error_(error) {}

    /// The outermost container; null, with the error set, where the bytes are none.
    [[nodiscard]] LumContentRef Read() {
        if (bytes_.substr(0, kTag.size()) != kTag) {
            return Fail("This is not a container file, the tag 55799 is missing", 0);
        }
        at_ = kTag.size();
        Item item{};
        if (!ReadItem(item)) {
            return nullptr;
        }
        if (item.major != kMap) {
            return Fail("The outermost value is not a container", item.at);
        }
        LumContentRef content = ReadMap(item, 1);
        if (content != nullptr && at_ != bytes_.size()) {
            return Fail("There are bytes after the container", at_);
        }
        return content;
    }

private:
    struct Item {
        std::size_t at;
        uint8_t first;
        uint8_t major;
        uint64_t argument;
    };

    /// A failure, in whichever way the caller's result says it.
    struct Failed {
        // NOLINTNEXTLINE(google-explicit-constructor): stands for the result in a return statement.
        operator bool() const { return false; }
        // NOLINTNEXTLINE(google-explicit-constructor): stands for the result in a return statement.
        operator LumContentRef() const { return nullptr; }
    };

    Failed Fail(const char* what, std::size_t at) {
        error_.Printf("%s at byte %ld", what, static_cast<int64_t>(at));
        return {};
    }

    [[nodiscard]] std::size_t Left() const { return bytes_.size() - at_; }

    /// The head of an item, with the number or the length in it.
    [[nodiscard]] bool ReadItem(Item& item) {
        item.at = at_;
        if (Left() == 0) {
            return Fail("The container ends too early", at_);
        }
        item.first = static_cast<uint8_t>(bytes_[at_++]);
        item.major = item.first & kMajorMask;
        const uint8_t low = item.first & static_cast<uint8_t>(~kMajorMask);
        item.argument = low;
        if (low < kFirstWide) {
            return true;
        }
        if (low > kLastWide) {
            return Fail("A value of no definite length", item.at);
        }
        const std::size_t width = std::size_t{1} << (low - kFirstWide);
        if (Left() < width) {
            return Fail("The container ends too early", bytes_.size());
        }
        item.argument = 0;
        for (std::size_t i = 0; i < width; ++i) {
            item.argument = item.argument << 8U | static_cast<uint8_t>(bytes_[at_++]);
        }
        return true;
    }

    [[nodiscard]] LumContentRef ReadMap(const Item& map, uint32_t depth) {
        if (depth > kLumMaxContainerDepth) {
            return Fail("Containers are nested too deep", map.at);
        }
        LumContentRef content = LumContainerContent::Make();
        for (uint64_t i = 0; i < map.argument; ++i) {
            std::string_view name;
            if (!ReadName(name)) {
                return nullptr;
            }
            content->EmptyName(name);
            if (!ReadValues(*content, name, depth)) {
                return nullptr;
            }
        }
        content->DropEmptied();
        return content;
    }

    [[nodiscard]] bool ReadName(std::string_view& name) {
        Item item{};
        if (!ReadItem(item)) {
            return false;
        }
        return item.major == kText ? ReadText(item, name) : Fail("A name that is not text", item.at);
    }

    [[nodiscard]] bool ReadText(const Item& item, std::string_view& text) {
        if (item.argument > Left()) {
            return Fail("The container ends too early", bytes_.size());
        }
        text = bytes_.substr(at_, static_cast<std::size_t>(item.argument));
        if (!LumIsUtf8(text)) {
            return Fail("A text that is not UTF-8", item.at);
        }
        at_ += text.size();
        return true;
    }

    [[nodiscard]] bool ReadValues(LumContainerContent& content, std::string_view name, uint32_t depth) {
        Item item{};
        if (!ReadItem(item)) {
            return false;
        }
        if (item.major != kArray) {
            return ReadValue(content, name, kLumSingleValue, item, depth);
        }
        if (item.argument > LumContainer::kMaxPositions) {
            return Fail("A list of too many values", item.at);
        }
        const auto positions = static_cast<uint32_t>(item.argument);
        for (uint32_t i = 0; i < positions; ++i) {
            if (!ReadItem(item) || (item.first != kNull && !ReadValue(content, name, i, item, depth))) {
                return false;
            }
        }
        return true;
    }

    [[nodiscard]] bool ReadValue(LumContainerContent& content, std::string_view name, uint32_t index,
                                 const Item& item, uint32_t depth) {
        switch (item.major) {
            case kUnsigned:
            case kNegative:
                return ReadNumber(content.Place(name, index), item);
            case kText:
                return ReadTextInto(content, name, index, item);
            case kMap:
                return ReadContainer(content, name, index, item, depth);
            case kArray:
                return Fail("A list in a list", item.at);
            default:
                break;
        }
        switch (item.first) {
            case kFalse:
            case kTrue:
                content.Place(name, index) = item.first == kTrue;
                return true;
            case kDouble:
                content.Place(name, index) = std::bit_cast<double>(item.argument);
                return true;
            default:
                return Fail("A value of a kind that containers do not have", item.at);
        }
    }

    [[nodiscard]] bool ReadNumber(LumContainerValue& value, const Item& item) {
        const bool negative = item.major == kNegative;
        if (item.argument > (negative ? 0x7FFFFFFFU : 0xFFFFFFFFU)) {
            return Fail("An integer of more than 32 bits", item.at);
        }
        const auto number = static_cast<int64_t>(item.argument);
        value = negative ? ~number : number;
        return true;
    }

    [[nodiscard]] bool ReadTextInto(LumContainerContent& content, std::string_view name, uint32_t index,
                                    const Item& item) {
        std::string_view text;
        if (!ReadText(item, text)) {
            return false;
        }
        content.Place(name, index) = LumString(text);
        return true;
    }

    [[nodiscard]] bool ReadContainer(LumContainerContent& content, std::string_view name, uint32_t index,
                                     const Item& item, uint32_t depth) {
        LumContentRef inner = ReadMap(item, depth + 1);
        if (inner == nullptr) {
            return false;
        }
        content.PlaceContainer(name, index, std::move(inner));
        return true;
    }

    const std::string_view bytes_;
    LumString& error_;
    std::size_t at_ = 0;
};

}  // namespace

std::string LumContainer::ToCbor() const {
    CborWriter writer;
    LumContainerWalk<CborWriter>(writer).Run(content_.get());
    return writer.Take();
}

bool LumContainer::FromCbor(std::string_view bytes, LumString& error) {
    ContentRef read = CborReader(bytes, error).Read();
    if (read == nullptr) {
        return false;
    }
    content_ = std::move(read);
    walked_ = 0;
    return true;
}
