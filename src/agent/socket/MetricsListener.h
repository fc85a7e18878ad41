#pragma once

#include "host/file/FileDescriptor.h"
#include "host/text/LumString.h"

/// Listens for readers of /metrics at `address`: "PORT", which means 127.0.0.1, "ADDRESS:PORT" with an IPv4
/// address, or "[ADDRESS]:PORT" with an IPv6 one. No descriptor, with the reason in `error`, where that is
/// none of these or the system refuses.
[[nodiscard]] FileDescriptor OpenMetricsListener(const LumString& address, LumString& error);
