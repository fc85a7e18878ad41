#include "machine/packages/PackageSource.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <memory>
#include <sstream>
#include <string_view>
#include <tuple>
#include <utility>

#include <sys/inotify.h>
#include <unistd.h>

#include "host/file/LumFile.h"
#include "host/text/LumSystemError.h"
#include "machine/packages/PackageLine.h"
#include "machine/source/FieldText.h"
#include "machine/source/MachineLog.h"
#include "machine/source/RecordId.h"

namespace {

/// How many bytes of a file tell it from others: at its beginning, and before the place in it.
constexpr std::size_t kDigestBytes = 256;
/// A turn ends after so many lines, whatever they say.
constexpr std::size_t kMaxLinesATurn = 5000;
constexpr std::size_t kMaxLinesASecond = 10'000;
/// Where the system does not tell of changes the log is looked at this often.
constexpr uint32_t kLookMs = 300'000;
/// "2026-11-21 16:05:27"
constexpr std::size_t kTimeLength = 19;

LumString DirectoryOf(const LumString& path) {
    const std::size_t slash = path.View().rfind('/');
    return slash == std::string_view::npos ? LumString(".")
                                           : path.GetSubstring(0, std::max<std::size_t>(slash, 1));
}

std::string_view NameOf(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// A name of the log's files taken apart: the older, the lower.
struct Rotation {
    bool isDated = false;  ///< "-20261121" rather than ".1"
    std::string date;
    uint32_t number = 0;  ///< 0 is the log itself
    std::string name;

    [[nodiscard]] auto Age() const { return std::make_tuple(!isDated, date, -static_cast<int64_t>(number)); }
};

/// False for a name that is not one of the log called `log`.
bool ParseRotation(std::string_view name, std::string_view log, Rotation& rotation) {
    if (!name.starts_with(log)) {
        return false;
    }
    rotation.name = name;
    std::string_view suffix = name.substr(log.size());
    if (suffix.empty()) {
        return true;
    }
    if (suffix.ends_with(".gz")) {
        suffix.remove_suffix(3);
    }
    if (suffix.size() < 2 || (suffix[0] != '.' && suffix[0] != '-')) {
        return false;
    }
    rotation.isDated = suffix[0] == '-';
    rotation.date = rotation.isDated ? suffix.substr(1) : std::string_view();
    const auto [stop, failure] =
        std::from_chars(suffix.data() + 1, suffix.data() + suffix.size(), rotation.number);
    if (rotation.isDated) {
        rotation.number = 0;
    }
    return failure == std::errc() && stop == suffix.data() + suffix.size();
}

}  // namespace

/// "<offset> <begin of the second> <digest of the file's beginning> <digest of what stands before the
/// offset>"
struct PackageSource::Place {
    uint64_t offset = 0;
    uint64_t secondBegin = 0;
    std::string head;
    std::string tail;

