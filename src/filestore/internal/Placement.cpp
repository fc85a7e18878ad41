#include "filestore/internal/Placement.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "host/file/LumFile.h"
#include "host/text/LumSystemError.h"

namespace {

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
bool WalkDown(const LumString& top, std::string_view part, SourceFile& source) {
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

/// FileRenameNew from or to a name in an open directory.
bool RenameNewAt(int fromAt, const std::string& from, int toAt, const std::string& to) {
    if (renameat2(fromAt, from.c_str(), toAt, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    return errno == EINVAL && linkat(fromAt, from.c_str(), toAt, to.c_str(), 0) == 0 &&
           unlinkat(fromAt, from.c_str(), 0) == 0;
}

}  // namespace

LumString FileSentence(const LumString& path, std::string_view what, int reason) {
    LumString text;
    text.Printf("%S: %S%s%S", path, what, reason != 0 ? ": " : "",
                reason != 0 ? LumSystemErrorText(reason) : LumString());
    return text;
}

int SourceFile::At() const {
    return directory.IsOpen() ? directory.Get() : AT_FDCWD;
}

bool OpenSource(const ReceivedFile& file, SourceFile& source, LumString& error) {
    const LumString& path = file.movePath;
    if (!path.View().starts_with('/') || path.View().find('\0') != std::string_view::npos) {
        error = FileSentence(path, "it is not an absolute path");
        return false;
    }
    source.name = std::string(path.View());
    if (!file.confinedTo.IsEmpty() && !WalkDown(file.confinedTo, PartBelow(path, file.confinedTo), source)) {
        error = FileSentence(path, "it does not lie below " + std::string(file.confinedTo.View()));
        return false;
    }
    source.file = FileDescriptor(openat(source.At(), source.name.c_str(), kReadFlags));
    if (!source.file.IsOpen()) {
        error = errno == ELOOP ? FileSentence(path, "it is a symbolic link")
                               : FileSentence(path, "it cannot be opened", errno);
        return false;
    }
    if (fstat(source.file.Get(), &source.status) != 0 || !S_ISREG(source.status.st_mode)) {
        error = FileSentence(path, "it is not a regular file");
        return false;
    }
    return true;
}

Placement::Placement(const LumString& path, const SourceFile& source, std::string to)
    : path_(path), source_(source), to_(std::move(to)) {}

Placement::~Placement() {
    if (isPlaced_) {
        TakeOut();
    }
}

bool Placement::Place(LumString& error) {
    isPlaced_ = RenameNewAt(source_.At(), source_.name, AT_FDCWD, to_);
    if (isPlaced_) {
        struct stat placed {};
        // Whoever owns the source's directory may have put something else in its place meanwhile.
        if (lstat(to_.c_str(), &placed) != 0 || placed.st_ino != source_.status.st_ino ||
            placed.st_dev != source_.status.st_dev) {
            error = FileSentence(path_, "it was replaced while it was moved");
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
        error = FileSentence(path_, "it cannot be moved to " + to_, errno);
    }
    return isPlaced_;
}

void Placement::Undo(LumString& error) {
    if (!TakeOut()) {
        error += LumString("; it stays at " + to_);
    }
}

bool Placement::Keep() {
    isPlaced_ = false;
    return !copied_ || unlinkat(source_.At(), source_.name.c_str(), 0) == 0;
}

bool Placement::TakeOut() {
    isPlaced_ = false;
    return copied_ ? unlink(to_.c_str()) == 0 : RenameNewAt(AT_FDCWD, to_, source_.At(), source_.name);
}
