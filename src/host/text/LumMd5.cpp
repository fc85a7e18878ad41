#include "host/text/LumMd5.h"

#include <cstdint>

#include <md5.h>

LumString MD5HashHex(const LumString& text) {
    char digits[MD5_DIGEST_STRING_LENGTH];
    MD5Data(reinterpret_cast<const uint8_t*>(text.GetString()), text.GetLength(), digits);
    return {digits};
}
