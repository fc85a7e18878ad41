#include "client/cli/HelpPage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace {

const std::vector<HelpPage::Entry>& ExitStatuses() {
    static const std::vector<HelpPage::Entry> kStatuses{
        {"0", "Done: the action answered with status 0"},
        {"1", "The action answered with another status, or the agent said no"},
        {"2", "The command line was wrong; the agent was not asked"},
        {"3", "No agent answers at the socket"},
        {"130", "Ctrl-C ended the command"}};
    return kStatuses;
}

const std::vector<HelpPage::Entry>& Environment() {
    static const std::vector<HelpPage::Entry> kVariables{
        {"LUMCTL_SOCKET", "The agent's control socket, where --socket does not name it"},
        {"NO_COLOR", "Set to anything, no colours are used"},
        {"TZ", "The time zone of times that are read and shown"}};
    return kVariables;
}

/// "--since TIME", "-y, --yes", "MODEL".
std::string TermOf(const CLI::Option& option) {
    if (option.get_positional()) {
        return option.get_name(true, false);
    }
    std::string names = option.get_name(false, true);
    for (std::size_t at = names.find(','); at != std::string::npos; at = names.find(',', at + 2)) {
        names.insert(at + 1, " ");
    }
    std::string type = option.get_type_name();
    type.erase(std::min(type.find(':'), type.size()));  // what follows is the check's own name
    return option.get_expected_min() == 0 || type.empty() ? names : names + " " + type;
}

void SortIn(const CLI::App& app, HelpPage::Section& arguments, HelpPage::Section& options) {
    for (const CLI::Option* option : app.get_options()) {
        HelpPage::Section& section = option->get_positional() ? arguments : options;
        section.entries.emplace_back(TermOf(*option), option->get_description());
    }
}

std::string UsageOf(const HelpPage& page, const CLI::App& command) {
    std::string usage = page.name + " [OPTION]...";
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional()) {
            const std::string name = option->get_name(true, false);
            usage += option->get_required() ? " " + name : " [" + name + "]";
            usage += option->get_expected_max() > 1 ? "..." : "";
        }
    }
    return usage;
}

std::vector<HelpPage::Entry> ExamplesOf(const CLI::App& command) {
    std::vector<HelpPage::Entry> examples;
    std::istringstream lines(command.get_footer());
    HelpPage::Entry example;
    while (std::getline(lines, example.first) && std::getline(lines, example.second)) {
        examples.push_back(example);
    }
    return examples;
}

void AddSection(HelpPage& page, HelpPage::Section section) {
    if (!section.entries.empty()) {
        page.sections.push_back(std::move(section));
    }
}

/// The commands under their headings, in the order in which they were added.
void AddCommandLists(const CLI::App& app, HelpPage& page) {
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        const std::string title = command->get_group();
        if (title.empty()) {
            continue;
        }
        auto section = std::find_if(page.sections.begin(), page.sections.end(),
                                    [&](const HelpPage::Section& known) { return known.title == title; });
        if (section == page.sections.end()) {
            section = page.sections.insert(page.sections.end(), {title, {}});
        }
        section->entries.emplace_back(command->get_name(), command->get_description());
    }
}

/// Text in lines of at most `columns`, each after the first begun with `indent` blanks.
std::string Wrapped(const std::string& text, std::size_t indent, std::size_t columns) {
    std::istringstream words(text);
    std::string out;
    std::string word;
    std::size_t used = indent;
    while (words >> word) {
        if (used > indent && used + 1 + word.size() > columns) {
            out += "\n" + std::string(indent, ' ');
            used = indent;
        }
        out += (used > indent ? " " : "") + word;
        used += word.size() + (used > indent ? 1 : 0);
    }
    return out;
}

void AppendEntries(std::string& out, const std::vector<HelpPage::Entry>& entries, std::size_t columns) {
    constexpr std::size_t kTermColumns = 22;
    for (const auto& [term, text] : entries) {
        std::string line = "  " + term;
        if (line.size() + 2 > kTermColumns) {
            line += "\n" + std::string(kTermColumns, ' ');
        } else {
            line.resize(kTermColumns, ' ');
        }
        out += line + Wrapped(text, kTermColumns, columns) + "\n";
    }
}

