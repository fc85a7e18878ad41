#pragma once

// What every library needs that stands before the C library's calls.

#include <cstdarg>

#include <dlfcn.h>
#include <fcntl.h>

/// The C library's own call, which the one in front passes on to.
template <class Function>
Function* Real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// The mode that open takes only where it makes a file.
#define LUM_TAKE_MODE(flags, mode)                          \
    mode_t mode = 0;                                        \
    if (((flags) & (O_CREAT | O_TMPFILE)) != 0) {           \
        va_list rest;                                       \
        va_start(rest, flags);                              \
        mode = static_cast<mode_t>(va_arg(rest, unsigned)); \
        va_end(rest);                                       \
    }
