#include "agent/module/FileTrust.h"

#include <memory>

#include <sys/stat.h>
#include <unistd.h>

#include "host/file/LumFile.h"
#include "host/text/LumSystemError.h"

bool IsTrustworthy(const LumString& path, LumString& error) {
    struct stat status = {};
    if (::stat(path.GetString(), &status) != 0) {
        error.Printf("%S cannot be looked at: %S", path, LumSystemErrorText());
        return false;
    }
    const uid_t self = ::geteuid();
    if (status.st_uid != self && status.st_uid != 0) {
        error.Printf("%S belongs to user %u, who could change it: give it to the agent's own (chown %u '%S')",
                     path, status.st_uid, self, path);
        return false;
    }
    if ((status.st_mode & S_IWOTH) != 0) {
        error.Printf("%S may be written by every user: take that away (chmod o-w '%S')", path, path);
        return false;
    }
    const bool isOwnGroup = status.st_gid == ::getegid() || status.st_gid == 0;
    if ((status.st_mode & S_IWGRP) != 0 && !isOwnGroup) {
        error.Printf("%S may be written by the members of group %u: take that away (chmod g-w '%S')", path,
                     status.st_gid, path);
        return false;
    }
    return true;
}

bool IsTrustworthyConfiguration(const LumString& directory, LumString& error) {
    if (!IsTrustworthy(directory, error)) {
        return false;
    }
    const std::unique_ptr<LumDirectory, decltype(&CloseDirectory)> listing(OpenDirectory(directory),
                                                                           CloseDirectory);
    for (LumString name; listing != nullptr && ReadDirectory(listing.get(), name);) {
        const LumString path = directory + "/" + name;
        // A file that goes away meanwhile changes nothing for anybody.
        if (name.View().ends_with(".ini") && ::access(path.GetString(), F_OK) == 0 &&
            !IsTrustworthy(path, error)) {
            return false;
        }
    }
    return true;
}
