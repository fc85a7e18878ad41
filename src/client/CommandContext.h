#pragma once

#include <iosfwd>

#include "client/AgentConnection.h"

enum class OutputFormat { kTable, kJson };

/// The streams of a command. What it was asked for goes to `out`, everything else to `err`.
struct Console {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool inIsTerminal;
    bool errIsTerminal;
};

/// What every command works with; nothing is owned.
struct CommandContext {
    AgentConnection& agent;
    OutputFormat output;
    Console& console;
};
