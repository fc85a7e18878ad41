#include "support/UdevMessages.h"

#include <cstdint>
#include <cstring>
#include <string_view>

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// The group in which the device manager speaks; the kernel itself speaks in the first one.
constexpr uint32_t kManagerGroup = 2;
constexpr uint32_t kMagic = 0xfeedcafe;

struct Header {
    char prefix[8] = {'l', 'i', 'b', 'u', 'd', 'e', 'v', '\0'};
    uint32_t magic = htonl(kMagic);
    uint32_t headerSize = sizeof(Header);
    uint32_t propertiesOffset = sizeof(Header);
    uint32_t propertiesLength = 0;
    uint32_t subsystemHash = 0;
    uint32_t typeHash = 0;
    uint32_t tagBloomHigh = 0;
    uint32_t tagBloomLow = 0;
};

/// MurmurHash2 of A. Appleby with seed 0, by which the listeners' socket filters tell subsystems and types
/// apart.
uint32_t Hash(std::string_view text) {
    constexpr uint32_t kFactor = 0x5bd1e995;
    auto hash = static_cast<uint32_t>(text.size());
    std::size_t at = 0;
    for (; at + 4 <= text.size(); at += 4) {
        uint32_t word = 0;
        std::memcpy(&word, text.data() + at, sizeof(word));
        word *= kFactor;
        word ^= word >> 24U;
        hash = hash * kFactor ^ word * kFactor;
    }
    if (at < text.size()) {
        uint32_t rest = 0;
        std::memcpy(&rest, text.data() + at, text.size() - at);
        hash = (hash ^ rest) * kFactor;
    }
    hash = (hash ^ hash >> 13U) * kFactor;
    return hash ^ hash >> 15U;
}

}  // namespace

UdevMessages::UdevMessages() : socket_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT)) {}

UdevMessages::~UdevMessages() {
    if (socket_ >= 0) {
        close(socket_);
    }
}

bool UdevMessages::Send(const Properties& properties) const {
    Header header;
    std::string text;
    for (const auto& [name, value] : properties) {
        text += name + "=" + value + '\0';
        if (name == "SUBSYSTEM") {
            header.subsystemHash = htonl(Hash(value));
        } else if (name == "DEVTYPE") {
            header.typeHash = htonl(Hash(value));
        }
    }
    header.propertiesLength = static_cast<uint32_t>(text.size());
    const std::string message = std::string(reinterpret_cast<const char*>(&header), sizeof(header)) + text;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kManagerGroup;
    return sendto(socket_, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                  sizeof(address)) == static_cast<ssize_t>(message.size());
}
