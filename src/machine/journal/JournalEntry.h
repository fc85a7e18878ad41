#pragma once

#include <cstddef>
#include <ctime>
#include <map>
#include <string>
#include <string_view>

/// One entry of the journal. Names that begin with an underscore are the journal's own word on who wrote the
/// entry; every other field is what the writer says.
class JournalEntry {
public:
    /// Longer values are cut.
    static constexpr std::size_t kMaxValueBytes = 4096;

    struct Field {
        std::string value;
        bool isDoubled = false;
    };
    using Fields = std::map<std::string, Field, std::less<>>;

    std::time_t time = 0;  ///< when the journal took the entry in
    std::string cursor;

    /// The first value of a field, empty where there is none.
    [[nodiscard]] std::string_view Get(std::string_view name) const;
    /// True where the field is there once, with that value.
    [[nodiscard]] bool Is(std::string_view name, std::string_view value) const;
    /// What stays the same when the journal copies the entry into another of its files.
    [[nodiscard]] std::string_view Identity() const;
    [[nodiscard]] const Fields& GetFields() const { return fields_; }

    void Clear() { fields_.clear(); }
    void Add(std::string_view name, std::string_view value);

private:
    Fields fields_;
};
