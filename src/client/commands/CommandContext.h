#pragma once

#include <cstddef>
#include <iosfwd>

#include "client/connection/AgentConnection.h"
#include "client/text/OutputFormat.h"

/// The streams of a command. What it was asked for goes to `out`, everything else to `err`.
struct Console {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool inIsTerminal = false;
    bool outIsTerminal = false;
    bool errIsTerminal = false;
    bool colours = false;      ///< of `out`: a terminal whose user did not say no
    bool unicode = true;       ///< the user's locale has characters beyond ASCII
    std::size_t columns = 80;  ///< width of the terminal
};

/// What every command works with; nothing is owned.
struct CommandContext {
    AgentConnection& agent;
    OutputFormat output;
    Console& console;
};
