#include "fleet/wire/Receipt.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <utility>

#include "fleet/wire/BatchHeaders.h"
#include "fleet/wire/BatchKey.h"

namespace {

constexpr std::string_view kReceiptStart = "lum-receipt 1\n";
constexpr std::string_view kAskStart = "lum-ask 1\n";

constexpr std::array<std::pair<BatchFate, std::string_view>, 4> kFates{{
    {BatchFate::kHeld, "held"},
    {BatchFate::kRejected, "rejected"},
    {BatchFate::kWaiting, "waiting"},
    {BatchFate::kMissing, "missing"},
}};

std::string_view WordOf(BatchFate fate) {
    return kFates[static_cast<std::size_t>(fate)].second;
}

/// Takes what comes before the next `end` off the text; the rest of it where there is none.
std::string_view TakeUntil(std::string_view& text, char end) {
    const std::size_t length = text.find(end);
    const std::string_view part = text.substr(0, length);
    text.remove_prefix(length == std::string_view::npos ? text.size() : length + 1);
    return part;
}

std::optional<ReceiptLine> ParseReceiptLine(std::string_view text) {
    const std::string_view word = TakeUntil(text, ' ');
    const auto* const fate = std::find_if(kFates.begin(), kFates.end(),
                                          [word](const auto& known) { return known.second == word; });
    ReceiptLine line;
    line.digest = TakeUntil(text, ' ');
    if (fate == kFates.end() || !IsDigest(line.digest)) {
        return std::nullopt;
    }
    line.fate = fate->first;
    line.reason = text;
    return line;
}

std::optional<AskLine> ParseAskLine(std::string_view text) {
    AskLine line;
    line.digest = TakeUntil(text, ' ');
    const char* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, line.sequence);
    if (!IsDigest(line.digest) || failure != std::errc() || stop != end) {
        return std::nullopt;
    }
    return line;
}

template <class Line>
bool ParseLines(std::string_view text, std::string_view start, std::optional<Line> (*parse)(std::string_view),
                std::vector<Line>& lines) {
    if (!text.starts_with(start)) {
        return false;
    }
    text.remove_prefix(start.size());
    std::vector<Line> read;
    while (!text.empty()) {
        std::optional<Line> line = parse(TakeUntil(text, '\n'));
        if (!line.has_value() || read.size() == kMaxReceiptLines) {
            return false;
        }
        read.push_back(std::move(*line));
    }
    lines = std::move(read);
    return true;
}

}  // namespace

std::string ReceiptText(const std::vector<ReceiptLine>& lines) {
    std::string text(kReceiptStart);
    for (const ReceiptLine& line : lines) {
        text.append(WordOf(line.fate)).append(" ").append(line.digest);
        if (!line.reason.empty()) {
            text.append(" ").append(HeaderValue(line.reason));
        }
        text.append("\n");
    }
    return text;
}

bool ParseReceipt(std::string_view text, std::vector<ReceiptLine>& lines) {
    return ParseLines<ReceiptLine>(text, kReceiptStart, ParseReceiptLine, lines);
}

std::string AskText(const std::vector<AskLine>& lines) {
    std::string text(kAskStart);
    for (const AskLine& line : lines) {
        text.append(line.digest).append(" ").append(std::to_string(line.sequence)).append("\n");
    }
    return text;
}

bool ParseAsk(std::string_view text, std::vector<AskLine>& lines) {
    return ParseLines<AskLine>(text, kAskStart, ParseAskLine, lines);
}
