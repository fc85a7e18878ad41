#include "host/log/LumDebug.h"

#include <exception>
#include <mutex>
#include <string>
#include <system_error>

#include <spdlog/details/log_msg.h>

#include "host/log/LumLogCapture.h"
#include "host/log/internal/LogFile.h"
#include "host/log/internal/StandardError.h"
#include "host/text/LumSystemError.h"
#include "host/text/LumUtf8.h"

namespace {

constexpr std::string_view kLevelNames[] = {"trace", "print", "warning", "error"};

spdlog::level::level_enum SpdlogLevel(LumLogLevel level) {
    constexpr spdlog::level::level_enum levels[] = {spdlog::level::debug, spdlog::level::info,
                                                    spdlog::level::warn, spdlog::level::err};
    return levels[static_cast<std::size_t>(level)];
}

void AppendEscape(std::string& out, char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    switch (byte) {
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            out += {'\\', 'x', kDigits[value >> 4U], kDigits[value & 0xFU]};
            break;
    }
}

/// Appends `text` as one line that no terminal and no reader of lines takes for anything else: control
/// characters, those of the second range too, and bytes that are not UTF-8 become escapes.
void AppendPrintable(std::string& out, std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = at;
        const char32_t character = LumNextUtf8(text, at);
        const std::string_view bytes = text.substr(start, at - start);
        const bool isControl = character < 0x20 || (character >= 0x7F && character < 0xA0);
        const bool isBroken = character == kLumReplacementCharacter && bytes.size() == 1;
        if (!isControl && !isBroken) {
            out += bytes;
            continue;
        }
        for (const char byte : bytes) {
            AppendEscape(out, byte);
        }
    }
}

/// The error actions that run on this thread, innermost first.
struct RunningAction {
    LumDebug::ErrorAction action;
    const RunningAction* outer;
};
thread_local const RunningAction* runningActions = nullptr;

bool IsRunning(LumDebug::ErrorAction action) {
    for (const RunningAction* running = runningActions; running != nullptr; running = running->outer) {
        if (running->action == action) {
            return true;
        }
    }
    return false;
}

void RunErrorAction(LumDebug::ErrorAction action, const LumString& text) {
    if (action == nullptr || IsRunning(action)) {
        return;
    }
    const RunningAction running{action, runningActions};
    runningActions = &running;
    bool failed = false;
    try {
        action(text);
    } catch (...) {
        failed = true;
    }
    runningActions = running.outer;
    if (failed) {
        LumHostDebug().WarningWithNL("An error line could not be passed on");
    }
}

}  // namespace

struct LumDebugContext::Sinks {
    StandardError standardError;
    std::mutex mutex;
    std::shared_ptr<LogFile> file;  // guarded by mutex
};

std::string_view LumLogLevelName(LumLogLevel level) {
    return kLevelNames[static_cast<std::size_t>(level)];
}

bool LumLogLevelFromName(std::string_view name, LumLogLevel& level) {
    for (std::size_t i = 0; i < std::size(kLevelNames); ++i) {
        if (kLevelNames[i] == name) {
            level = static_cast<LumLogLevel>(i);
            return true;
        }
    }
    return false;
}

LumDebugContext::LumDebugContext() : sinks_(std::make_unique<Sinks>()) {}

LumDebugContext::~LumDebugContext() = default;

bool LumDebugContext::OpenFile(const LumString& path, std::size_t maxBytes, std::size_t maxFiles,
                               LumString& error) {
    auto file = std::make_shared<LogFile>(std::string(path.View()), maxBytes, maxFiles);
    if (!file->Open()) {
        error = LumSystemErrorText();
        return false;
    }
    const std::lock_guard<std::mutex> guard(sinks_->mutex);
    sinks_->file = std::move(file);
    return true;
}

bool LumDebugContext::ReopenFile(LumString& error) {
    std::shared_ptr<LogFile> file;
    {
        const std::lock_guard<std::mutex> guard(sinks_->mutex);
        file = sinks_->file;
    }
    if (file != nullptr && !file->Open()) {
        error = LumSystemErrorText();
        return false;
    }
    return true;
}

void LumDebugContext::Write(LumLogLevel level, std::string_view logger, std::string_view text) {
    try {
        TellMissing();
        WriteLine(level, logger, text);
    } catch (const std::exception&) {
        NoteMissing();
    }
}

void LumDebugContext::TellMissing() {
    const uint64_t missing = missing_.exchange(0, std::memory_order_relaxed);
    if (missing == 0) {
        return;
    }
    try {
        WriteLine(LumLogLevel::kWarning, "Host",
                  std::to_string(missing) + " lines were left out here, as there was no memory for them");
    } catch (const std::exception&) {
        missing_.fetch_add(missing, std::memory_order_relaxed);
    }
}

void LumDebugContext::WriteLine(LumLogLevel level, std::string_view logger, std::string_view text) {
    std::string line(LumLogLevelName(level));
    line += ' ';
    AppendPrintable(line, logger);
    line += ' ';
    AppendPrintable(line, text);
    LumLogCapture::Note(level, line);
    const spdlog::details::log_msg message(spdlog::string_view_t(), SpdlogLevel(level), line);
    std::shared_ptr<LogFile> file;
    {
        const std::lock_guard<std::mutex> guard(sinks_->mutex);
        file = sinks_->file;
    }
    sinks_->standardError.log(message);
    if (file != nullptr) {
        file->log(message);
    }
}

LumDebugContext& LumDebugContext::Default() {
    // Never destroyed: libraries log while the process ends.
    alignas(LumDebugContext) static unsigned char place[sizeof(LumDebugContext)];
    static auto* const context = new (place) LumDebugContext();
    return *context;
}

LumDebug::LumDebug(const char* name, const char* description)
    : name_(name), description_(description), context_(&LumDebugContext::Default()) {}

void LumDebug::SetContext(LumDebugContext* context) {
    context_.store(context != nullptr ? context : &LumDebugContext::Default(), std::memory_order_release);
}

void LumDebug::WriteLine(std::string_view routine, LumLogLevel level, std::string_view format,
                         const LumFormatArg* args) {
    LumDebugContext& context = *context_.load(std::memory_order_acquire);
    try {
        std::string text(routine);
        text += routine.empty() ? "" : ": ";
        LumAppendFormatted(text, format, args);
        context.Write(level, name_.View(), text);
        if (level == LumLogLevel::kError) {
            RunErrorAction(errorAction_.load(), LumString(std::move(text)));
        }
    } catch (const std::exception&) {
        context.NoteMissing();
    }
}

LumDebug& LumHostDebug() {
    alignas(LumDebug) static unsigned char place[sizeof(LumDebug)];
    static auto* const debug = new (place) LumDebug("Host", "The host's own libraries");
    return *debug;
}
