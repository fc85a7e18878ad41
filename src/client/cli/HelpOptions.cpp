#include <ostream>

#include "client/cli/CommandParser.h"
#include "client/cli/Completion.h"
#include "client/cli/HelpPage.h"
#include "client/commands/CommandOutput.h"
#include "client/text/Suggestion.h"

namespace {

void AddHelp(CommandParser& parser) {
    Options& options = parser.GetOptions();
    const CLI::App& app = parser.GetApp();
    CLI::App& help = parser.AddCommand(
        kHelpGroup, "help", "Show what a command does, with examples",
        [&app](CommandContext& context, const Options& given) {
            const CLI::App* const command = given.helpFor.empty() ? nullptr : FindCommand(app, given.helpFor);
            if (command == nullptr && !given.helpFor.empty()) {
                return Fail(context, ExitStatus::kWrongCommandLine,
                            "there is no command '" + given.helpFor + "'" +
                                DidYouMean(given.helpFor, CommandNames(app)));
            }
            const HelpPage page = MakeHelpPage(app, command);
            context.console.out << (given.asManual ? HelpAsManual(page)
                                                   : HelpAsText(page, context.console.columns));
            return ExitStatus::kDone;
        },
        {{"help events", "The same as lumctl events --help."}});
    help.add_option("COMMAND", options.helpFor, "The command; all of them where none is given");
    help.add_flag("--man", options.asManual, "Print it as a manual page, for man --local-file -");
}

void AddCompletion(CommandParser& parser) {
    Options& options = parser.GetOptions();
    const CLI::App& app = parser.GetApp();
    CLI::App& completion = parser.AddCommand(
        kHelpGroup, "completion",
        "Print the completion of commands, options, models and parameters for a shell",
        [](CommandContext& context, const Options& given) {
            const std::string script = CompletionScript(given.shell);
            if (script.empty()) {
                return Fail(context, ExitStatus::kWrongCommandLine,
                            "'" + given.shell + "' is not one of bash, zsh, fish");
            }
            context.console.out << script;
            return ExitStatus::kDone;
        },
        {{"completion bash > /etc/bash_completion.d/lumctl", "For all users of bash."},
         {"completion fish > ~/.config/fish/completions/lumctl.fish", "For one user of fish."}});
    completion.add_option("SHELL", options.shell, "bash, zsh or fish")->required();

    // What the scripts ask: not shown in the help.
    CLI::App& words = parser.AddCommand(
        "", std::string(kCandidatesCommand), "Print what may stand in place of the last word",
        [&app](CommandContext& context, const Options& given) {
            for (const std::string& candidate : CompletionCandidates(app, context.agent, given.words)) {
                context.console.out << candidate << '\n';
            }
            return ExitStatus::kDone;
        },
        {});
    words.add_option("WORDS", options.words, "The words of the command line after lumctl");
}

}  // namespace

void AddHelpCommands(CommandParser& parser) {
    AddHelp(parser);
    AddCompletion(parser);
}
