#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/mount.h>

#include "support/TempDirectory.h"

/// A file system of a size of the test's own, so that a disk can be full. Making one takes the rights of
/// root; a test without them is to be skipped.
class SmallDisk {
public:
    enum class Kind {
        kMemory,
        kSmallBlocks,  ///< on a disk image, in blocks of 1024 bytes
    };

    explicit SmallDisk(std::size_t bytes, Kind kind = Kind::kMemory) {
        directory_.MakeDirectory("disk");
        const std::string at = directory_ / "disk";
        if (kind == Kind::kMemory) {
            const std::string size = "size=" + std::to_string(bytes);
            isThere_ = mount("lum-test", at.c_str(), "tmpfs", 0, size.c_str()) == 0;
        } else {
            const std::string image = directory_ / "image";
            isThere_ = std::system(("truncate -s " + std::to_string(bytes) + " " + image +
                                    " && mkfs.ext4 -q -b 1024 -m 0 -O ^has_journal " + image +
                                    " 2>/dev/null && mount -o loop " + image + " " + at + " 2>/dev/null")
                                       .c_str()) == 0;
        }
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk() {
        if (isThere_) {
            umount2((directory_ / "disk").c_str(), MNT_DETACH);
        }
    }

    [[nodiscard]] bool IsThere() const { return isThere_; }
    [[nodiscard]] std::string operator/(std::string_view name) const {
        return directory_ / ("disk/" + std::string(name));
    }
    [[nodiscard]] std::size_t Free() const { return std::filesystem::space(directory_ / "disk").available; }

    /// Takes all that is free but so many bytes.
    void Fill(std::size_t leaves = 0) const {
        const std::size_t bytes = Free();
        std::ofstream file(*this / "filler", std::ios::binary | std::ios::app);
        const std::string block(512, 'x');
        for (std::size_t left = bytes > leaves ? bytes - leaves : 0; left > 0 && file;) {
            const std::size_t some = left < block.size() ? left : block.size();
            file.write(block.data(), static_cast<std::streamsize>(some)).flush();
            left -= some;
        }
    }
    void Clear() const { std::filesystem::remove(*this / "filler"); }

private:
    const TempDirectory directory_;
    bool isThere_ = false;
};
