#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "host/text/LumString.h"

/// The content of a file; empty where there is none.
inline std::string ReadWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A directory that a test works in. It is neither made nor deleted.
class TestDirectory {
public:
    explicit TestDirectory(std::filesystem::path path) : path_(std::move(path)) {}

    [[nodiscard]] const std::filesystem::path& Path() const { return path_; }
    /// The path of `name` in the directory.
    [[nodiscard]] LumString At(std::string_view name) const {
        return LumString((path_ / std::filesystem::path(name)).string());
    }

    [[nodiscard]] std::string operator/(std::string_view name) const {
        return (path_ / std::filesystem::path(name)).string();
    }

    /// Writes a file, and makes the directories that lead to it; returns its path.
    std::string Write(std::string_view name, std::string_view content) const {
        const std::filesystem::path path = path_ / std::filesystem::path(name);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path.string();
    }
    [[nodiscard]] std::string Read(std::string_view name) const { return ReadWholeFile(*this / name); }
    void MakeDirectory(std::string_view name) const {
        std::filesystem::create_directories(path_ / std::filesystem::path(name));
    }
    [[nodiscard]] bool Has(std::string_view name) const {
        return std::filesystem::exists(std::filesystem::symlink_status(path_ / std::filesystem::path(name)));
    }
    /// How many entries the directory itself has.
    [[nodiscard]] std::size_t CountEntries() const {
        const std::filesystem::directory_iterator entries(path_);
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }

private:
    const std::filesystem::path path_;
};

/// A directory of a test's own, deleted with everything in it at the end.
class TempDirectory : public TestDirectory {
public:
    TempDirectory() : TestDirectory(Make()) {}
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    ~TempDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(Path(), ignored);
    }

private:
    static std::string Make() {
        std::string made = (std::filesystem::temp_directory_path() / "lum-test-XXXXXX").string();
        if (mkdtemp(made.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        return made;
    }
};
