#include "host/text/LumMd5.h"

#include <array>
#include <cstdint>

#include <nettle/base16.h>
#include <nettle/md5.h>

LumString MD5HashHex(const LumString& text) {
    md5_ctx state{};
    md5_init(&state);
    md5_update(&state, text.GetLength(), reinterpret_cast<const uint8_t*>(text.GetString()));
    std::array<uint8_t, MD5_DIGEST_SIZE> bytes{};
    md5_digest(&state, bytes.size(), bytes.data());
    std::array<char, BASE16_ENCODE_LENGTH(MD5_DIGEST_SIZE) + 1> digits{};
    base16_encode_update(digits.data(), bytes.size(), bytes.data());
    return {digits.data()};
}
