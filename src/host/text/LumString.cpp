#include "host/text/LumString.h"

#include <algorithm>
#include <cctype>
#include <limits>

#include "host/text/LumPattern.h"
#include "host/text/LumUtf8.h"

namespace {

constexpr std::string_view kBlanks = " \t\r\n";

bool SameFolded(char a, char b) {
    return LumFoldCase(a) == LumFoldCase(b);
}

std::size_t Find(std::string_view text, std::string_view wanted, std::size_t start, bool ignoreCase) {
    if (!ignoreCase) {
        return text.find(wanted, start);
    }
    if (start > text.size()) {
        return LumString::kNotFound;
    }
    const char* const end = text.data() + text.size();
    const char* const found = std::search(text.data() + start, end, wanted.begin(), wanted.end(), SameFolded);
    if (found == end && !wanted.empty()) {
        return LumString::kNotFound;
    }
    return static_cast<std::size_t>(found - text.data());
}

}  // namespace

LumString& LumString::operator=(const LumString& other) {
    if (this != &other) {
        text_ = other.text_;
        wide_.reset();
    }
    return *this;
}

LumString& LumString::operator=(LumString&& other) noexcept {
    if (this != &other) {
        Replace(std::move(other.text_));
        other.Clear();
    }
    return *this;
}

LumString& LumString::operator=(const char* text) {
    Replace(std::string(text != nullptr ? text : ""));
    return *this;
}

void LumString::SetToTCHAR(const wchar_t* text) {
    std::string utf8;
    for (; text != nullptr && *text != 0; ++text) {
        LumAppendUtf8(utf8, static_cast<char32_t>(*text));
    }
    Replace(std::move(utf8));
}

LumString LumString::operator+(const LumString& other) const {
    LumString sum(*this);
    sum.Append(other);
    return sum;
}

LumString LumString::operator+(const char* text) const {
    LumString sum(*this);
    sum.Append(text);
    return sum;
}

LumString& LumString::Append(const LumString& other, uint32_t length, LumEncoding /*encoding*/) {
    return Append(length == kWholeText ? other.View() : other.View().substr(0, length));
}

LumString& LumString::Append(const char* text, uint32_t length, LumEncoding encoding) {
    if (text == nullptr) {
        return *this;
    }
    return length == kWholeText ? Append(std::string_view(text)) : Append(LumString(text), length, encoding);
}

LumString& LumString::Append(std::string_view text) {
    text_.append(text);
    wide_.reset();
    return *this;
}

const wchar_t* LumString::GetTCHAR() const {
    if (wide_ == nullptr) {
        auto wide = std::make_unique<std::wstring>();
        for (std::size_t i = 0; i < text_.size();) {
            wide->push_back(static_cast<wchar_t>(LumNextUtf8(text_, i)));
        }
        wide_ = std::move(wide);
    }
    return wide_->c_str();
}

LumString LumString::GetSubstring(std::size_t start, std::size_t length) const {
    return start < text_.size() ? LumString(View().substr(start, length)) : LumString();
}

std::size_t LumString::FindFirst(const LumString& text, std::size_t start, bool ignoreCase) const {
    return Find(text_, text.text_, start, ignoreCase);
}

void LumString::Insert(std::size_t position, const LumString& text) {
    text_.insert(std::min(position, text_.size()), text.text_);
    wide_.reset();
}

bool LumString::ReplaceFirst(const LumString& from, const LumString& to, bool ignoreCase) {
    const std::size_t at = from.IsEmpty() ? kNotFound : Find(text_, from.text_, 0, ignoreCase);
    if (at == kNotFound) {
        return false;
    }
    text_.replace(at, from.GetLength(), to.text_);
    wide_.reset();
    return true;
}

std::size_t LumString::ReplaceAll(const LumString& from, const LumString& to, bool ignoreCase) {
    std::size_t at = from.IsEmpty() ? kNotFound : Find(text_, from.text_, 0, ignoreCase);
    if (at == kNotFound) {
        return 0;
    }
    std::string replaced;
    std::size_t copied = 0;
    std::size_t count = 0;
    for (; at != kNotFound; at = Find(text_, from.text_, copied, ignoreCase)) {
        replaced.append(text_, copied, at - copied).append(to.text_);
        copied = at + from.GetLength();
        ++count;
    }
    replaced.append(text_, copied);
    Replace(std::move(replaced));
    return count;
}

void LumString::Trim() {
    const std::size_t last = text_.find_last_not_of(kBlanks);
    text_.erase(last == std::string::npos ? 0 : last + 1);
    text_.erase(0, std::min(text_.find_first_not_of(kBlanks), text_.size()));
    wide_.reset();
}

int32_t LumString::ToInt() const {
    std::size_t i = std::min(text_.find_first_not_of(kBlanks), text_.size());
    const bool negative = i < text_.size() && text_[i] == '-';
    if (i < text_.size() && (text_[i] == '-' || text_[i] == '+')) {
        ++i;
    }
    constexpr int64_t kMin = std::numeric_limits<int32_t>::min();
    constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
    int64_t value = 0;
    for (; i < text_.size() && text_[i] >= '0' && text_[i] <= '9' && value >= kMin && value <= kMax; ++i) {
        const int digit = text_[i] - '0';
        value = value * 10 + (negative ? -digit : digit);
    }
    return static_cast<int32_t>(std::clamp(value, kMin, kMax));
}

bool LumString::IsEqualTo(const LumString& text, bool matchCase) const {
    return matchCase
               ? text_ == text.text_
               : std::equal(text_.begin(), text_.end(), text.text_.begin(), text.text_.end(), SameFolded);
}

void LumString::Clear() noexcept {
    text_.clear();
    wide_.reset();
}

void LumString::Replace(std::string&& text) noexcept {
    text_ = std::move(text);
    wide_.reset();
}
