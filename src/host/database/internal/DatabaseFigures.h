#pragma once

#include <cstdint>

/// Where DBFigures are counted. May be called from any thread.
void CountStatement(bool succeeded);
void CountSync(uint64_t changes);
