#include "agent/ProcessFigures.h"

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include <sys/resource.h>

ProcessFigures ReadProcessFigures() {
    ProcessFigures figures;
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            status >> figures.residentBytes;
            figures.residentBytes *= 1024;  // the file has kibibytes
        } else if (word == "Threads:") {
            status >> figures.threads;
        }
    }
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end; !error && entry != end;
         entry.increment(error)) {
        ++figures.openFiles;
    }
    rusage usage = {};
    if (::getrusage(RUSAGE_SELF, &usage) == 0) {
        const auto seconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        figures.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    }
    return figures;
}
