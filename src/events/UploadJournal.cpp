#include "events/UploadJournal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "host/container/LumContainer.h"
#include "host/file/FileDescriptor.h"
#include "host/file/LumFile.h"
#include "store/Paths.h"

namespace {

constexpr std::size_t kMaxFileBytes = std::size_t{16} << 20U;
/// Begins no model's name.
constexpr char kHidden = '.';
/// What the host's file routines call a file that is not whole yet.
constexpr std::string_view kUnfinished = ".lum-";

constexpr const char* kHandedOver = "HandedOver";
constexpr const char* kEvents = "Events";
constexpr const char* kLastId = "LastId";
constexpr const char* kStarts = "Starts";
constexpr const char* kEnds = "Ends";

LumString ReasonText(const LumString& path) {
    return path + ": " + std::generic_category().message(errno).c_str();
}

bool ReadNumber(const LumContainer& content, const char* name, int64_t& number) {
    const LumString* const text = content.FindString(name);
    if (text == nullptr) {
        return false;
    }
    const std::string_view digits = text->View().substr(0, text->View().find(' '));
    const auto [stop, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return failure == std::errc() && stop == digits.data() + digits.size();
}

bool ReadWindows(const LumContainer& content, std::vector<EventWindow>& windows) {
    const uint32_t count = content.CountPositions(kStarts);
    for (uint32_t i = 0; i < count; ++i) {
        EventWindow window{};
        if (!content.GetInt32(kStarts, window.start, i) || !content.GetInt32(kEnds, window.end, i)) {
            return false;
        }
        windows.push_back(window);
    }
    return count > 0 && content.CountPositions(kEnds) == count;
}

}  // namespace

UploadJournal::Found UploadJournal::Load(LumString& error) {
    const LumString path = UploadJournalFile(model_);
    std::string text;
    if (!FileRead(path, kMaxFileBytes, text, error)) {
        return errno == ENOENT || errno == ENOTDIR ? Found::kNothing : Found::kUnreadable;
    }
    if (Parse(text)) {
        return Found::kRead;
    }
    LumString aside;
    aside.Printf("%S/.damaged-%d", UploadsDirectory(), static_cast<int32_t>(::getpid()));
    error = path + " is not a journal";
    if (std::rename(path.GetString(), aside.GetString()) == 0) {
        error += LumString("; it is now ") + aside;
    }
    return Found::kDamaged;
}

bool UploadJournal::Parse(std::string_view text) {
    LumContainer content;
    LumString unused;
    int64_t handedOver = 0;
    int64_t events = 0;
    int64_t lastId = 0;
    std::vector<EventWindow> windows;
    if (!content.FromJson(text, unused) || !ReadNumber(content, kHandedOver, handedOver) ||
        !ReadNumber(content, kEvents, events) || !ReadNumber(content, kLastId, lastId) ||
        !ReadWindows(content, windows)) {
        return false;
    }
    windows_ = std::move(windows);
    handedOver_ = static_cast<uint32_t>(handedOver);
    extent_.reset();
    if (events >= 0) {
        extent_ = UploadExtent{static_cast<uint32_t>(events), lastId};
    }
    isStored_ = true;
    return true;
}

std::string UploadJournal::Head() const {
    std::array<char, 128> head{};
    const int64_t events = extent_.has_value() ? int64_t{extent_->events} : -1;
    const int64_t lastId = extent_.has_value() ? extent_->lastId : 0;
    std::snprintf(head.data(), head.size(), R"({"%s":"%-10u","%s":"%-10ld","%s":"%-20ld",)", kHandedOver,
                  handedOver_, kEvents, static_cast<long>(events), kLastId, static_cast<long>(lastId));
    return head.data();
}

bool UploadJournal::Rewrite(LumString& error) {
    isStored_ = false;  // also where memory runs out on the way
    const LumString path = UploadJournalFile(model_);
    if (windows_.empty()) {
        isStored_ = FileDelete(path, true);
        if (!isStored_) {
            error = ReasonText(path);
        }
        return isStored_;
    }
    LumContainer content;
    for (uint32_t i = 0; i < windows_.size(); ++i) {
        content.SetInt32(kStarts, windows_[i].start, i);
        content.SetInt32(kEnds, windows_[i].end, i);
    }
    LumString reason;
    isStored_ = PathCreate(UploadsDirectory()) &&
                FileReplace(path, Head() + content.ToJson().substr(1) + "\n", reason);
    if (!isStored_) {
        error = path + ": " + (reason.IsEmpty() ? ReasonText(UploadsDirectory()) : reason);
    }
    return isStored_;
}

bool UploadJournal::Overwrite(bool sync, LumString& error) {
    if (!std::exchange(isStored_, false)) {
        return Rewrite(error);
    }
    const LumString path = UploadJournalFile(model_);
    const std::string head = Head();
    const FileDescriptor file(open(path.GetString(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    isStored_ = file.IsOpen() &&
                pwrite(file.Get(), head.data(), head.size(), 0) == static_cast<ssize_t>(head.size()) &&
                (!sync || fdatasync(file.Get()) == 0);
    if (!isStored_) {
        error = ReasonText(path);
    }
    return isStored_;
}

bool UploadJournal::Append(EventWindow window, LumString& error) {
    // What was not begun yet grows; a window of its own stays one, since the borders of its files stand.
    const bool isBegun = windows_.size() == 1 && extent_.has_value();
    if (!windows_.empty() && !isBegun && windows_.back().end == window.start) {
        windows_.back().end = window.end;
    } else {
        windows_.push_back(window);
    }
    return Rewrite(error);
}

bool UploadJournal::SetExtent(const UploadExtent& extent, LumString& error) {
    extent_ = extent;
    return Overwrite(true, error);
}

bool UploadJournal::AddHandedOver(uint32_t events, LumString& error) {
    handedOver_ += events;
    // The last one may be forgotten in a loss of power, as the file may come twice.
    const bool isLast = windows_.size() == 1 && extent_.has_value() && handedOver_ >= extent_->events;
    return Overwrite(!isLast, error);
}

bool UploadJournal::FinishFirst(LumString& error) {
    windows_.erase(windows_.begin());
    extent_.reset();
    handedOver_ = 0;
    return Rewrite(error);
}

bool UploadJournal::ForgetAfter(LumSeconds mark, LumString& error) {
    if (windows_.empty() || windows_.back().end <= mark) {
        return Store(error);
    }
    if (windows_.front().end > mark) {
        extent_.reset();
        handedOver_ = 0;
    }
    std::erase_if(windows_, [mark](const EventWindow& window) { return window.start >= mark; });
    if (!windows_.empty()) {
        windows_.back().end = std::min(windows_.back().end, mark);
    }
    return Rewrite(error);
}

bool UploadJournal::Store(LumString& error) {
    return isStored_ || Rewrite(error);
}

bool ListUploadJournals(std::vector<LumString>& models) {
    const std::unique_ptr<LumDirectory, decltype(&CloseDirectory)> listing(OpenDirectory(UploadsDirectory()),
                                                                           CloseDirectory);
    if (listing == nullptr) {
        return errno == ENOENT;
    }
    for (LumString name; ReadDirectory(listing.get(), name);) {
        if (name.View().starts_with(kUnfinished)) {
            FileDelete(PathInDirectory(UploadsDirectory(), name), true);
        } else if (name.View().front() != kHidden) {
            models.push_back(name);
        }
    }
    return true;
}
