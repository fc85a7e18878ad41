#include "filestore/Outbox.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "contract/FileStore.h"
#include "filestore/FileNames.h"
#include "host/file/FileDescriptor.h"
#include "host/file/LumFile.h"
#include "host/text/LumSha256.h"
#include "host/text/LumSystemError.h"

namespace {

/// What the host's file routines call a file that is not whole yet.
constexpr std::string_view kUnfinishedPrefix = ".lum-";
/// An outbox that is full is looked at again that often.
constexpr std::time_t kCountEverySeconds = 10;

/// "<path>: <what>", with the reason that `reason` gives where it is not 0.
LumString Sentence(const LumString& path, std::string_view what, int reason = 0) {
    LumString text;
    text.Printf("%S: %S%s%S", path, what, reason != 0 ? ": " : "",
                reason != 0 ? LumSystemErrorText(reason) : LumString());
    return text;
}

bool Exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 || errno != ENOENT;
}

/// A file that is to be moved: open, and where it lies as a name in an open directory, so that nobody can put
/// something else on the way to it.
struct Source {
    FileDescriptor directory;  ///< not open: `name` is an absolute path
    std::string name;
    FileDescriptor file;
    struct stat status {};

    [[nodiscard]] int At() const { return directory.IsOpen() ? directory.Get() : AT_FDCWD; }
};

/// Neither a pipe nor a device is waited for.
constexpr int kReadFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

/// The part of `path` below the directory `top`, also where `top` is called by another name; empty where it
/// lies elsewhere.
std::string_view PartBelow(const LumString& path, const LumString& top) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(top.GetString(), nullptr), &std::free);
    for (const std::string_view known : {top.View(), std::string_view(real != nullptr ? real.get() : "")}) {
        if (!known.empty() && path.View().starts_with(known) && path.View().substr(known.size(), 1) == "/") {
            return path.View().substr(known.size() + 1);
        }
    }
    return {};
}

