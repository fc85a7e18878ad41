#pragma once

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// The MD5 digest (RFC 1321) of the text's bytes as 32 hexadecimal digits in lower case.
[[nodiscard]] LUM_API LumString MD5HashHex(const LumString& text);
