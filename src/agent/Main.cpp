#include <exception>
#include <iostream>

#include "agent/Agent.h"
#include "agent/CommandLine.h"

int main(int argc, char** argv) {
    try {
        CommandLine commandLine;
        const std::optional<int> status = ReadCommandLine(argc, argv, commandLine);
        return status.has_value() ? *status : RunAgent(commandLine);
    } catch (const std::exception& error) {
        std::cerr << "lumagent: " << error.what() << '\n';
        return 1;
    }
}
