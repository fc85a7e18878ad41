#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>

#include "host/file/LumFile.h"

namespace {

std::mutex tempMutex;
/// To be called with tempMutex held.
std::string& TempDirectory() {
    // Never destroyed: threads may still ask while the process ends.
    alignas(std::string) static unsigned char place[sizeof(std::string)];
    static std::string* const directory = [] {
        std::error_code error;
        const std::filesystem::path path = std::filesystem::temp_directory_path(error);
        return new (place) std::string(error ? "/tmp" : path.string());
    }();
    return *directory;
}

}  // namespace

void SetTempDirectory(const LumString& path) {
    const std::lock_guard<std::mutex> guard(tempMutex);
    TempDirectory() = path.View();
}

LumString GetTempDirectory() {
    const std::lock_guard<std::mutex> guard(tempMutex);
    return LumString(std::string_view(TempDirectory()));
}

FileDescriptor OpenTempFile(LumString& path) {
    const LumString directory = GetTempDirectory();
    const auto create = [&](std::string& made) {
        made = std::string(directory.View()).append("/").append(kTempFilePrefix).append("XXXXXX");
        return mkostemp(made.data(), O_CLOEXEC);
    };
    std::string made;
    FileDescriptor file(create(made));
    if (!file.IsOpen() && errno == ENOENT && PathCreate(directory)) {
        file = FileDescriptor(create(made));  // somebody has removed the directory
    }
    if (file.IsOpen()) {
        path = LumString(std::move(made));
    }
    return file;
}

uint32_t CountTempFiles() {
    const std::unique_ptr<LumDirectory, decltype(&CloseDirectory)> listing(OpenDirectory(GetTempDirectory()),
                                                                           CloseDirectory);
    uint32_t count = 0;
    for (LumString name; ReadDirectory(listing.get(), name);) {
        count += name.View().starts_with(kTempFilePrefix) ? 1 : 0;
    }
    return count;
}
