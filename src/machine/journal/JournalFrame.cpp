#include "machine/journal/JournalFrame.h"

#include <charconv>
#include <system_error>

namespace {

constexpr std::size_t kNumberBytes = 4;
constexpr unsigned kBitsPerByte = 8;
constexpr std::size_t kHeadBytes = 1 + kNumberBytes;

void AppendNumber(std::string& bytes, std::size_t number) {
    for (std::size_t i = 0; i < kNumberBytes; ++i) {
        bytes += static_cast<char>((number >> (i * kBitsPerByte)) & 0xFFU);
    }
}

/// The number at the beginning of `bytes`, which has kNumberBytes at least.
std::size_t ReadNumber(std::string_view bytes) {
    std::size_t number = 0;
    for (std::size_t i = 0; i < kNumberBytes; ++i) {
        number |= static_cast<std::size_t>(static_cast<unsigned char>(bytes[i])) << (i * kBitsPerByte);
    }
    return number;
}

/// Splits what follows the head of a frame; false where a length leads beyond it.
bool ReadTexts(std::string_view bytes, std::vector<std::string_view>& texts) {
    texts.clear();
    while (bytes.size() >= kNumberBytes) {
        const std::size_t length = ReadNumber(bytes);
        bytes.remove_prefix(kNumberBytes);
        if (length > bytes.size()) {
            return false;
        }
        texts.push_back(bytes.substr(0, length));
        bytes.remove_prefix(length);
    }
    return bytes.empty();
}

}  // namespace

bool JournalFrame::ReadEntry(JournalEntry& entry) const {
    constexpr std::size_t kFirstField = 2;
    if (saying != JournalSaying::kEntry || texts.size() < kFirstField || texts.size() % 2 != 0) {
        return false;
    }
    entry.Clear();
    entry.cursor = texts[0];
    const std::string_view time = texts[1];
    const auto [stop, failure] = std::from_chars(time.data(), time.data() + time.size(), entry.time);
    for (std::size_t i = kFirstField; i < texts.size(); i += 2) {
        entry.Add(texts[i], texts[i + 1]);
    }
    return failure == std::errc() && stop == time.data() + time.size();
}

std::string MakeFrame(JournalSaying saying, const std::vector<std::string_view>& texts) {
    std::size_t size = 0;
    for (const std::string_view text : texts) {
        size += kNumberBytes + text.size();
    }
    std::string frame;
    frame.reserve(kHeadBytes + size);
    frame += static_cast<char>(saying);
    AppendNumber(frame, size);
    for (const std::string_view text : texts) {
        AppendNumber(frame, text.size());
        frame += text;
    }
    return frame;
}

std::string MakeEntryFrame(const JournalEntry& entry) {
    const std::string time = std::to_string(entry.time);
    std::vector<std::string_view> texts = {entry.cursor, time};
    for (const auto& [name, field] : entry.GetFields()) {
        texts.insert(texts.end(), {name, field.value});
        if (field.isDoubled) {
            texts.insert(texts.end(), {name, std::string_view()});
        }
    }
    return MakeFrame(JournalSaying::kEntry, texts);
}

void JournalFrameBuffer::Append(std::string_view bytes) {
    bytes_.erase(0, used_);
    used_ = 0;
    bytes_.append(bytes);
}

JournalFrameBuffer::Cut JournalFrameBuffer::Next(JournalFrame& frame) {
    const std::string_view rest = std::string_view(bytes_).substr(used_);
    if (rest.size() < kHeadBytes) {
        return Cut::kIncomplete;
    }
    const std::size_t size = ReadNumber(rest.substr(1));
    if (size > kMaxFrameBytes) {
        return Cut::kRefused;
    }
    if (rest.size() < kHeadBytes + size) {
        return Cut::kIncomplete;
    }
    frame.saying = static_cast<JournalSaying>(rest[0]);
    if (!ReadTexts(rest.substr(kHeadBytes, size), frame.texts)) {
        return Cut::kRefused;
    }
    used_ += kHeadBytes + size;
    return Cut::kFrame;
}
