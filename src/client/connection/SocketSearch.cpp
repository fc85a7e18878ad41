#include "client/connection/SocketSearch.h"

#include <array>
#include <cstdlib>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::array<const char*, 2> kUsualPlaces{"/run/lumagent/agent.sock", "/var/lib/lumagent/agent.sock"};

std::string NameOfUser(uid_t id) {
    const passwd* const entry = getpwuid(id);  // NOLINT(concurrency-mt-unsafe): the client has one thread
    return entry != nullptr ? entry->pw_name : std::to_string(id);
}

std::string NameOfGroup(gid_t id) {
    const group* const entry = getgrgid(id);  // NOLINT(concurrency-mt-unsafe): the client has one thread
    return entry != nullptr ? entry->gr_name : std::to_string(id);
}

}  // namespace

std::vector<std::string> SocketCandidates(const std::optional<std::string>& asked) {
    if (asked) {
        return {*asked};
    }
    const char* const named = std::getenv("LUMCTL_SOCKET");  // NOLINT(concurrency-mt-unsafe): one thread
    if (named != nullptr && *named != '\0') {
        return {named};
    }
    return {kUsualPlaces.begin(), kUsualPlaces.end()};
}

std::string PermissionAdvice(mode_t mode, std::string_view owner, std::string_view group,
                             std::string_view user) {
    if ((mode & S_IWGRP) == 0) {
        return "it is open to the user '" + std::string(owner) +
               "' alone; use sudo, or let a group in with SocketGroup in the section [Agent] of agent.ini";
    }
    return "it is open to the group '" + std::string(group) + "'; join it with: sudo adduser " +
           std::string(user) + " " + std::string(group) + "   (and log in anew), or use sudo";
}

std::string DescribeMissingPermission(const std::string& path) {
    const std::string begin = "no permission to use " + path + ": ";
    struct stat found {};
    if (stat(path.c_str(), &found) != 0) {
        return begin + "its directory is closed to the user '" + NameOfUser(geteuid()) +
               "'; use sudo, or name a socket in a directory that is open with Socket and SocketGroup in the "
               "section [Agent] of agent.ini";
    }
    return begin + PermissionAdvice(found.st_mode, NameOfUser(found.st_uid), NameOfGroup(found.st_gid),
                                    NameOfUser(geteuid()));
}
