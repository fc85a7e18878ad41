#include "filestore/Outbox.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>

#include <sys/stat.h>
#include <unistd.h>

#include "contract/FileStore.h"
#include "filestore/FileNames.h"
#include "filestore/internal/Placement.h"
#include "host/file/LumFile.h"
#include "host/text/LumSha256.h"

namespace {

/// What the host's file routines call a file that is not whole yet.
constexpr std::string_view kUnfinishedPrefix = ".lum-";
/// What a description takes at most, with names of the usual length.
constexpr uint64_t kDescriptionBytes = 1024;
/// A description that is longer was not written here.
constexpr std::size_t kLongestDescription = 65536;
/// An outbox that is full is looked at again that often.
constexpr std::time_t kCountEverySeconds = 2;

bool Exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 || errno != ENOENT;
}

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
        error = FileSentence(directory, "it cannot be made", errno);
        return false;
    }
    if (!ScanDirectory(leftOvers, highest, error)) {
        return false;
    }
    LumString reason;
    const uint64_t lowest = highest == UINT64_MAX ? highest : highest + 1;
    if (!number_.Open(numberPath_, lowest, reason)) {
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

bool Outbox::HasRoomFor(const LumString& fileType, uint64_t bytes) {
    if (maxBytes_ == 0) {
        return true;
    }
    const uint64_t limit = fileType == kFileTypeEvents ? maxBytes_ : maxBytes_ / 4 * 3;
    const std::time_t now = std::time(nullptr);
    if (bytes_ + bytes > limit && std::abs(now - countedAt_) >= kCountEverySeconds) {
        bytes_ = CountBytes();
        countedAt_ = now;
    }
    return bytes_ + bytes <= limit;
}

bool Outbox::TakeRoomFor(const ReceivedFile& file, uint64_t bytes) {
    const LumMutexLock lock(usage_);
    if (!HasRoomFor(file.fileType, bytes)) {
        return false;
    }
    bytes_ += bytes;
    return true;
}

bool Outbox::WouldTake(const LumString& fileType, uint64_t bytes, LumString& reason) {
    if (!EnsureOpen(reason)) {
        if (reason.IsEmpty()) {
            reason = "it is not open";
        }
        return false;
    }
    if (!number_.Reserve(reason)) {
        return false;
    }
    const LumMutexLock lock(usage_);
    if (!HasRoomFor(fileType, bytes + kDescriptionBytes)) {
        reason = "it is full";
        return false;
    }
    return true;
}

bool Outbox::ScanDirectory(LeftOvers& leftOvers, uint64_t& highest, LumString& error) {
    const std::unique_ptr<LumDirectory, decltype(&CloseDirectory)> listing(
        OpenDirectory(LumString(directory_)), CloseDirectory);
    if (listing == nullptr) {
        error = FileSentence(LumString(directory_), "it cannot be read", errno);
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
        } else if (IsDescriptionName(name)) {
            RemoveOrphan(name, names, leftOvers);
        } else if (names.count(DescriptionName(name)) == 0 && IsRegularFile(LumString(PathOf(name)))) {
            if (derived) {
                Complete(name, leftOvers);
            } else {
                leftOvers.unknown.push_back(name);
            }
        }
    }
    return true;
}

void Outbox::RemoveOrphan(const std::string& name, const std::set<std::string>& names, LeftOvers& leftOvers) {
    const std::string_view stem = std::string_view(name).substr(0, name.rfind('.') + 1);
    const auto neighbour = names.lower_bound(std::string(stem));
    if (neighbour != names.end() && *neighbour != name && neighbour->starts_with(stem)) {
        return;  // its file, which spares reading it
    }
    std::string text;
    LumString unreadable;  // then it is not one of ours, or will be looked at the next time
    if (!FileRead(LumString(PathOf(name)), kLongestDescription, text, unreadable)) {
        return;
    }
    const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
    const auto file = json.find(kFileStoreFileName);
    if (file != json.end() && file->is_string() && names.count(file->get<std::string>()) == 0 &&
        unlink(PathOf(name).c_str()) == 0) {
        leftOvers.orphans.push_back(name);
    }
}

