#pragma once

#include <string>

/// True where the first certificate of the PEM file `path` is one that is not valid any more by the system's
/// clock; false for any other one, and for a file that is not there or holds none.
[[nodiscard]] bool HasRunOut(const std::string& path);
