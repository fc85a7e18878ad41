#pragma once

#include <cstdint>

/// How an answer is written: a table for people, the others for programs.
enum class OutputFormat : uint8_t { kTable, kJson, kJsonLines, kCsv };
