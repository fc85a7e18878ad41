#pragma once

#include <memory>

#include <spdlog/formatter.h>

/// What makes a line of a message: the local time with milliseconds and zone, then the text.
[[nodiscard]] std::unique_ptr<spdlog::formatter> MakeLineFormatter(bool withPriority = false);
