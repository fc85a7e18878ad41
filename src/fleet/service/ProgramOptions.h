#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fleet/broker/Broker.h"
#include "host/log/LumDebug.h"

/// The options of a program, each of which may also stand in an ini file: the key is the option's name
/// without its dashes, in upper camel case (--tls-key is TlsKey). The command line wins over the file.
class ProgramOptions {
public:
    /// `section` is the one of the ini file that holds this program's keys.
    ProgramOptions(const std::string& description, const std::string& program, const std::string& section);
    ProgramOptions(const ProgramOptions&) = delete;
    ProgramOptions& operator=(const ProgramOptions&) = delete;
    ~ProgramOptions();

    /// Each adds an option that is read into `value`, which holds its default and must outlive this object.
    void Add(const std::string& name, std::string& value, const std::string& type, const std::string& help);
    void Add(const std::string& name, int64_t& value, int64_t lowest, int64_t highest,
             const std::string& help);
    /// A switch; "1", "yes", "true" or "on" in the ini file.
    void Add(const std::string& name, bool& value, const std::string& help);
    /// The options of a connection to the broker.
    void AddBroker(BrokerSettings& settings);

    /// Reads the command line, and the ini file that --config names. Nothing is returned where the program is
    /// to run; else its exit status: 0 after --help and --version, 2 for a mistake, and what there is to say
    /// was written. Sets the level of the log.
    [[nodiscard]] std::optional<int> Read(int argc, const char* const* argv);

private:
    struct Parts;

    std::unique_ptr<Parts> parts_;
};
