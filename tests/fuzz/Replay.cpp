#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "FuzzTarget.h"

// Runs the target on every file of the directories it is given: what a build without libFuzzer does.

namespace {

int ReplayDirectory(const std::filesystem::path& directory) {
    int files = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        std::printf("%s\n", entry.path().c_str());
        std::fflush(stdout);
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++files;
    }
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (ReplayDirectory(argv[i]) == 0) {
            std::fprintf(stderr, "No corpus in %s\n", argv[i]);
            return 1;
        }
    }
    return argc > 1 ? 0 : 2;
}
