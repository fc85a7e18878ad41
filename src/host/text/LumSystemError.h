#pragma once

#include <cerrno>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// What the system calls the error `number`, as in "No such file or directory".
[[nodiscard]] LUM_API LumString LumSystemErrorText(int number = errno);