/// Walks down from `top` to the directory of `part`, name by name; false where something else than a
/// directory stands on the way.
bool WalkDown(const LumString& top, std::string_view part, Source& source) {
    source.directory = FileDescriptor(open(top.GetString(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    while (source.directory.IsOpen()) {
        const std::size_t slash = part.find('/');
        source.name = std::string(part.substr(0, slash));
        if (source.name.empty() || source.name == "." || source.name == "..") {
            return false;
        }
        if (slash == std::string_view::npos) {
            return true;
        }
        source.directory = FileDescriptor(openat(source.directory.Get(), source.name.c_str(),
                                                 O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        part.remove_prefix(slash + 1);
    }
    return false;
}

/// Finds and opens the file, if it is a regular one that lies at its path itself; false with the reason.
bool OpenSource(const ReceivedFile& file, Source& source, LumString& error) {
    const LumString& path = file.movePath;
    if (!path.View().starts_with('/') || path.View().find('\0') != std::string_view::npos) {
        error = Sentence(path, "it is not an absolute path");
        return false;
    }
    source.name = std::string(path.View());
    if (!file.confinedTo.IsEmpty() && !WalkDown(file.confinedTo, PartBelow(path, file.confinedTo), source)) {
        error = Sentence(path, "it does not lie below " + std::string(file.confinedTo.View()));
        return false;
    }
    source.file = FileDescriptor(openat(source.At(), source.name.c_str(), kReadFlags));
    if (!source.file.IsOpen()) {
        error = errno == ELOOP ? Sentence(path, "it is a symbolic link")
                               : Sentence(path, "it cannot be opened", errno);
        return false;
    }
    if (fstat(source.file.Get(), &source.status) != 0 || !S_ISREG(source.status.st_mode)) {
        error = Sentence(path, "it is not a regular file");
        return false;
    }
    return true;
}

/// FileRenameNew from or to a name in an open directory.
bool RenameNewAt(int fromAt, const std::string& from, int toAt, const std::string& to) {
    if (renameat2(fromAt, from.c_str(), toAt, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    return errno == EINVAL && linkat(fromAt, from.c_str(), toAt, to.c_str(), 0) == 0 &&
           unlinkat(fromAt, from.c_str(), 0) == 0;
}

/// A file that was brought into the outbox, and is taken out again unless it was kept.
class Placement {
public:
    Placement(const LumString& path, const Source& source, std::string to)
        : path_(path), source_(source), to_(std::move(to)) {}
    Placement(const Placement&) = delete;
    Placement& operator=(const Placement&) = delete;
    ~Placement() {
        if (isPlaced_) {
            TakeOut();
        }
    }

    /// Moves the file, or copies it where the outbox is on another file system.
    bool Place(LumString& error) {
        isPlaced_ = RenameNewAt(source_.At(), source_.name, AT_FDCWD, to_);
        if (isPlaced_) {
            struct stat placed {};
            // Whoever owns the source's directory may have put something else in its place meanwhile.
            if (lstat(to_.c_str(), &placed) != 0 || placed.st_ino != source_.status.st_ino ||
                placed.st_dev != source_.status.st_dev) {
                error = Sentence(path_, "it was replaced while it was moved");
                Undo(error);
                return false;
            }
            return true;
        }
        if (errno == EXDEV) {
            // Of the very file that was opened, whatever has its name now.
            const std::string opened = "/proc/self/fd/" + std::to_string(source_.file.Get());
            copied_ = FileCopy(LumString(opened), LumString(to_), true);
            isPlaced_ = copied_;
        }
        if (!isPlaced_) {
            error = Sentence(path_, "it cannot be moved to " + to_, errno);
        }
        return isPlaced_;
    }

    void Undo(LumString& error) {
        if (!TakeOut()) {
            error += LumString("; it stays at " + to_);
        }
    }

    /// Ends the move; false where it was a copy and the source cannot be deleted.
    bool Keep() {
        isPlaced_ = false;
        return !copied_ || unlinkat(source_.At(), source_.name.c_str(), 0) == 0;
    }

private:
    bool TakeOut() {
        isPlaced_ = false;
        return copied_ ? unlink(to_.c_str()) == 0 : RenameNewAt(AT_FDCWD, to_, source_.At(), source_.name);
    }

    const LumString path_;
    const Source& source_;
    const std::string to_;
    bool copied_ = false;
    bool isPlaced_ = false;
};

std::string Description(const ReceivedFile& file, const std::string& name, const std::string& checksum,
                        std::string_view receivedAt) {
    nlohmann::ordered_json json;
    json[kFileStoreFileType] = file.fileType.View();
    json[kFileStoreFileLabel] = file.fileLabel.View();
    json[kFileStoreFileName] = name;
    json[kFileStoreFileChecksum] = checksum;
    json[kFileStoreUpstream] = file.upstream;
    json[kFileStorePriority] = file.priority.value_or(Outbox::kDefaultPriority);
    json["ReceivedAt"] = receivedAt;
    return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string Outbox::PathOf(std::string_view name) const {
    return directory_ + "/" + std::string(name);
}

bool Outbox::Open(const LumString& directory, const LumString& numberPath, LeftOvers& leftOvers,
                  LumString& error) {
    directory_ = directory.View();
    numberPath_ = numberPath;
    const LumMutexLock lock(opening_);
    return OpenDirectories(leftOvers, error);
}

bool Outbox::OpenDirectories(LeftOvers& leftOvers, LumString& error) {
    const LumString directory(directory_);
    isOpen_ = false;
    uint64_t highest = 0;
    if (!PathCreate(directory)) {
        error = Sentence(directory, "it cannot be made", errno);
        return false;
    }
    if (!ScanDirectory(leftOvers, highest, error)) {
        return false;
    }
    LumString reason;
    if (!number_.Open(numberPath_, highest + 1, reason)) {
        leftOvers.errors.push_back(std::move(reason));
    }
    const LumMutexLock usage(usage_);
    bytes_ = CountBytes();
    isOpen_ = true;
    return true;
}

bool Outbox::EnsureOpen(LumString& error) {
    const LumMutexLock lock(opening_);
    if (isOpen_ && DirExists(LumString(directory_))) {
        return true;
    }
    LeftOvers unused;
    return !directory_.empty() && OpenDirectories(unused, error);
}

uint64_t Outbox::CountBytes() const {
    uint64_t bytes = 0;
    const std::unique_ptr<LumDirectory, decltype(&CloseDirectory)> listing(
        OpenDirectory(LumString(directory_)), CloseDirectory);
    for (LumString entry; ReadDirectory(listing.get(), entry);) {
        struct stat status {};
        if (lstat(PathOf(entry.View()).c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
            bytes += static_cast<uint64_t>(status.st_size);
        }
    }
    return bytes;
}

bool Outbox::HasRoomFor(const ReceivedFile& file, uint64_t bytes) {
    if (maxBytes_ == 0) {
        return true;
    }
    const uint64_t limit = file.fileType == kFileTypeEvents ? maxBytes_ : maxBytes_ / 4 * 3;
    const LumMutexLock lock(usage_);
    const std::time_t now = std::time(nullptr);
    if (bytes_ + bytes > limit && std::abs(now - countedAt_) >= kCountEverySeconds) {
        bytes_ = CountBytes();
        countedAt_ = now;
    }
    if (bytes_ + bytes > limit) {
        return false;
    }
    bytes_ += bytes;
    return true;
}

bool Outbox::ScanDirectory(LeftOvers& leftOvers, uint64_t& highest, LumString& error) {
    const std::unique_ptr<LumDirectory, decltype(&CloseDirectory)> listing(
        OpenDirectory(LumString(directory_)), CloseDirectory);
    if (listing == nullptr) {
        error = Sentence(LumString(directory_), "it cannot be read", errno);
        return false;
    }
    std::set<std::string> names;
    LumString entry;
    while (ReadDirectory(listing.get(), entry)) {
        names.emplace(entry.View());
    }
    for (const std::string& name : names) {
        DerivedNameParts parts;
        const bool derived = ParseDerivedName(name, parts);
        highest = std::max(highest, parts.number);
        if (name.starts_with(kUnfinishedPrefix)) {
            unlink(PathOf(name).c_str());
        } else if (!IsDescriptionName(name) && names.count(DescriptionName(name)) == 0 &&
                   IsRegularFile(LumString(PathOf(name)))) {
            if (derived) {
                Complete(name, leftOvers);
            } else {
                leftOvers.unknown.push_back(name);
            }
        }
    }
    return true;
}

void Outbox::Complete(const std::string& name, LeftOvers& leftOvers) {
    DerivedNameParts parts;
    static_cast<void>(ParseDerivedName(name, parts));  // the caller has seen that it is one
    const LumString path(PathOf(name));
    LumString error;
    ReceivedFile file;
    file.movePath = path;
    Source source;
    std::string checksum;
    const bool isOpen = OpenSource(file, source, error);
    if (!isOpen || !Sha256OfFile(source.file.Get(), checksum)) {
        leftOvers.errors.push_back(!isOpen ? error : Sentence(path, "it cannot be read", errno));
        return;
    }
    file.fileType = LumString(parts.label);
    file.fileLabel = LumString(parts.label);
    file.upstream = true;
    const LumString descriptionPath(PathOf(DescriptionName(name)));
    if (!FileReplace(descriptionPath, Description(file, name, checksum, parts.receivedAt), error)) {
        leftOvers.errors.push_back(Sentence(descriptionPath, error.View()));
        return;
    }
    leftOvers.completed.push_back(name);
}

Received Outbox::Receive(const ReceivedFile& file) {
    LumString reason;
    if (!EnsureOpen(reason)) {
        return {Received::Outcome::kFailed,
                {},
                Sentence(file.movePath, "the outbox is not open") +
                    (reason.IsEmpty() ? LumString() : LumString("; ") + reason)};
    }
    const std::time_t now = std::time(nullptr);
    const std::string receivedAt = UtcTimeText(now);
    if (!file.fileName.IsEmpty()) {
        const LumMutexLock lock(givenNames_);
        return ReceiveAs(file, SafeName(file.fileName.View(), kMaxFileNameLength), receivedAt);
    }
    uint64_t number = 0;
    if (!number_.Next(number, reason)) {
        return {Received::Outcome::kFailed,
                {},
                Sentence(file.movePath, "no number for it: " + std::string(reason.View()))};
    }
    return ReceiveAs(file, DerivedName(now, number, file.fileLabel.View()), receivedAt);
}

Received Outbox::ReceiveAs(const ReceivedFile& file, const std::string& name, std::string_view receivedAt) {
    Received received{Received::Outcome::kRefused, {}, {}};
    Source source;
    if (!OpenSource(file, source, received.problem)) {
        return received;
    }
    const LumString descriptionPath(PathOf(DescriptionName(name)));
    if (IsDescriptionName(name) || Exists(std::string(descriptionPath.View()))) {
        received.problem = Sentence(file.movePath, "the name " + name + " is taken");
        return received;
    }
    std::string checksum(file.fileChecksum.View());
    // Synced before it is renamed: what was written through already costs nothing then.
    if (fsync(source.file.Get()) != 0 || (checksum.empty() && !Sha256OfFile(source.file.Get(), checksum))) {
        received.problem = Sentence(file.movePath, "it cannot be read", errno);
        return received;
    }
    const std::string description = Description(file, name, checksum, receivedAt);
    received.outcome = Received::Outcome::kFailed;
    if (!HasRoomFor(file, static_cast<uint64_t>(source.status.st_size) + description.size())) {
        received.problem = Sentence(file.movePath, "the outbox is full");
        return received;
    }
    Placement placement(file.movePath, source, PathOf(name));
    if (!placement.Place(received.problem)) {
        received.outcome = Exists(PathOf(name)) ? Received::Outcome::kRefused : Received::Outcome::kFailed;
        return received;
    }
    // Syncs the directory as well, and with it the file's own entry.
    LumString reason;
    if (!FileReplace(descriptionPath, description, reason)) {
        received.problem = Sentence(file.movePath, "its description " + std::string(descriptionPath.View()) +
                                                       " cannot be written: " + std::string(reason.View()));
        unlink(descriptionPath.GetString());  // it was not there before
        placement.Undo(received.problem);
        return received;
    }
    received.outcome = Received::Outcome::kDone;
    received.path = LumString(PathOf(name));
    if (!placement.Keep()) {
        received.problem =
            Sentence(file.movePath, "it was copied to the outbox but cannot be deleted", errno);
    }
    return received;
}
