#include "fleet/forward/OutboxDirectory.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "contract/FileStore.h"
#include "fleet/forward/FlatJson.h"
#include "host/file/FileDescriptor.h"
#include "host/file/LumFile.h"
#include "host/text/LumSha256.h"
#include "host/text/LumSystemError.h"

namespace {

constexpr std::string_view kDescriptionEnd = ".json";
constexpr std::size_t kMaxDescriptionBytes = 65'536;

std::string Reason(int number) {
    return std::string(LumSystemErrorText(number).View());
}

/// "a.cbor" and "a.json" as "a".
std::string_view StemOf(std::string_view name) {
    return name.substr(0, name.rfind('.'));
}

std::string DescriptionOf(std::string_view name) {
    return std::string(StemOf(name)) + std::string(kDescriptionEnd);
}

/// Hidden files are other programs' unfinished ones, and this one's state.
bool IsDescription(std::string_view name) {
    return name.ends_with(kDescriptionEnd) && !name.starts_with('.');
}

/// Reads a regular file of the outbox; a link, a pipe or a device there is not opened. `number` is the errno
/// of the failure, EINVAL for what is not a regular file, EFBIG for one above `maxBytes`.
bool ReadEntryFile(const std::string& path, std::size_t maxBytes, std::string& content, int& number) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
        number = errno == ELOOP ? EINVAL : errno;
        return false;
    }
    if (!S_ISREG(status.st_mode) || static_cast<uint64_t>(status.st_size) > maxBytes) {
        number = S_ISREG(status.st_mode) ? EFBIG : EINVAL;
        return false;
    }
    content.resize(static_cast<std::size_t>(status.st_size));
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t count = read(file.Get(), content.data() + done, content.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            number = count == 0 ? EIO : errno;
            return false;
        }
    }
    return true;
}

/// What a description says. Empty texts where it does not, `upstream` false then.
struct Description {
    std::string fileName;
    std::string label;
    std::string receivedAt;
    bool upstream = false;
};

bool ParseDescription(const std::string& text, Description& description) {
    FlatJson json;
    if (!json.Read(text)) {
        return false;
    }
    description.fileName = json.Text(kFileStoreFileName);
    description.label = json.Text(kFileStoreFileLabel);
    description.receivedAt = json.Text("ReceivedAt");
    description.upstream = json.IsTrue(kFileStoreUpstream);
    return true;
}

/// A failure to read: what time may heal is not bad.
LoadResult Judge(int number) {
    return number == ENOENT || number == EINVAL || number == EFBIG ? LoadResult::kBad
                                                                   : LoadResult::kUnreadable;
}

std::string JudgeText(int number) {
    switch (number) {
        case ENOENT:
            return "the file that it describes is missing";
        case EINVAL:
            return "it is not a regular file";
        case EFBIG:
            return "it is larger than the broker takes";
        default:
            return Reason(number);
    }
}

}  // namespace

std::string OutboxDirectory::At(std::string_view name) const {
    std::string path;
    path.reserve(path_.size() + 1 + name.size());
    return path.append(path_).append("/").append(name);
}

bool OutboxDirectory::Walk(const std::function<void(std::string_view name)>& visit,
                           std::string& error) const {
    const LumString path{std::string_view(path_)};
    const std::unique_ptr<LumDirectory, decltype(&CloseDirectory)> listing(OpenDirectory(path),
                                                                           CloseDirectory);
    if (listing == nullptr) {
        error = path_ + ": " + Reason(errno);
        return false;
    }
    LumString name;
    while (ReadDirectory(listing.get(), name)) {
        visit(name.View());
    }
    return true;
}

