#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

#include <stdlib.h>

/// A directory of a test's own, gone with it. Its path is short enough for a socket's address.
class ScratchDirectory {
public:
    ScratchDirectory() {
        char path[] = "/tmp/lumtest.XXXXXX";
        if (::mkdtemp(path) == nullptr) {
            throw std::runtime_error("cannot make a scratch directory");
        }
        path_ = path;
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::string& GetPath() const { return path_; }
    [[nodiscard]] std::string operator/(std::string_view name) const {
        return path_ + "/" + std::string(name);
    }

    /// Writes a file, and the directories to it, and returns its path.
    std::string Write(std::string_view name, std::string_view content) const {
        const std::string path = *this / name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
        return path;
    }

private:
    std::string path_;
};

/// The content of a file; empty where there is none.
inline std::string ReadWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
