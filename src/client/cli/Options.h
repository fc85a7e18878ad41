#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/commands/Commands.h"
#include "client/commands/Import.h"

/// Everything that the options of the commands are read into. Lives as long as the command that uses it.
struct Options {
    std::string action;
    std::optional<std::string> arguments;
    std::string model;
    CreateOptions create;
    ImportOptions import;
    EventsQuery events;
    ExportOptions exported;
    PurgeOptions purge;
    ChartOptions chart;
    ReportOptions report;
    QueryOptions query;
    std::vector<std::string> files;
    bool yes = false;
    std::vector<std::string> settings;
    std::string alertText;
    std::optional<std::string> alertStatus;
    std::string file;
    std::string helpFor;
    bool asManual = false;
    std::string shell;
    std::vector<std::string> words;
};