    [[nodiscard]] static bool Parse(const std::string& text, Place& place) {
        std::istringstream words(text);
        return static_cast<bool>(words >> place.offset >> place.secondBegin >> place.head >> place.tail) &&
               place.secondBegin <= place.offset && place.offset > 0;
    }
};

PackageSource::PackageSource(const LumString& log, std::time_t oldest) : log_(log), oldest_(oldest) {}

uint32_t PackageSource::GetWaitMs() const {
    return kLookMs;
}

bool PackageSource::Open(LumString& error) {
    file_.reset();
    position_.clear();
    fileWatch_ = -1;
    if (ListFiles().empty()) {
        error.Printf("%S: there is no such log", log_);
        return false;
    }
    notify_ = FileDescriptor(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    // Without the system's word on changes, GetWaitMs says how late they are seen.
    if (notify_.IsOpen() && ::inotify_add_watch(notify_.Get(), DirectoryOf(log_).GetString(),
                                                IN_CREATE | IN_MOVED_TO | IN_ONLYDIR) < 0) {
        MachineDebug.WarningWithNL("%s: changes of the log are seen every %u s only: %S", GetName(),
                                   kLookMs / 1000, LumSystemErrorText());
    }
    return true;
}

bool PackageSource::ReadSince(const std::string& position, std::size_t limit, SourceBatch& batch,
                              LumString& error) {
    ForgetNews();
    if (!EnsurePlace(position, batch, error)) {
        return false;
    }
    if (batch.begunAnew) {
        return true;
    }
    WatchFile();
    ReadLines(limit, batch);
    batch.position = PositionText();
    position_ = batch.position;
    if (!batch.more && skipped_ > 0) {
        MachineDebug.PrintWithNL("%s: %s lines are older than what is wanted, and were left out", GetName(),
                                 std::to_string(std::exchange(skipped_, 0)).c_str());
    }
    return true;
}

bool PackageSource::EnsurePlace(const std::string& position, SourceBatch& batch, LumString& error) {
    const bool isThere = file_ != nullptr && !isAstray_ && position == position_ && !IsCut();
    if (isThere) {
        return true;
    }
    file_.reset();
    isAstray_ = false;
    if (position.empty()) {
        return OpenOldest(error);
    }
    Place place;
    std::vector<LumString> files = ListFiles();
    // What was read last is most often the newest.
    std::reverse(files.begin(), files.end());
    if (Place::Parse(position, place) &&
        std::any_of(files.begin(), files.end(), [&](const LumString& path) { return OpenAt(path, place); })) {
        return true;
    }
    if (files.empty()) {
        error.Printf("%S: the log has gone", log_);
        return false;
    }
    MachineDebug.PrintWithNL("%s: the log was replaced, and is compared with the events from its beginning",
                             GetName());
    batch.begunAnew = true;
    batch.more = true;
    return true;
}

bool PackageSource::OpenOldest(LumString& error) {
    for (const LumString& path : ListFiles()) {
        file_ = std::make_unique<LogFile>();
        second_.clear();
        if (file_->Open(path, error)) {
            return true;
        }
        MachineDebug.WarningWithNL("%s: a file of the log is left out, %S", GetName(), error);
    }
    file_.reset();
    error.Printf("%S: no file of the log can be read", log_);
    return false;
}

bool PackageSource::OpenAt(const LumString& path, const Place& place) {
    auto file = std::make_unique<LogFile>();
    LumString ignored;
    if (!file->Open(path, ignored) ||
        file->DigestBefore(std::min<uint64_t>(place.offset, kDigestBytes), kDigestBytes) != place.head ||
        file->DigestBefore(place.offset, kDigestBytes) != place.tail || !file->Seek(place.secondBegin)) {
        return false;
    }
    file_ = std::move(file);
    second_.clear();
    // The lines of the second in which the place lies tell how often each of them has been.
    std::string line;
    for (uint64_t begin = file_->GetOffset(); begin < place.offset && file_->NextLine(line);
         begin = file_->GetOffset()) {
        static_cast<void>(CountLine(line, begin));
    }
    return file_->Seek(place.offset);
}

void PackageSource::ReadLines(std::size_t limit, SourceBatch& batch) {
    std::string line;
    for (std::size_t lines = 0; batch.events.size() < limit && lines < kMaxLinesATurn; ++lines) {
        const uint64_t begin = file_->GetOffset();
        if (file_->NextLine(line)) {
            TakeLine(line, begin, batch);
        } else if (!GoToNextFile(batch)) {
            return;
        }
    }
    batch.more = true;
}

bool PackageSource::GoToNextFile(SourceBatch& batch) {
    const std::vector<LumString> files = ListFiles();
    const auto isCurrent = [&](const LumString& path) { return file_->IsAt(path); };
    auto found = std::find_if(files.begin(), files.end(), isCurrent);
    if (found == files.end()) {
        // Compressed or deleted meanwhile: its place is looked for by its content.
        isAstray_ = true;
        batch.more = true;
        return false;
    }
    std::string line;
    LumString ignored;
    for (++found; found != files.end(); ++found) {
        auto next = std::make_unique<LogFile>();
        // A file without a whole line has no position yet.
        if (!next->Open(*found, ignored) || !next->NextLine(line) || !next->Seek(0)) {
            continue;
        }
        const uint64_t begin = file_->GetOffset();
        if (file_->TakeTornLine(line)) {
            TakeLine(line, begin, batch);
        }
        file_ = std::move(next);
        second_.clear();
        return true;
    }
    return false;
}

void PackageSource::TakeLine(std::string_view line, uint64_t begin, SourceBatch& batch) {
    PackageLine parts;
    const uint32_t times = CountLine(line, begin);
    if (times == 0 || !ParsePackageLine(line, parts)) {
        return;
    }
    const std::time_t time = TimeOfLine(line);
    if (time < oldest_) {
        ++skipped_;
        return;
    }
    MachineEvent event;
    event.model = models::kPackageHistory;
    SetIdentity(event, RecordId(std::to_string(times) + " " + std::string(line)),
                FieldTime(time, std::time(nullptr)));
    event.params.SetString("Action", FieldText(parts.action));
    event.params.SetString("Package", FieldText(parts.package));
    SetKnownText(event, "Architecture", parts.architecture);
    event.params.SetString("OldVersion", FieldText(parts.oldVersion));
    event.params.SetString("Version", FieldText(parts.version));
    batch.events.push_back(std::move(event));
}

uint32_t PackageSource::CountLine(std::string_view line, uint64_t begin) {
    const std::string_view second = line.substr(0, kTimeLength);
    if (second != second_) {
        second_ = second;
        secondBegin_ = begin;
        timesInSecond_.clear();
    }
    PackageLine parts;
    if (!ParsePackageLine(line, parts)) {
        return 0;
    }
    // No machine does so much in a second: somebody has written these lines, and the same line counts once.
    if (timesInSecond_.size() >= kMaxLinesASecond) {
        timesInSecond_.clear();
    }
    return ++timesInSecond_[RecordId(line)];
}

std::string PackageSource::PositionText() {
    const uint64_t offset = file_->GetOffset();
    if (offset == 0) {
        return position_;
    }
    const std::string head = file_->DigestBefore(std::min<uint64_t>(offset, kDigestBytes), kDigestBytes);
    const std::string tail = file_->DigestBefore(offset, kDigestBytes);
    std::ostringstream text;
    text << offset << ' ' << std::min(secondBegin_, offset) << ' ' << head << ' ' << tail;
    isAstray_ = isAstray_ || !file_->Seek(offset);
    return text.str();
}

std::vector<LumString> PackageSource::ListFiles() const {
    std::vector<Rotation> rotations;
    const LumString directory = DirectoryOf(log_);
    const std::unique_ptr<LumDirectory, decltype(&CloseDirectory)> listing(OpenDirectory(directory),
                                                                           CloseDirectory);
    if (listing == nullptr) {
        return {};
    }
    for (LumString name; ReadDirectory(listing.get(), name);) {
        Rotation rotation;
        if (ParseRotation(name.View(), NameOf(log_.View()), rotation)) {
            rotations.push_back(std::move(rotation));
        }
    }
    // While a file is being compressed both forms are there; the plain one, which sorts first, is whole.
    std::sort(rotations.begin(), rotations.end(), [](const Rotation& one, const Rotation& other) {
        return std::make_pair(one.Age(), one.name) < std::make_pair(other.Age(), other.name);
    });
    const auto isSame = [](const Rotation& one, const Rotation& other) { return one.Age() == other.Age(); };
    rotations.erase(std::unique(rotations.begin(), rotations.end(), isSame), rotations.end());
    std::vector<LumString> paths;
    paths.reserve(rotations.size());
    for (const Rotation& rotation : rotations) {
        paths.push_back(directory + "/" + rotation.name.c_str());
    }
    return paths;
}

void PackageSource::WatchFile() {
    if (!notify_.IsOpen()) {
        return;
    }
    const int watch = ::inotify_add_watch(notify_.Get(), log_.GetString(), IN_MODIFY);
    if (fileWatch_ >= 0 && watch != fileWatch_) {
        // The watch is gone by itself where the file was deleted.
        static_cast<void>(::inotify_rm_watch(notify_.Get(), fileWatch_));
    }
    fileWatch_ = watch;
}

void PackageSource::ForgetNews() const {
    // What the messages say does not matter: the files themselves are looked at.
    std::array<char, 4096> news{};
    while (notify_.IsOpen() && ::read(notify_.Get(), news.data(), news.size()) > 0) {
    }
}

bool PackageSource::IsCut() {
    Place place;
    if (!Place::Parse(position_, place) || file_->IsCompressed()) {
        return false;
    }
    const uint64_t offset = file_->GetOffset();
    const bool isSame = file_->DigestBefore(place.offset, kDigestBytes) == place.tail;
    return !isSame || !file_->Seek(offset);
}
