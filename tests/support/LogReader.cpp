#include "support/LogReader.h"

#include <stdexcept>
#include <utility>

namespace {

/// The text of a line after its time and, where a logger is given, without that logger's name; empty for a
/// line of another one.
std::string Told(std::string line, const std::string& logger) {
    line.erase(0, line.find(' ') + 1);
    if (logger.empty()) {
        return line;
    }
    const std::size_t level = line.find(' ') + 1;
    if (line.compare(level, logger.size() + 1, logger + " ") != 0) {
        return {};
    }
    return line.erase(level, logger.size() + 1);
}

bool IsOfLevel(const std::string& line, LumLogLevel least) {
    LumLogLevel level = LumLogLevel::kTrace;
    return LumLogLevelFromName(line.substr(0, line.find(' ')), level) && level >= least;
}

}  // namespace

std::size_t CountIn(std::string_view text, std::string_view part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

LogReader::LogReader(std::string path, std::string logger)
    : path_(std::move(path)), logger_(std::move(logger)) {}

std::vector<std::string> LogReader::Said(LumLogLevel least) const {
    std::vector<std::string> lines;
    const std::string content = ReadWholeFile(path_);
    for (std::size_t from = begin_; from < content.size();) {
        const std::size_t end = std::min(content.find('\n', from), content.size());
        std::string line = Told(content.substr(from, end - from), logger_);
        if (IsOfLevel(line, least)) {
            lines.push_back(std::move(line));
        }
        from = end + 1;
    }
    return lines;
}

std::size_t LogReader::Count(std::string_view part) const {
    std::string text;
    for (const std::string& line : Said(LumLogLevel::kTrace)) {
        text += line + "\n";
    }
    return CountIn(text, part);
}

void LogReader::Forget() {
    begin_ = ReadWholeFile(path_).size();
}

LogLines::LogLines() : LogReader(directory / "log") {
    constexpr std::size_t kMaxBytes = std::size_t{64} << 20U;
    LumString error;
    context_.SetLevel(LumLogLevel::kTrace);
    if (!context_.OpenFile(directory.At("log"), kMaxBytes, 1, error)) {
        throw std::runtime_error(error.GetString());
    }
}
