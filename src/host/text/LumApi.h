#pragma once

/// Marks what libLum and libLumCore export. Everything else stays inside its library.
#define LUM_API __attribute__((visibility("default")))
