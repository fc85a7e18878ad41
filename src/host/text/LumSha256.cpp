#include "host/text/LumSha256.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include <sha2.h>
#include <unistd.h>

bool Sha256OfFile(int fd, std::string& digest) {
    SHA2_CTX state;
    SHA256Init(&state);
    std::array<uint8_t, 1U << 16U> buffer{};
    for (off_t offset = 0;;) {
        const ssize_t count = pread(fd, buffer.data(), buffer.size(), offset);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        if (count == 0) {
            break;
        }
        SHA256Update(&state, buffer.data(), static_cast<std::size_t>(count));
        offset += count;
    }
    std::array<char, SHA256_DIGEST_STRING_LENGTH> text{};
    digest = SHA256End(&state, text.data());
    return true;
}

std::string Sha256Hex(std::string_view bytes) {
    SHA2_CTX state;
    SHA256Init(&state);
    SHA256Update(&state, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    std::array<char, SHA256_DIGEST_STRING_LENGTH> text{};
    return SHA256End(&state, text.data());
}
