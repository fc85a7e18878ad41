#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

/// What test programs of their own have in common.

/// Runs `work`; the status for the process, 1 where an exception left it, which is printed.
inline int RunProgram(const std::function<void()>& work) {
    try {
        work();
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "failed: %s\n", error.what());
        return EXIT_FAILURE;
    }
}

/// The number that stands first on a command line.
[[nodiscard]] inline uint32_t CountFrom(int argc, char** argv, uint32_t otherwise) {
    return argc > 1 ? static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)) : otherwise;
}

/// The case files that a command line names from its argument `first` on; all of `folder`, in the order of
/// their names, where it names none.
[[nodiscard]] inline std::vector<std::filesystem::path> CasesFrom(int argc, char** argv, int first,
                                                                  const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> cases;
    for (int i = first; i < argc; ++i) {
        cases.emplace_back(argv[i]);
    }
    if (cases.empty()) {
        for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(folder)) {
            if (entry.path().extension() == ".json") {
                cases.push_back(entry.path());
            }
        }
    }
    std::sort(cases.begin(), cases.end());
    return cases;
}
