#pragma once

#include <string>
#include <string_view>
#include <vector>

/// One mounted file system.
struct Mount {
    std::string point;
    std::string type;
    std::string device;  ///< its number, "major:minor"
};

/// The mounted file systems that lie on a disk, by the text of /proc/self/mountinfo (proc(5)): one entry a
/// device, at the place where it was mounted first. Left out are file systems of the kernel, of the network
/// (one that does not answer would hold up whoever asks it), and images that are full by nature.
[[nodiscard]] std::vector<Mount> ParseMounts(std::string_view mountInfo);
