#include "agent/socket/Client.h"

#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include <pwd.h>
#include <sys/socket.h>

#ifndef SO_PEERGROUPS
#define SO_PEERGROUPS 59  // Linux 4.13, asm-generic/socket.h
#endif

namespace {

using Clock = std::chrono::steady_clock;

/// A look into the user database may cost a file or a server; a name hardly ever changes.
constexpr std::chrono::seconds kNameLife(60);

void AppendGroups(int socket, std::vector<gid_t>& groups) {
    constexpr std::size_t most = 65536;  // NGROUPS_MAX of Linux
    std::vector<gid_t> further(32);
    for (;;) {
        auto size = static_cast<socklen_t>(further.size() * sizeof(gid_t));
        if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, further.data(), &size) == 0) {
            groups.insert(groups.end(), further.begin(),
                          further.begin() + static_cast<std::ptrdiff_t>(size / sizeof(gid_t)));
            return;
        }
        if (errno != ERANGE || further.size() >= most) {
            return;  // no further groups: a client may only lose rights by that
        }
        further.resize(further.size() * 4);
    }
}

LumString LookUpUser(uid_t user) {
    passwd entry = {};
    passwd* found = nullptr;
    std::vector<char> buffer(1024);
    while (::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    return found != nullptr ? LumString(found->pw_name) : LumString(std::to_string(user));
}

}  // namespace

Client ReadClient(int socket) {
    Client client;
    ucred credentials = {};
    socklen_t size = sizeof(credentials);
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 ||
        credentials.uid == static_cast<uid_t>(-1)) {
        return client;
    }
    client.isLocal = true;
    client.user = credentials.uid;
    client.groups.push_back(credentials.gid);
    AppendGroups(socket, client.groups);
    return client;
}

LumString UserName(uid_t user) {
    static std::mutex mutex;
    static std::map<uid_t, std::pair<LumString, Clock::time_point>> known;
    const Clock::time_point now = Clock::now();
    {
        const std::lock_guard<std::mutex> guard(mutex);
        const auto found = known.find(user);
        if (found != known.end() && now - found->second.second < kNameLife) {
            return found->second.first;
        }
    }
    LumString name = LookUpUser(user);
    const std::lock_guard<std::mutex> guard(mutex);
    known[user] = {name, now};
    return name;
}
