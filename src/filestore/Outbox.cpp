#include "filestore/Outbox.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
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

/// The open file, if it is a regular one that lies at `path` itself; a closed one with the reason in `error`.
/// Neither a pipe nor a device is waited for.
FileDescriptor OpenSource(const LumString& path, struct stat& status, LumString& error) {
    if (!path.View().starts_with('/') || path.View().find('\0') != std::string_view::npos) {
        error = Sentence(path, "it is not an absolute path");
        return {};
    }
    FileDescriptor file(open(path.GetString(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.IsOpen()) {
        error = errno == ELOOP ? Sentence(path, "it is a symbolic link")
                               : Sentence(path, "it cannot be opened", errno);
        return {};
    }
    if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        error = Sentence(path, "it is not a regular file");
        return {};
    }
    return file;
}

/// A file that was brought into the outbox, and taken out again unless it was kept.
class Placement {
public:
    Placement(const LumString& from, std::string to) : from_(from), to_(std::move(to)) {}
    Placement(const Placement&) = delete;
    Placement& operator=(const Placement&) = delete;
    ~Placement() = default;

    /// Moves the file, or copies it where the outbox is on another file system.
    bool Place(const struct stat& source, LumString& error) {
        if (FileRenameNew(from_.GetString(), to_.c_str())) {
            struct stat placed {};
            // Whoever owns the source's directory may have put something else in its place meanwhile.
            if (lstat(to_.c_str(), &placed) != 0 || placed.st_ino != source.st_ino ||
                placed.st_dev != source.st_dev) {
                error = Sentence(from_, "it was replaced while it was moved");
                Undo(error);
                return false;
            }
            return true;
        }
        if (errno == EXDEV) {
            copied_ = FileCopy(from_, LumString(to_), true);
            if (copied_) {
                return true;
            }
        }
        error = Sentence(from_, "it cannot be moved to " + to_, errno);
        return false;
    }

    void Undo(LumString& error) {
        if (copied_) {
            unlink(to_.c_str());
        } else if (!FileRenameNew(to_.c_str(), from_.GetString())) {
            error += LumString("; it stays at " + to_);
        }
    }

    /// Ends a move that was a copy.
    bool DeleteSource() { return !copied_ || unlink(from_.GetString()) == 0; }

private:
    const LumString from_;
    const std::string to_;
    bool copied_ = false;
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
    uint64_t highest = 0;
    if (!PathCreate(directory)) {
        error = Sentence(directory, "it cannot be made", errno);
        return false;
    }
    if (!ScanDirectory(leftOvers, highest, error)) {
        return false;
    }
    LumString reason;
    if (!number_.Open(numberPath, highest + 1, reason)) {
        leftOvers.errors.push_back(std::move(reason));
    }
    return true;
}

bool Outbox::ScanDirectory(LeftOvers& leftOvers, uint64_t& highest, LumString& error) {
    LumDirectory* const listing = OpenDirectory(LumString(directory_));
    if (listing == nullptr) {
        error = Sentence(LumString(directory_), "it cannot be read", errno);
        return false;
    }
    std::set<std::string> names;
    LumString entry;
    while (ReadDirectory(listing, entry)) {
        names.emplace(entry.View());
    }
    CloseDirectory(listing);
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
    struct stat status {};
    const FileDescriptor source = OpenSource(path, status, error);
    std::string checksum;
    if (!source.IsOpen() || !Sha256OfFile(source.Get(), checksum)) {
        leftOvers.errors.push_back(!source.IsOpen() ? error : Sentence(path, "it cannot be read", errno));
        return;
    }
    ReceivedFile file;
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

bool Outbox::Receive(const ReceivedFile& file, LumString& storedPath, LumString& error) {
    if (directory_.empty()) {
        error = Sentence(file.movePath, "the outbox is not open");
        return false;
    }
    const std::time_t now = std::time(nullptr);
    const std::string receivedAt = UtcTimeText(now);
    if (!file.fileName.IsEmpty()) {
        const LumMutexLock lock(givenNames_);
        return ReceiveAs(file, SafeName(file.fileName.View(), kMaxFileNameLength), receivedAt, storedPath,
                         error);
    }
    uint64_t number = 0;
    LumString reason;
    if (!number_.Next(number, reason)) {
        error = Sentence(file.movePath, "no number for it: " + std::string(reason.View()));
        return false;
    }
    return ReceiveAs(file, DerivedName(now, number, file.fileLabel.View()), receivedAt, storedPath, error);
}

bool Outbox::ReceiveAs(const ReceivedFile& file, const std::string& name, std::string_view receivedAt,
                       LumString& storedPath, LumString& error) {
    struct stat status {};
    const FileDescriptor source = OpenSource(file.movePath, status, error);
    if (!source.IsOpen()) {
        return false;
    }
    const LumString descriptionPath(PathOf(DescriptionName(name)));
    if (IsDescriptionName(name) || Exists(std::string(descriptionPath.View()))) {
        error = Sentence(file.movePath, "the name " + name + " is taken");
        return false;
    }
    std::string checksum(file.fileChecksum.View());
    // Synced before it is renamed: what was written through already costs nothing then.
    if (fsync(source.Get()) != 0 || (checksum.empty() && !Sha256OfFile(source.Get(), checksum))) {
        error = Sentence(file.movePath, "it cannot be read", errno);
        return false;
    }
    Placement placement(file.movePath, PathOf(name));
    if (!placement.Place(status, error)) {
        return false;
    }
    // Syncs the directory as well, and with it the file's own entry.
    LumString reason;
    if (!FileReplace(descriptionPath, Description(file, name, checksum, receivedAt), reason)) {
        error = Sentence(file.movePath, "its description " + std::string(descriptionPath.View()) +
                                            " cannot be written: " + std::string(reason.View()));
        unlink(descriptionPath.GetString());  // it was not there before
        placement.Undo(error);
        return false;
    }
    storedPath = LumString(PathOf(name));
    if (!placement.DeleteSource()) {
        error = Sentence(file.movePath, "it was copied to the outbox but cannot be deleted", errno);
    }
    return true;
}
