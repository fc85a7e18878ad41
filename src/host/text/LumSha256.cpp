#include "host/text/LumSha256.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include <nettle/base16.h>
#include <nettle/sha2.h>
#include <unistd.h>

namespace {

/// The digest of all that `state` was given.
std::string DigestOf(sha256_ctx& state) {
    std::array<uint8_t, SHA256_DIGEST_SIZE> bytes{};
    sha256_digest(&state, bytes.size(), bytes.data());
    std::string digits(BASE16_ENCODE_LENGTH(bytes.size()), '\0');
    base16_encode_update(digits.data(), bytes.size(), bytes.data());
    return digits;
}

}  // namespace

bool Sha256OfFile(int fd, std::string& digest) {
    sha256_ctx state{};
    sha256_init(&state);
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
        sha256_update(&state, static_cast<std::size_t>(count), buffer.data());
        offset += count;
    }
    digest = DigestOf(state);
    return true;
}

std::string Sha256Hex(std::string_view bytes) {
    sha256_ctx state{};
    sha256_init(&state);
    sha256_update(&state, bytes.size(), reinterpret_cast<const uint8_t*>(bytes.data()));
    return DigestOf(state);
}
