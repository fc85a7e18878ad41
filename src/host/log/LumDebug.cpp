#include "host/log/LumDebug.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/text/LumSystemError.h"
#include "host/text/LumUtf8.h"

namespace {

constexpr std::string_view kLevelNames[] = {"trace", "print", "warning", "error"};

/// The zone's offset at the very time of the line; spdlog's own %z may be seconds behind a change of it.
class ZoneFlag : public spdlog::custom_flag_formatter {
public:
    void format(const spdlog::details::log_msg& /*message*/, const std::tm& time,
                spdlog::memory_buf_t& out) override {
        const long minutes = time.tm_gmtoff / 60;
        char text[32];
        const int length = std::snprintf(text, sizeof text, "%c%02ld:%02ld", minutes < 0 ? '-' : '+',
                                         std::labs(minutes) / 60, std::labs(minutes) % 60);
        out.append(text, text + length);
    }

    [[nodiscard]] std::unique_ptr<custom_flag_formatter> clone() const override {
        return std::make_unique<ZoneFlag>();
    }
};

std::unique_ptr<spdlog::formatter> MakeFormatter() {
    auto formatter = std::make_unique<spdlog::pattern_formatter>();
    formatter->add_flag<ZoneFlag>('*').set_pattern("%Y-%m-%dT%H:%M:%S.%e%* %v");
    return formatter;
}

/// Appends lines to a file and sets it aside under numbered names when it is full.
class RotatedFile : public spdlog::sinks::base_sink<std::mutex> {
public:
    RotatedFile(std::string path, std::size_t maxBytes, std::size_t maxFiles)
        : path_(std::move(path)), maxBytes_(maxBytes), maxFiles_(maxFiles) {
        set_formatter(MakeFormatter());
    }
    RotatedFile(const RotatedFile&) = delete;
    RotatedFile& operator=(const RotatedFile&) = delete;
    ~RotatedFile() override { Close(); }

    /// False, with errno, where the file cannot be opened or is no regular file.
    bool Open() {
        const std::lock_guard<std::mutex> guard(mutex_);
        return Reopen();
    }

protected:
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        if (size_ > 0 && size_ + line.size() > maxBytes_) {
            Rotate();
        }
        if (fd_ < 0 && !Reopen()) {
            return;
        }
        const ssize_t written = write(fd_, line.data(), line.size());
        if (written == static_cast<ssize_t>(line.size())) {
            size_ += line.size();
        } else if (written > 0 && ftruncate(fd_, static_cast<off_t>(size_)) != 0) {
            // The disk is full and half a line stays: the next one will stand behind it.
            size_ += static_cast<std::size_t>(written);
        }
    }
    void flush_() override {}

private:
    bool Reopen() {
        Close();
        fd_ = open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600);
        struct stat status {};
        if (fd_ < 0 || fstat(fd_, &status) != 0) {
            return false;
        }
        if (!S_ISREG(status.st_mode)) {
            Close();
            errno = EINVAL;
            return false;
        }
        size_ = static_cast<std::size_t>(status.st_size);
        return fchmod(fd_, 0600) == 0;
    }

    void Close() {
        if (fd_ >= 0) {
            close(fd_);
            fd_ = -1;
        }
    }

    void Rotate() {
        Close();
        for (std::size_t i = maxFiles_; i > 0; --i) {
            const std::string from = i > 1 ? path_ + "." + std::to_string(i - 1) : path_;
            // A number that is not there yet is no failure, and for any other there is nobody to tell.
            static_cast<void>(std::rename(from.c_str(), (path_ + "." + std::to_string(i)).c_str()));
        }
        if (maxFiles_ == 0) {
            unlink(path_.c_str());
        }
    }

    const std::string path_;
    const std::size_t maxBytes_;
    const std::size_t maxFiles_;
    int fd_ = -1;
    std::size_t size_ = 0;
};

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
/// characters, those of the second range too, and bytes that are no UTF-8 become escapes.
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
    action(text);
    runningActions = running.outer;
}

}  // namespace

struct LumDebugContext::Sinks {
    spdlog::sinks::stderr_sink_mt standardError;
    std::mutex mutex;
    std::shared_ptr<RotatedFile> file;  // guarded by mutex
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

LumDebugContext::LumDebugContext() : sinks_(std::make_unique<Sinks>()) {
    sinks_->standardError.set_formatter(MakeFormatter());
}

LumDebugContext::~LumDebugContext() = default;

bool LumDebugContext::OpenFile(const LumString& path, std::size_t maxBytes, std::size_t maxFiles,
                               LumString& error) {
    auto file = std::make_shared<RotatedFile>(std::string(path.View()), maxBytes, maxFiles);
    if (!file->Open()) {
        error = LumSystemErrorText();
        return false;
    }
    const std::lock_guard<std::mutex> guard(sinks_->mutex);
    sinks_->file = std::move(file);
    return true;
}

void LumDebugContext::Write(LumLogLevel level, std::string_view logger, std::string_view text) {
    std::string line(LumLogLevelName(level));
    line += ' ';
    AppendPrintable(line, logger);
    line += ' ';
    AppendPrintable(line, text);
    const spdlog::details::log_msg message(spdlog::string_view_t(), spdlog::level::info, line);
    std::shared_ptr<RotatedFile> file;
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
    std::string text(routine);
    text += routine.empty() ? "" : ": ";
    LumAppendFormatted(text, format, args);
    context_.load(std::memory_order_acquire)->Write(level, name_.View(), text);
    if (level == LumLogLevel::kError) {
        RunErrorAction(errorAction_.load(), LumString(std::move(text)));
    }
}

LumDebug& LumHostDebug() {
    alignas(LumDebug) static unsigned char place[sizeof(LumDebug)];
    static auto* const debug = new (place) LumDebug("Host", "The host's own libraries");
    return *debug;
}