bool OutboxDirectory::NextDescriptions(const std::string& after, std::size_t limit,
                                       const std::function<bool(std::string_view name)>& isWanted,
                                       std::vector<std::string>& names, std::string& error) const {
    std::vector<std::string> smallest;  // a heap with the largest of them at its front once it is full
    const auto visit = [&](std::string_view name) {
        const bool isFull = smallest.size() == limit;
        if (!IsDescription(name) || name <= after || (isFull && name >= smallest.front()) ||
            !isWanted(name)) {
            return;
        }
        if (!isFull) {
            smallest.emplace_back(name);
            if (smallest.size() == limit) {
                std::make_heap(smallest.begin(), smallest.end());
            }
            return;
        }
        std::pop_heap(smallest.begin(), smallest.end());
        smallest.back() = name;
        std::push_heap(smallest.begin(), smallest.end());
    };
    if (!Walk(visit, error)) {
        return false;
    }
    std::sort(smallest.begin(), smallest.end());
    names = std::move(smallest);
    return true;
}

bool OutboxDirectory::Measure(OutboxSize& size, std::string& error) const {
    OutboxSize found;
    const auto visit = [&](std::string_view name) {
        struct stat status {};
        if (name.starts_with('.') || stat(At(name).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            return;
        }
        if (!IsDescription(name)) {
            found.bytes += status.st_size;
            return;
        }
        ++found.entries;
        found.oldest = found.oldest == 0 ? status.st_mtime : std::min(found.oldest, status.st_mtime);
    };
    if (!Walk(visit, error)) {
        return false;
    }
    size = found;
    return true;
}

int64_t OutboxDirectory::ChangeStamp() const {
    struct stat status {};
    constexpr int64_t nsPerSecond = 1'000'000'000;
    return stat(path_.c_str(), &status) == 0 ? status.st_mtim.tv_sec * nsPerSecond + status.st_mtim.tv_nsec
                                             : -1;
}

LoadResult OutboxDirectory::Load(const std::string& descriptionName, std::size_t maxBytes, OutboxEntry& entry,
                                 std::string& reason) const {
    std::string text;
    int number = 0;
    if (!ReadEntryFile(At(descriptionName), kMaxDescriptionBytes, text, number)) {
        reason = descriptionName + ": " + JudgeText(number);
        return number == ENOENT ? LoadResult::kGone : Judge(number);
    }
    Description description;
    if (!ParseDescription(text, description)) {
        reason = descriptionName + ": it is not a JSON object";
        return LoadResult::kBad;
    }
    if (!description.upstream) {
        return LoadResult::kStays;
    }
    const std::string& name = description.fileName;
    // Up to a null byte the system would take the name for another one.
    if (name.find_first_of(std::string_view("/\0", 2)) != std::string::npos ||
        StemOf(name) != StemOf(descriptionName) || name == descriptionName) {
        reason = descriptionName + ": its FileName is not that of the file beside it";
        return LoadResult::kBad;
    }
    if (!ReadEntryFile(At(name), maxBytes, entry.content, number)) {
        reason = name + ": " + JudgeText(number);
        // Both may have been taken since the description was read.
        return number == ENOENT && access(At(descriptionName).c_str(), F_OK) != 0 ? LoadResult::kGone
                                                                                  : Judge(number);
    }
    entry.name = name;
    entry.label = std::move(description.label);
    entry.receivedAt = std::move(description.receivedAt);
    entry.digest = Sha256Hex(entry.content);
    return LoadResult::kReady;
}

bool OutboxDirectory::Remove(const std::string& name, std::string& error) const {
    for (const std::string& path : {At(DescriptionOf(name)), At(name)}) {
        if (unlink(path.c_str()) != 0 && errno != ENOENT) {
            error = path + ": " + Reason(errno);
            return false;
        }
    }
    return true;
}

bool OutboxDirectory::SetAside(const std::string& name, std::string& error) const {
    const std::string directory = At(kSetAside);
    if (mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        error = directory + ": " + Reason(errno);
        return false;
    }
    std::vector<std::string> parts;
    const std::string stem(StemOf(name));
    if (!Walk(
            [&](std::string_view entry) {
                if (StemOf(entry) == stem && entry != kSetAside) {
                    parts.emplace_back(entry);
                }
            },
            error)) {
        return false;
    }
    for (const std::string& part : parts) {
        if (rename(At(part).c_str(), std::string(directory).append("/").append(part).c_str()) != 0 &&
            errno != ENOENT) {
            error = At(part) + ": " + Reason(errno);
            return false;
        }
    }
    return true;
}
