#include "client/connection/DataDirectory.h"

#include <filesystem>

std::string GuessDataDirectory(const AgentConnection& agent) {
    const std::filesystem::path beside = std::filesystem::path(agent.GetSocketPath()).parent_path();
    std::error_code failure;
    return std::filesystem::is_directory(beside / "EventLogManager", failure) ? beside.string()
                                                                              : "/var/lib/lumagent";
}

std::string ModelsDirectoryIn(const std::string& dataDirectory) {
    return dataDirectory + "/EventLogManager/models";
}

std::string DatabaseIn(const std::string& dataDirectory) {
    return dataDirectory + "/EventLogManager/EventLogManager.sqlite3";
}
