#include "machine/measures/Mounts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <set>
#include <sstream>

namespace {

constexpr std::array<std::string_view, 13> kDiskTypes = {"ext2",  "ext3", "ext4",     "xfs",  "btrfs",
                                                         "f2fs",  "jfs",  "reiserfs", "vfat", "exfat",
                                                         "ntfs3", "zfs",  "overlay"};

/// Blanks, tabs, line ends and backslashes of a path are written as a backslash and three octal digits.
std::string Unescaped(const std::string& text) {
    constexpr std::size_t kDigits = 3;
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::string digits = text.substr(std::min(i + 1, text.size()), kDigits);
        if (text[i] == '\\' && digits.size() == kDigits &&
            digits.find_first_not_of("01234567") == std::string::npos) {
            plain += static_cast<char>(std::stoi(digits, nullptr, 8));
            i += kDigits;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

}  // namespace

std::vector<Mount> ParseMounts(std::string_view mountInfo) {
    std::vector<Mount> mounts;
    std::set<std::string> devices;
    std::istringstream lines{std::string(mountInfo)};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string number;
        std::string root;
        Mount mount;
        words >> number >> number >> mount.device >> root >> mount.point;
        // The options end with a lone dash.
        for (std::string word; words >> word && word != "-";) {
        }
        if (!(words >> mount.type) ||
            std::find(kDiskTypes.begin(), kDiskTypes.end(), mount.type) == kDiskTypes.end() ||
            !devices.insert(mount.device).second) {
            continue;
        }
        mount.point = Unescaped(mount.point);
        mounts.push_back(std::move(mount));
    }
    return mounts;
}
