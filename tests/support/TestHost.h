#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/LinkedModule.h"

/// The linked module under the verbs that older tests have for it. New tests take LinkedModule.
class TestHost : public LinkedModule {
public:
    using LinkedModule::StartWith;
    /// Drops a model file and starts the module, which registers it.
    void StartWith(std::string_view definition) const;

    /// Changes the database as another program would; true where that worked.
    [[nodiscard]] bool Change(const std::string& sql) const { return Database().Try(sql) == SQLITE_OK; }

    /// The lines of the module's logger so far: "error RegisterModel: Failed to ...".
    [[nodiscard]] std::vector<std::string> Log() const { return TestAgent::Log().Said(LumLogLevel::kTrace); }
    /// The same without trace lines, from the `from`th line on.
    [[nodiscard]] std::vector<std::string> Said(std::size_t from = 0) const;
    /// How many lines begin with `text`.
    [[nodiscard]] std::size_t CountLines(std::string_view text) const { return TestAgent::Log().Count(text); }
    /// The same for the lines of the host's own libraries.
    [[nodiscard]] std::size_t CountHostLines(std::string_view text) const { return HostLog().Count(text); }
};

/// The user model "Logon" with the parameters Count (integer, default 0) and User (text, no default).
extern const std::string kLogonDefinition;
/// A user model called `name` with the given PARAM elements.
[[nodiscard]] std::string UserModel(std::string_view name, std::string_view params);
/// One PARAM element; an empty default is left out.
[[nodiscard]] std::string Param(std::string_view name, std::string_view type,
                                std::string_view defaultText = {});
/// An automatic model called `name` over `source` with the given PARAM elements and aggregation entries.
[[nodiscard]] std::string AutomaticModel(std::string_view name, std::string_view source,
                                         std::string_view policy, std::string_view params,
                                         std::string_view aggregation = {});
