#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "BuildPaths.h"
#include "FuzzTarget.h"

// Runs the target on every file of its corpus: what a build without libFuzzer does.

namespace {

constexpr const char* kCorpus = LUM_SOURCE_DIR "/tests/fuzz/corpus/" LUM_FUZZ_TARGET;

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

int main() {
    if (ReplayDirectory(kCorpus) == 0) {
        std::fprintf(stderr, "No corpus in %s\n", kCorpus);
        return 1;
    }
    return 0;
}
