#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

/// What there is to say about lumctl or one of its commands, taken from the parser itself: the help on the
/// terminal and the manual page are two ways to print it.
struct HelpPage {
    using Entry = std::pair<std::string, std::string>;  ///< a term, and what it means
    struct Section {
        std::string title;
        std::vector<Entry> entries;
    };

    std::string name;     ///< "lumctl", or "lumctl events"
    std::string summary;  ///< a sentence without its end
    std::string usage;
    std::vector<Section> sections;
    std::vector<Entry> examples;
};

/// The page of a command of `app`, or of the program itself where `command` is null.
[[nodiscard]] HelpPage MakeHelpPage(const CLI::App& app, const CLI::App* command);

/// The page for a terminal of that width.
[[nodiscard]] std::string HelpAsText(const HelpPage& page, std::size_t columns);

/// The page as a manual page of section 1, in roff's man macros.
[[nodiscard]] std::string HelpAsManual(const HelpPage& page);
