#pragma once

#include <string>

#include "client/connection/AgentConnection.h"

/// Where the agent's data lies, for what is read without its help: the directory of the socket when the
/// module's own directory is beside it, else that of the service.
[[nodiscard]] std::string GuessDataDirectory(const AgentConnection& agent);

/// The directory into which definition files are dropped.
[[nodiscard]] std::string ModelsDirectoryIn(const std::string& dataDirectory);
/// The module's database.
[[nodiscard]] std::string DatabaseIn(const std::string& dataDirectory);
