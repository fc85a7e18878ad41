#include "client/cli/CommandLine.h"

#include <ostream>

#include "client/cli/CommandParser.h"
#include "client/cli/HelpPage.h"
#include "client/commands/CommandOutput.h"
#include "client/text/Suggestion.h"
#include "client/text/TextTable.h"
#include "host/text/LumUtf8.h"

namespace {

constexpr std::size_t kHelpColumns = 80;

/// A sentence about words that are not expected: the parser's own only lists them, this one says what to do.
std::string DescribeExtras(const CLI::App& app) {
    const std::vector<std::string> extras = app.remaining(true);
    const std::vector<CLI::App*> commands = app.get_subcommands();
    const std::string& word = extras.front();  // without any there would be no complaint
    if (commands.empty() && !word.starts_with("-")) {
        return "there is no command '" + word + "'" + DidYouMean(word, CommandNames(app));
    }
    if (!word.starts_with("-")) {
        return "'" + word + "' is one word too many";
    }
    std::vector<std::string> options;
    for (const CLI::App* place :
         {&app, static_cast<const CLI::App*>(commands.empty() ? nullptr : commands[0])}) {
        for (const CLI::Option* option :
             place != nullptr ? place->get_options() : std::vector<const CLI::Option*>{}) {
            for (const std::string& name : option->get_lnames()) {
                options.push_back("--" + name);
            }
        }
    }
    return "there is no option '" + word + "'" + DidYouMean(word, options);
}

ExitStatus Refuse(const CLI::App& app, const std::string& error, std::ostream& err) {
    const std::vector<CLI::App*> commands = app.get_subcommands();
    err << "lumctl: " << Harmless(error) << "\nlumctl: see lumctl "
        << (commands.empty() ? std::string("--help") : commands.front()->get_name() + " --help") << '\n';
    return ExitStatus::kWrongCommandLine;
}

/// Lists of events alone have every form.
bool HasForm(const std::string& command, OutputFormat output) {
    static const std::vector<std::string> kEventLists{"events", "export", "query"};
    return output == OutputFormat::kTable || output == OutputFormat::kJson ||
           std::find(kEventLists.begin(), kEventLists.end(), command) != kEventLists.end();
}

}  // namespace

std::optional<ExitStatus> ParseCommandLine(int argc, const char* const* argv, CommandLine& commandLine,
                                           std::ostream& out, std::ostream& err) {
    for (int i = 1; i < argc; ++i) {
        if (!LumIsUtf8(argv[i])) {
            err << "lumctl: argument " << i << " is not UTF-8: " << Harmless(argv[i]) << '\n';
            return ExitStatus::kWrongCommandLine;
        }
    }
    // The routines of some commands look at the parser, so it lives as long as they do.
    const auto parser = std::make_shared<CommandParser>(commandLine);
    CLI::App& app = parser->GetApp();
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        const std::vector<CLI::App*> commands = app.get_subcommands();
        out << HelpAsText(MakeHelpPage(app, commands.empty() ? nullptr : commands.front()), kHelpColumns);
        return ExitStatus::kDone;
    } catch (const CLI::CallForVersion& version) {
        out << version.what() << '\n';
        return ExitStatus::kDone;
    } catch (const CLI::ExtrasError&) {
        return Refuse(app, DescribeExtras(app), err);
    } catch (const CLI::ParseError& error) {
        return Refuse(app, error.what(), err);
    }
    if (!commandLine.run) {
        return Refuse(app, "a command is missing", err);
    }
    if (!HasForm(app.get_subcommands().front()->get_name(), commandLine.output)) {
        return Refuse(app, "--output jsonl and csv are for events, export and query", err);
    }
    commandLine.run = [parser, run = std::move(commandLine.run)](CommandContext& context) {
        try {
            return run(context);
        } catch (const ClientError& error) {
            return Fail(context, error);
        }
    };
    return std::nullopt;
}
