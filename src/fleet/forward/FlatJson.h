#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// The members of a JSON object that are texts, whole numbers from 0 on, true or false. Members of any other
/// kind are as if they were not there. Reading one builds no tree, which a backlog of small files is quicker
/// for.
class FlatJson {
public:
    /// False where `text` is not one JSON object; then nothing is known.
    [[nodiscard]] bool Read(std::string_view text);

    /// The member `name`, the last one of that name; empty, nothing or false where it is not there or of
    /// another kind.
    [[nodiscard]] std::string Text(std::string_view name) const;
    [[nodiscard]] std::optional<uint64_t> Number(std::string_view name) const;
    [[nodiscard]] bool IsTrue(std::string_view name) const;

private:
    using Value = std::variant<std::monostate, std::string, uint64_t, bool>;
    class Reader;

    [[nodiscard]] const Value* Find(std::string_view name) const;

    std::vector<std::pair<std::string, Value>> members_;
};
