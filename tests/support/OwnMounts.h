#pragma once

#include <string>

#include <sched.h>
#include <sys/mount.h>

/// Gives this process mounts of its own, which no other sees; false where only root may have some.
[[nodiscard]] inline bool TakeOwnMounts() {
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Puts the file `with` in the place of the one at `path`.
[[nodiscard]] inline bool Cover(const std::string& path, const std::string& with) {
    return mount(with.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0;
}
