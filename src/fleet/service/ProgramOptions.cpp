#include "fleet/service/ProgramOptions.h"

#include <CLI/CLI.hpp>
#include <cctype>

#include "host/file/LumFile.h"
#include "host/ini/IniFile.h"

namespace {

constexpr int kWrongCommandLine = 2;
constexpr std::size_t kMaxIniBytes = 1U << 20U;

/// tls-key as TlsKey.
std::string KeyOf(const std::string& option) {
    std::string key;
    bool atStart = true;
    for (const char letter : option) {
        if (letter == '-') {
            atStart = true;
        } else {
            key += atStart ? static_cast<char>(std::toupper(static_cast<unsigned char>(letter))) : letter;
            atStart = false;
        }
    }
    return key;
}

}  // namespace

struct ProgramOptions::Parts {
    CLI::App app;
    std::string section;
    std::string configPath;
    std::string level = "print";
    std::vector<CLI::Option*> options;

    Parts(const std::string& description, const std::string& name, const std::string& iniSection)
        : app(description, name), section(iniSection) {}

    CLI::Option* Keep(CLI::Option* option) {
        options.push_back(option);
        return option;
    }

    /// Gives every option that the command line left alone what the file says; throws what CLI11 throws.
    void ReadIni() const {
        const LumString path{std::string_view(configPath)};
        std::string content;
        LumString reason;
        if (!FileRead(path, kMaxIniBytes, content, reason)) {
            throw CLI::ValidationError("--config", configPath + ": " + std::string(reason.View()));
        }
        const auto entries = IniFile(path).GetEntries(LumString(std::string_view(section)));
        for (const auto& [key, value] : entries) {
            CLI::Option* const option = Find(key);
            if (option == nullptr) {
                throw CLI::ValidationError(
                    configPath, "[" + section + "] has no setting '" + std::string(key.View()) + "'");
            }
            if (option->count() == 0) {
                option->add_result(std::string(value.View()));
                option->run_callback();
            }
        }
    }

    [[nodiscard]] CLI::Option* Find(const LumString& key) const {
        for (CLI::Option* const option : options) {
            const std::string name = KeyOf(option->get_single_name());
            if (key.IsEqualTo(LumString(std::string_view(name)), false)) {
                return option;
            }
        }
        return nullptr;
    }
};

ProgramOptions::ProgramOptions(const std::string& description, const std::string& program,
                               const std::string& section)
    : parts_(std::make_unique<Parts>(description, program, section)) {
    parts_->app.set_version_flag("--version", program + " " + LUM_VERSION);
    parts_->app
        .add_option("--config", parts_->configPath, "Ini file whose section [" + section + "] holds settings")
        ->type_name("FILE");
    parts_->Keep(parts_->app.add_option("--log-level", parts_->level, "trace, print, warning or error")
                     ->check(CLI::IsMember({"trace", "print", "warning", "error"}))
                     ->capture_default_str()
                     ->type_name("LEVEL"));
}

ProgramOptions::~ProgramOptions() = default;

void ProgramOptions::Add(const std::string& name, std::string& value, const std::string& type,
                         const std::string& help) {
    parts_->Keep(parts_->app.add_option(name, value, help)->type_name(type)->capture_default_str());
}

void ProgramOptions::Add(const std::string& name, int64_t& value, int64_t lowest, int64_t highest,
                         const std::string& help) {
    parts_->Keep(parts_->app.add_option(name, value, help)
                     ->check(CLI::Range(lowest, highest))
                     ->type_name("N")
                     ->capture_default_str());
}

void ProgramOptions::Add(const std::string& name, bool& value, const std::string& help) {
    parts_->Keep(parts_->app.add_flag(name, value, help));
}

void ProgramOptions::AddBroker(BrokerSettings& settings) {
    Add("--servers", settings.servers, "URL,...",
        "Servers of the broker, nats://HOST:PORT or tls://HOST:PORT");
    Add("--tls-ca", settings.authorityFile, "FILE", "Certificates that the servers' are verified with");
    Add("--tls-cert", settings.certificateFile, "FILE", "Own certificate chain");
    Add("--tls-key", settings.keyFile, "FILE", "Key of the own certificate");
    Add("--credentials", settings.credentialsFile, "FILE", "User credentials of the broker");
    Add("--user", settings.user, "NAME", "User at the broker");
    Add("--password-file", settings.passwordFile, "FILE", "File whose first line is the user's password");
}

std::optional<int> ProgramOptions::Read(int argc, const char* const* argv) {
    try {
        parts_->app.parse(argc, argv);
        if (!parts_->configPath.empty()) {
            parts_->ReadIni();
        }
    } catch (const CLI::ParseError& error) {
        return parts_->app.exit(error) == 0 ? 0 : kWrongCommandLine;
    }
    LumLogLevel level = LumLogLevel::kPrint;
    static_cast<void>(LumLogLevelFromName(parts_->level, level));  // one of the four, as was checked
    LumDebugContext::Default().SetLevel(level);
    return std::nullopt;
}
