#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/connection/AgentConnection.h"

namespace CLI {
class App;
}

/// The command that the scripts of the shells call for the candidates.
inline constexpr std::string_view kCandidatesCommand = "__complete";

/// The script that lets a shell complete lumctl's command lines; empty for an unknown shell.
[[nodiscard]] std::string CompletionScript(std::string_view shell);

/// What may stand in place of the last of `words`, the words after "lumctl" as far as they are typed:
/// commands, options, names of models and, after a model, its parameters with an equals sign. The agent is
/// asked for the names; where none answers there are none.
[[nodiscard]] std::vector<std::string> CompletionCandidates(const CLI::App& app, AgentConnection& agent,
                                                            const std::vector<std::string>& words);
