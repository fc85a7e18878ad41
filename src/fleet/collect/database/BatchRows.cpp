#include "fleet/collect/database/BatchRows.h"

#include <chrono>
#include <string_view>

#include "fleet/collect/batch/CopyRow.h"

namespace {

/// 2026-11-21T01:10:25Z and nothing else: what a device says is not handed to the database's own reading.
SqlValue TimeOf(std::string_view text) {
    constexpr std::string_view shape = "0000-00-00T00:00:00Z";
    if (text.size() != shape.size()) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < shape.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (shape[i] == '0' ? !digit : text[i] != shape[i]) {
            return std::nullopt;
        }
    }
    const auto number = [text](std::size_t start, std::size_t length) {
        int value = 0;
        for (const char digit : text.substr(start, length)) {
            value = value * 10 + (digit - '0');
        }
        return value;
    };
    const std::chrono::year_month_day day(std::chrono::year(number(0, 4)),
                                          std::chrono::month(static_cast<unsigned>(number(5, 2))),
                                          std::chrono::day(static_cast<unsigned>(number(8, 2))));
    const bool possible = day.ok() && day.year() > std::chrono::year(0) && number(11, 2) < 24 &&
                          number(14, 2) < 60 && number(17, 2) < 60;
    return possible ? SqlValue(std::string(text)) : std::nullopt;
}

}  // namespace

int64_t EventsOf(const Incoming& batch) {
    const auto* const events = std::get_if<EventContent>(&batch.content);
    return events != nullptr ? static_cast<int64_t>(events->dates.size()) : 0;
}

std::string HexText(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char letter : bytes) {
        const auto byte = static_cast<unsigned char>(letter);
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

SqlValues KeyRow(const Incoming& batch) {
    const int64_t number = RunningNumberOf(batch.info.name);
    const auto* const events = std::get_if<EventContent>(&batch.content);
    return {batch.info.key.device,
            batch.info.key.digest,
            StorableText(batch.info.label),
            StorableText(batch.info.name),
            number > 0 ? SqlValue(std::to_string(number)) : std::nullopt,
            TimeOf(batch.info.receivedAt),
            std::to_string(batch.bytes),
            std::to_string(EventsOf(batch)),
            events != nullptr ? SqlValue(events->model) : std::nullopt,
            events != nullptr ? SqlValue(events->checksum) : std::nullopt};
}

SqlValues ContactRow(const std::string& device, const Contact& contact) {
    SqlValue lowest;
    SqlValue highest;
    std::string got = "{";
    if (!contact.numbers.empty()) {
        lowest = std::to_string(*contact.numbers.begin());
        highest = std::to_string(*contact.numbers.rbegin());
    }
    for (const int64_t number : contact.numbers) {
        const std::string text = std::to_string(number);
        got.append(got.size() > 1 ? ",[" : "[").append(text).append(",").append(text).append("]");
    }
    return {device,
            std::to_string(contact.batches),
            std::to_string(contact.events),
            std::to_string(contact.rejected),
            lowest,
            highest,
            got + "}"};
}
