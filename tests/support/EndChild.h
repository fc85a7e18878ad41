#pragma once

/// Ends a process that a test has forked, at once: what the test itself does at its end is none of its
/// business. In a build that counts lines it ends in the usual way, which writes the counts.
[[noreturn]] void EndChild(int status);
