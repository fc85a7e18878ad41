#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "client/ExitStatus.h"

/// What keeps a command from going on: a sentence for the user, and how lumctl ends by it.
class ClientError : public std::runtime_error {
public:
    /// `details` are further lines. Without `exit` it is what was given to lumctl that is wrong.
    explicit ClientError(const std::string& sentence, ExitStatus exit = ExitStatus::kWrongCommandLine,
                         std::vector<std::string> details = {})
        : std::runtime_error(sentence), exit_(exit), details_(std::move(details)) {}

    [[nodiscard]] ExitStatus GetExit() const { return exit_; }
    [[nodiscard]] const std::vector<std::string>& GetDetails() const { return details_; }

private:
    ExitStatus exit_;
    std::vector<std::string> details_;
};