void Outbox::Complete(const std::string& name, LeftOvers& leftOvers) {
    DerivedNameParts parts;
    static_cast<void>(ParseDerivedName(name, parts));  // the caller has seen that it is one
    const LumString path(PathOf(name));
    LumString error;
    ReceivedFile file;
    file.movePath = path;
    SourceFile source;
    std::string checksum;
    const bool isOpen = OpenSource(file, source, error);
    if (!isOpen || !Sha256OfFile(source.file.Get(), checksum)) {
        leftOvers.errors.push_back(!isOpen ? error : FileSentence(path, "it cannot be read", errno));
        return;
    }
    file.fileType = LumString(parts.label);
    file.fileLabel = LumString(parts.label);
    file.upstream = true;
    const LumString descriptionPath(PathOf(DescriptionName(name)));
    if (!FileReplace(descriptionPath, Description(file, name, checksum, parts.receivedAt), error)) {
        leftOvers.errors.push_back(FileSentence(descriptionPath, error.View()));
        return;
    }
    leftOvers.completed.push_back(name);
}

Received Outbox::Receive(const ReceivedFile& file) {
    LumString reason;
    if (!EnsureOpen(reason)) {
        return {Received::Outcome::kFailed,
                {},
                FileSentence(file.movePath, "the outbox is not open") +
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
                FileSentence(file.movePath, "no number for it: " + std::string(reason.View()))};
    }
    return ReceiveAs(file, DerivedName(now, number, file.fileLabel.View()), receivedAt);
}

Received Outbox::ReceiveAs(const ReceivedFile& file, const std::string& name, std::string_view receivedAt) {
    Received received{Received::Outcome::kRefused, {}, {}};
    SourceFile source;
    if (!OpenSource(file, source, received.problem)) {
        return received;
    }
    if (IsDescriptionName(name) || Exists(PathOf(DescriptionName(name)))) {
        received.problem = FileSentence(file.movePath, "the name " + name + " is taken");
        return received;
    }
    std::string checksum(file.fileChecksum.View());
    // Synced before it is renamed: what was written through already costs nothing then.
    if (fsync(source.file.Get()) != 0 || (checksum.empty() && !Sha256OfFile(source.file.Get(), checksum))) {
        received.problem = FileSentence(file.movePath, "it cannot be read", errno);
        return received;
    }
    const std::string description = Description(file, name, checksum, receivedAt);
    received.outcome = Received::Outcome::kFailed;
    if (!TakeRoomFor(file, static_cast<uint64_t>(source.status.st_size) + description.size())) {
        received.problem = FileSentence(file.movePath, "the outbox is full");
        return received;
    }
    Place(file, source, name, description, received);
    return received;
}

void Outbox::Place(const ReceivedFile& file, const SourceFile& source, const std::string& name,
                   const std::string& description, Received& received) {
    Placement placement(file.movePath, source, PathOf(name));
    if (!placement.Place(received.problem)) {
        received.outcome = Exists(PathOf(name)) ? Received::Outcome::kRefused : Received::Outcome::kFailed;
        return;
    }
    const LumString descriptionPath(PathOf(DescriptionName(name)));
    LumString reason;
    // Syncs the directory as well, and with it the file's own entry.
    if (!FileReplace(descriptionPath, description, reason)) {
        received.problem =
            FileSentence(file.movePath, "its description " + std::string(descriptionPath.View()) +
                                            " cannot be written: " + std::string(reason.View()));
        unlink(descriptionPath.GetString());  // it was not there before
        placement.Undo(received.problem);
        return;
    }
    received.outcome = Received::Outcome::kDone;
    received.path = LumString(PathOf(name));
    if (!placement.Keep()) {
        received.problem =
            FileSentence(file.movePath, "it was copied to the outbox but cannot be deleted", errno);
    }
}
