#include "filestore/OutboxFigures.h"

#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "filestore/FileNames.h"
#include "host/file/FileDescriptor.h"
#include "host/text/LumSystemError.h"

namespace {

struct CloseListing {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

}  // namespace

OutboxFigures ReadOutboxFigures(const std::string& directory) {
    OutboxFigures figures;
    const std::unique_ptr<DIR, CloseListing> listing(::opendir(directory.c_str()));
    if (listing == nullptr) {
        return figures;
    }
    while (const dirent* const entry = ::readdir(listing.get())) {
        if (entry->d_name[0] == '.') {
            continue;  // what others keep there, a forwarder its state
        }
        struct stat status = {};
        if (::fstatat(::dirfd(listing.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISREG(status.st_mode)) {
            continue;
        }
        figures.bytes += static_cast<uint64_t>(status.st_size);
        if (!IsDescriptionName(entry->d_name)) {
            continue;
        }
        ++figures.files;
        if (figures.oldest == 0 || status.st_mtime < figures.oldest) {
            figures.oldest = status.st_mtime;
        }
    }
    return figures;
}

LumString CheckOutbox(const std::string& directory) {
    LumString sentence;
    // A file without a name: whatever happens, nothing is left.
    const FileDescriptor probe(::open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    const bool lacksOnlyTheProbe = !probe.IsOpen() && (errno == EOPNOTSUPP || errno == EISDIR);
    if (lacksOnlyTheProbe && ::access(directory.c_str(), W_OK | X_OK) == 0) {
        return sentence;
    }
    if (!probe.IsOpen() || ::write(probe.Get(), "x", 1) != 1) {
        sentence.Printf("The outbox %s cannot be written: %S.", directory.c_str(), LumSystemErrorText());
    }
    return sentence;
}
