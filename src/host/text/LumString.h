#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "host/text/LumApi.h"
#include "host/text/LumFormat.h"

/// How the bytes of a text are to be read. The host knows one encoding.
enum class LumEncoding : uint8_t { kUtf8 };

/// Owned 8-bit text, UTF-8 by convention; any byte may stand in it, the null byte included. Operations that
/// return a LumString return a new one. An object belongs to one thread at a time; several threads may read
/// one that nobody changes, except through GetTCHAR.
class LUM_API LumString {
public:
    /// What FindFirst answers when there is nothing to be found.
    static constexpr std::size_t kNotFound = std::string::npos;
    /// The length that stands for the whole text.
    static constexpr uint32_t kWholeText = 0xFFFFFFFF;

    LumString() noexcept = default;
    /// Copies `text`; null counts as empty.
    // NOLINTNEXTLINE(google-explicit-constructor): texts are written as literals all over the host.
    LumString(const char* text) : text_(text != nullptr ? text : "") {}
    /// Copies the bytes of `text`, null bytes included.
    explicit LumString(std::string_view text) : text_(text) {}
    explicit LumString(std::string&& text) noexcept : text_(std::move(text)) {}
    LumString(const LumString& other) : text_(other.text_) {}
    LumString(LumString&& other) noexcept : text_(std::move(other.text_)) { other.Clear(); }
    ~LumString() = default;

    LumString& operator=(const LumString& other);
    LumString& operator=(LumString&& other) noexcept;
    LumString& operator=(const char* text);

    void SetTo(const LumString& other) { *this = other; }
    void SetTo(const char* text) { *this = text; }
    /// Takes wide text of 32-bit characters. What is not a Unicode character becomes U+FFFD; null counts as
    /// empty.
    void SetToTCHAR(const wchar_t* text);

    LumString& operator+=(const LumString& other) { return Append(other); }
    LumString& operator+=(const char* text) { return Append(text); }
    [[nodiscard]] LumString operator+(const LumString& other) const;
    [[nodiscard]] LumString operator+(const char* text) const;

    LumString& Append(const LumString& other, uint32_t length = kWholeText,
                      LumEncoding encoding = LumEncoding::kUtf8);
    /// Appends the first `length` bytes of `text`, or all of it where it is shorter. Null appends nothing.
    LumString& Append(const char* text, uint32_t length = kWholeText,
                      LumEncoding encoding = LumEncoding::kUtf8);
    /// Appends bytes as they are.
    LumString& Append(std::string_view text);

    /// Replaces the content by `format` filled with `args`, which may refer to this very text. %S takes a
    /// LumString, %s a C text, %d, %u and %ld whole numbers, %f a double; the compiler refuses what does not
    /// fit.
    template <class... Args>
    void Printf(LumFormatFor<Args...> format, const Args&... args) {
        const LumFormatArg list[] = {LumMakeFormatArg(args)..., LumMakeFormatArg(0)};
        std::string text;
        LumAppendFormatted(text, format.Text(), list);
        Replace(std::move(text));
    }

    /// The text, null-terminated; valid until this object changes or goes.
    [[nodiscard]] const char* GetString() const noexcept { return text_.c_str(); }
    [[nodiscard]] std::string_view View() const noexcept { return text_; }
    /// The text as 32-bit wide characters, valid until this object changes or goes. Bytes that are not UTF-8
    /// show as U+FFFD. The view is made at the first call, so that call must not run on two threads at once.
    [[nodiscard]] const wchar_t* GetTCHAR() const;

    [[nodiscard]] std::size_t GetLength() const noexcept { return text_.size(); }
    [[nodiscard]] bool IsEmpty() const noexcept { return text_.empty(); }
    /// At most `length` bytes from `start`; empty where `start` lies after the end.
    [[nodiscard]] LumString GetSubstring(std::size_t start, std::size_t length) const;
    /// Position of the first occurrence of `text` at or after `start`, or kNotFound. `ignoreCase` folds the
    /// letters A to Z.
    [[nodiscard]] std::size_t FindFirst(const LumString& text, std::size_t start = 0,
                                        bool ignoreCase = false) const;
    /// Inserts `text` before `position`; a position after the end appends.
    void Insert(std::size_t position, const LumString& text);
    /// Replaces the first occurrence of `from`, or nothing where there is none or `from` is empty; says
    /// whether it did.
    bool ReplaceFirst(const LumString& from, const LumString& to, bool ignoreCase = false);
    /// Replaces every occurrence of `from`, left to right, never inside what it has put in; returns their
    /// number.
    std::size_t ReplaceAll(const LumString& from, const LumString& to, bool ignoreCase = false);
    /// Drops blanks, tabs and line ends at both ends.
    void Trim();
    /// The whole number at the start of the text, after blanks; 0 where there is none. Numbers outside 32
    /// bits stop at the nearest end of the range.
    [[nodiscard]] int32_t ToInt() const;

    [[nodiscard]] bool operator==(const LumString& other) const noexcept { return text_ == other.text_; }
    [[nodiscard]] bool operator==(const char* text) const noexcept {
        return View() == std::string_view(text != nullptr ? text : "");
    }
    /// Byte by byte, bytes taken as unsigned.
    [[nodiscard]] bool operator<(const LumString& other) const noexcept { return text_ < other.text_; }
    /// Whole-text comparison; with `matchCase` off, the letters A to Z are folded.
    [[nodiscard]] bool IsEqualTo(const LumString& text, bool matchCase) const;

    /// Empties the text and keeps its memory.
    void Clear() noexcept;

private:
    void Replace(std::string&& text) noexcept;

    std::string text_;
    mutable std::unique_ptr<std::wstring> wide_;
};

inline LumFormatArg LumMakeFormatArg(const LumString& value) {
    return {.string = value.View()};
}
