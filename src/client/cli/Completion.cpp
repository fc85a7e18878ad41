#include "client/cli/Completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>

#include "client/cli/CommandParser.h"
#include "client/commands/CommandOutput.h"
#include "client/model/Requests.h"
#include "contract/Actions.h"

namespace {

constexpr std::string_view kBash = R"(# bash completion of lumctl
_lumctl() {
    local words=("${COMP_WORDS[@]:1:COMP_CWORD}")
    mapfile -t COMPREPLY < <(lumctl __complete -- "${words[@]}" 2>/dev/null)
    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then
        compopt -o nospace
    fi
}
complete -o default -F _lumctl lumctl
)";

constexpr std::string_view kZsh = R"(#compdef lumctl
_lumctl() {
    local -a found
    found=("${(@f)$(lumctl __complete -- "${(@)words[2,CURRENT]}" 2>/dev/null)}")
    if [[ -n ${found[1]} ]]; then
        compadd -S '' -- ${(M)found:#*=}
        compadd -- ${found:#*=}
    else
        _files
    fi
}
compdef _lumctl lumctl
)";

constexpr std::string_view kFish = R"(# fish completion of lumctl
function __lumctl_candidates
    set -l words (commandline -opc) (commandline -ct)
    lumctl __complete -- $words[2..-1] 2>/dev/null
end
complete -c lumctl -a '(__lumctl_candidates)'
)";

bool TakesModel(const CLI::App& command) {
    return command.get_option_no_throw("MODEL") != nullptr;
}

bool TakesAssignments(const CLI::App& command) {
    return command.get_option_no_throw("PARAM=VALUE") != nullptr;
}

void AppendOptions(const CLI::App& app, std::vector<std::string>& names) {
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
}

/// Whether the word is the value of the option before it.
bool IsValueOf(const CLI::App& command, const std::string& before) {
    const CLI::Option* option = before.starts_with("--") ? command.get_option_no_throw(before) : nullptr;
    if (option == nullptr && before.starts_with("--") && command.get_parent() != nullptr) {
        option = command.get_parent()->get_option_no_throw(before);
    }
    return option != nullptr && option->get_expected_min() > 0;
}

std::vector<std::string> Parameters(AgentConnection& agent, const std::vector<std::string>& models,
                                    const std::string& model) {
    std::vector<std::string> names;
    if (std::find(models.begin(), models.end(), model) == models.end()) {
        return names;  // a question about it would raise an alert
    }
    const AgentAnswer answer = CallAction(agent, actions::kGetModel, ModelRequest(model));
    const std::optional<ModelDefinition> definition = ModelDefinitionFromAnswer(answer.content);
    for (std::size_t i = 0; definition && i < definition->parameters.size(); ++i) {
        names.push_back(definition->parameters[i].name + "=");
    }
    return names;
}

/// The words that are neither options nor their values, without the last.
std::vector<std::string> PlainWords(const CLI::App& app, const std::vector<std::string>& words) {
    std::vector<std::string> plain;
    const CLI::App* command = &app;
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        if (words[i].starts_with("-") || (i > 0 && IsValueOf(*command, words[i - 1]))) {
            continue;
        }
        if (plain.empty()) {
            const CLI::App* const named = FindCommand(app, words[i]);
            command = named != nullptr ? named : command;
        }
        plain.push_back(words[i]);
    }
    return plain;
}

std::vector<std::string> AllCandidates(const CLI::App& app, AgentConnection& agent,
                                       const std::vector<std::string>& words) {
    const std::vector<std::string> plain = PlainWords(app, words);
    const CLI::App* const command = plain.empty() ? nullptr : FindCommand(app, plain.front());
    std::vector<std::string> names;
    if (!words.empty() && words.back().starts_with("-")) {
        AppendOptions(app, names);
        if (command != nullptr) {
            AppendOptions(*command, names);
        }
    } else if (plain.empty() || plain.front() == "help") {
        names = CommandNames(app);
    } else if (plain.front() == "completion") {
        names = {"bash", "zsh", "fish"};
    } else if (command != nullptr && TakesModel(*command)) {
        names = NamesIn(FetchModelList(agent));
        if (plain.size() > 1) {
            names =
                TakesAssignments(*command) ? Parameters(agent, names, plain[1]) : std::vector<std::string>{};
        }
    }
    return names;
}

}  // namespace

std::string CompletionScript(std::string_view shell) {
    return std::string(shell == "bash"   ? kBash
                       : shell == "zsh"  ? kZsh
                       : shell == "fish" ? kFish
                                         : std::string_view());
}

std::vector<std::string> CompletionCandidates(const CLI::App& app, AgentConnection& agent,
                                              const std::vector<std::string>& words) {
    std::vector<std::string> found;
    const std::string typed = words.empty() ? "" : words.back();
    if (words.size() > 1 && words[words.size() - 2] == "--output") {
        found = {"table", "json", "jsonl", "csv"};
    } else {
        found = AllCandidates(app, agent, words);
    }
    found.erase(std::remove_if(found.begin(), found.end(),
                               [&](const std::string& name) { return !name.starts_with(typed); }),
                found.end());
    return found;
}
