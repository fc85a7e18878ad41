#include <cstdio>
#include <string_view>

#include "settings/ShippedSettings.h"

/// bring-settings FROM TO: what the package's installation calls, as the agent's user.
int main(int argc, char** argv) {
    constexpr int kFailed = 1;
    constexpr int kWrongCommandLine = 2;
    if (argc != 3) {
        std::fputs("Usage: bring-settings SHIPPED-DIRECTORY CONFIGURATION-DIRECTORY\n", stderr);
        return kWrongCommandLine;
    }
    LumString error;
    if (!BringSettings(LumString(std::string_view(argv[1])), LumString(std::string_view(argv[2])), error)) {
        std::fprintf(stderr, "bring-settings: %s\n", error.GetString());
        return kFailed;
    }
    return 0;
}
