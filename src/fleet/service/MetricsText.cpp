#include "fleet/service/MetricsText.h"

#include <array>
#include <cstdio>
#include <fstream>

#include <unistd.h>

void MetricsText::Add(std::string_view kind, std::string_view name, std::string_view help, double value) {
    const std::string whole = prefix_ + std::string(name);
    std::array<char, 32> number{};
    static_cast<void>(std::snprintf(number.data(), number.size(), "%.15g", value));  // fits by far
    text_.append("# HELP ").append(whole).append(" ").append(help).append("\n# TYPE ").append(whole);
    text_.append(" ").append(kind).append("\n");
    text_.append(whole).append(" ").append(number.data()).append("\n");
}

uint64_t ResidentBytes() {
    std::ifstream statm("/proc/self/statm");
    uint64_t total = 0;
    uint64_t resident = 0;
    statm >> total >> resident;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}