/// Text as roff takes it: nothing at the start of a line is a request, a minus is one that can be copied.
std::string Roff(const std::string& text) {
    std::string out;
    for (const char letter : text) {
        if (letter == '\\') {
            out += "\\e";
        } else if (letter == '-') {
            out += "\\-";
        } else {
            out += (out.empty() && (letter == '.' || letter == '\'') ? "\\&" : "") + std::string(1, letter);
        }
    }
    return out;
}

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    });
    return text;
}

void AppendRoffSection(std::string& out, const HelpPage::Section& section) {
    out += ".SH " + Upper(section.title) + "\n";
    for (const auto& [term, text] : section.entries) {
        out += ".TP\n.B " + Roff(term) + "\n" + Roff(text) + ".\n";
    }
}

}  // namespace

HelpPage MakeHelpPage(const CLI::App& app, const CLI::App* command) {
    HelpPage page;
    const CLI::App& subject = command != nullptr ? *command : app;
    page.name = command != nullptr ? app.get_name() + " " + command->get_name() : app.get_name();
    page.summary = subject.get_description();
    page.usage =
        command != nullptr ? UsageOf(page, *command) : page.name + " [OPTION]... COMMAND [ARGUMENT]...";
    page.examples = ExamplesOf(subject);
    HelpPage::Section arguments{"Arguments", {}};
    HelpPage::Section options{"Options", {}};
    HelpPage::Section common{"Common options", {}};
    SortIn(subject, arguments, options);
    if (command != nullptr) {
        SortIn(app, arguments, common);
        common.entries.erase(common.entries.begin(), common.entries.begin() + 2);  // --help and --version
    } else {
        AddCommandLists(app, page);
    }
    AddSection(page, arguments);
    AddSection(page, options);
    AddSection(page, common);
    if (command == nullptr) {
        AddSection(page, {"Environment", Environment()});
        AddSection(page, {"Exit status", ExitStatuses()});
    }
    return page;
}

std::string HelpAsText(const HelpPage& page, std::size_t columns) {
    std::string out = Wrapped(page.summary, 0, columns);
    out += out.ends_with('.') ? "\n" : ".\n";
    out += "\nUsage: " + page.usage + "\n";
    for (const HelpPage::Section& section : page.sections) {
        out += "\n" + section.title + ":\n";
        AppendEntries(out, section.entries, columns);
    }
    if (!page.examples.empty()) {
        out += "\nExamples:\n";
        for (const auto& [line, purpose] : page.examples) {
            out += "  " + line + "\n      " + Wrapped(purpose, 6, columns) + "\n";
        }
    }
    return out;
}

std::string HelpAsManual(const HelpPage& page) {
    std::string title = page.name;
    std::replace(title.begin(), title.end(), ' ', '-');
    std::string summary = page.summary;
    if (summary.ends_with('.')) {
        summary.pop_back();
    }
    std::string out = ".TH " + Roff(Upper(title)) + " 1 \"\" \"lumctl " LUM_VERSION "\" \"User Commands\"\n";
    out += ".SH NAME\n" + Roff(title) + " \\- " + Roff(summary) + "\n";
    out += ".SH SYNOPSIS\n.B " + Roff(page.usage) + "\n";
    for (const HelpPage::Section& section : page.sections) {
        AppendRoffSection(out, section);
    }
    if (!page.examples.empty()) {
        out += ".SH EXAMPLES\n";
        for (const auto& [line, purpose] : page.examples) {
            out += ".TP\n.B " + Roff(line) + "\n" + Roff(purpose) + "\n";
        }
    }
    out += ".SH SEE ALSO\n";
    out += page.name == "lumctl" ? "lumctl help COMMAND, lumctl\\-COMMAND(1)\n" : ".BR lumctl (1)\n";
    return out;
}
