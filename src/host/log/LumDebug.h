#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "host/text/LumApi.h"
#include "host/text/LumFormat.h"
#include "host/text/LumString.h"

/// The four levels, lowest first.
enum class LumLogLevel : uint8_t { kTrace, kPrint, kWarning, kError };

/// "trace", "print", "warning" or "error".
[[nodiscard]] LUM_API std::string_view LumLogLevelName(LumLogLevel level);
/// The level of that name; false, and `level` untouched, for any other text.
[[nodiscard]] LUM_API bool LumLogLevelFromName(std::string_view name, LumLogLevel& level);

/// Where log lines go: standard error, with the priority of sd-daemon(3) before each where that is the
/// journal, and a rotated file once OpenFile was called. A line is the local time with milliseconds and zone,
/// the level, the name of the logger and the text, separated by blanks; control characters of the text are
/// written as escapes, so that a message is always one line. All operations may be called from any thread.
class LUM_API LumDebugContext {
public:
    LumDebugContext();
    LumDebugContext(const LumDebugContext&) = delete;
    LumDebugContext& operator=(const LumDebugContext&) = delete;
    ~LumDebugContext();

    /// Also writes to the file at `path` (mode 0600), which is set aside as path.1, path.2, ... each time it
    /// has grown to `maxBytes`; `maxFiles` of those are kept. A file that was removed is made anew with the
    /// next line, and its directory too. False, with the reason in `error`, where the file cannot be opened,
    /// or is a link, or has further names: others could have put it there.
    [[nodiscard]] bool OpenFile(const LumString& path, std::size_t maxBytes, std::size_t maxFiles,
                                LumString& error);

    /// Opens the file at its path anew, for whoever has moved it away. False, with the reason in `error`,
    /// where that fails; then it is tried again with each line. True where there is no file.
    [[nodiscard]] bool ReopenFile(LumString& error);

    /// Lines below `level` are dropped. At first it is kPrint.
    void SetLevel(LumLogLevel level) { level_.store(level, std::memory_order_relaxed); }
    [[nodiscard]] bool IsEnabled(LumLogLevel level) const {
        return level >= level_.load(std::memory_order_relaxed);
    }

    /// Writes one line whatever its level. Throws nothing: where there is no memory for a line it is left
    /// out, and the next one that is written comes after a warning that says how many were.
    void Write(LumLogLevel level, std::string_view logger, std::string_view text);

    /// Counts a line as left out.
    void NoteMissing() { missing_.fetch_add(1, std::memory_order_relaxed); }

    /// The context of loggers that were given none: standard error alone.
    [[nodiscard]] static LumDebugContext& Default();

private:
    struct Sinks;

    void WriteLine(LumLogLevel level, std::string_view logger, std::string_view text);
    void TellMissing();

    std::unique_ptr<Sinks> sinks_;
    std::atomic<LumLogLevel> level_{LumLogLevel::kPrint};
    std::atomic<uint64_t> missing_{0};
};

/// A named logger. All operations may be called from any thread; the setters are meant for the start. No line
/// that is logged throws, for want of memory or of anything else: what a caller has done before is done, and
/// what it does next does not depend on its log.
class LUM_API LumDebug {
public:
    using ErrorAction = void (*)(const LumString& text);

    LumDebug(const char* name, const char* description);
    LumDebug(const LumDebug&) = delete;
    LumDebug& operator=(const LumDebug&) = delete;
    ~LumDebug() = default;

    [[nodiscard]] const LumString& GetName() const { return name_; }
    [[nodiscard]] const LumString& GetDescription() const { return description_; }

    /// From now on lines go to `context`, which must outlive the logger; null means the default one.
    void SetContext(LumDebugContext* context);

    /// From now on the text of every line at error level is also passed to `action`, on the thread that
    /// logged it and after the line was written. An error that the action logs itself does not call it again.
    /// Null ends it.
    void SetErrorActionInvokeAddress(ErrorAction action) { errorAction_.store(action); }

    template <class... Args>
    void TraceWithNL(LumFormatFor<Args...> format, const Args&... args) {
        Log(LumLogLevel::kTrace, format.Text(), args...);
    }
    template <class... Args>
    void PrintWithNL(LumFormatFor<Args...> format, const Args&... args) {
        Log(LumLogLevel::kPrint, format.Text(), args...);
    }
    template <class... Args>
    void WarningWithNL(LumFormatFor<Args...> format, const Args&... args) {
        Log(LumLogLevel::kWarning, format.Text(), args...);
    }
    template <class... Args>
    void ErrorWithNL(LumFormatFor<Args...> format, const Args&... args) {
        Log(LumLogLevel::kError, format.Text(), args...);
    }

private:
    friend class LumRoutine;

    template <class... Args>
    void Log(LumLogLevel level, std::string_view format, const Args&... args) {
        LogFor(std::string_view(), level, format, args...);
    }
    template <class... Args>
    void LogFor(std::string_view routine, LumLogLevel level, std::string_view format, const Args&... args) {
        if (context_.load(std::memory_order_acquire)->IsEnabled(level)) {
            const LumFormatArg list[] = {LumMakeFormatArg(args)..., LumMakeFormatArg(0)};
            WriteLine(routine, level, format, list);
        }
    }
    void WriteLine(std::string_view routine, LumLogLevel level, std::string_view format,
                   const LumFormatArg* args);

    const LumString name_;
    const LumString description_;
    std::atomic<LumDebugContext*> context_;
    std::atomic<ErrorAction> errorAction_{nullptr};
};

/// One routine's way to a logger: each line begins with the routine's name and ": ". A constant, made where
/// the routine is; the logger must outlive it and need not be there before it.
class LumRoutine {
public:
    constexpr LumRoutine(LumDebug& debug, std::string_view name) : debug_(debug), name_(name) {}

    [[nodiscard]] constexpr std::string_view GetName() const { return name_; }

    template <class... Args>
    void Trace(LumFormatFor<Args...> format, const Args&... args) const {
        debug_.LogFor(name_, LumLogLevel::kTrace, format.Text(), args...);
    }
    template <class... Args>
    void Print(LumFormatFor<Args...> format, const Args&... args) const {
        debug_.LogFor(name_, LumLogLevel::kPrint, format.Text(), args...);
    }
    template <class... Args>
    void Warning(LumFormatFor<Args...> format, const Args&... args) const {
        debug_.LogFor(name_, LumLogLevel::kWarning, format.Text(), args...);
    }
    template <class... Args>
    void Error(LumFormatFor<Args...> format, const Args&... args) const {
        debug_.LogFor(name_, LumLogLevel::kError, format.Text(), args...);
    }

private:
    LumDebug& debug_;
    std::string_view name_;
};

/// The logger of the host libraries themselves ("Host"): for what a library has to say where no caller's
/// logger is at hand. The agent core gives it its context.
[[nodiscard]] LUM_API LumDebug& LumHostDebug();
