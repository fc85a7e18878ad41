#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// A value that stands in the text of a statement: a whole number or a text.
struct StatementLiteral {
    const char* text;  ///< null for a number; else the bytes without quotes, a doubled quote once
    uint32_t length;   ///< of `text`, in bytes
    int64_t number;
};

/// Tells the one form of statement that a busy caller repeats with other values,
///
///     INSERT INTO table [(column, ...)] VALUES (literal, ...)[;]
///
/// with literals that are whole numbers of at most 18 digits or texts in single quotes, and lifts the
/// literals out of it, so that one prepared statement serves all of them. A value that is bound is stored
/// exactly as the same value in the text: the column's affinity is applied to either. What is not certainly
/// of this form, valid or not, is not recognised and is to be run as it stands.
///
/// Refers to the text that it was given, which must outlive it unchanged.
class StatementShape {
public:
    static constexpr std::size_t kMaxLiterals = 96;

    // Only the literals in use are ever read, so none is set here, nor by a defaulted constructor.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init,modernize-use-equals-default)
    StatementShape() {}
    StatementShape(const StatementShape&) = delete;
    StatementShape& operator=(const StatementShape&) = delete;
    ~StatementShape() = default;

    /// True where `sql`, which holds no null byte, ends like a statement of the form. Looks closely at the
    /// values alone: whether the prefix is of the form too is for HasPlainPrefix to say, once for each
    /// prefix.
    [[nodiscard]] bool Recognise(std::string_view sql);

    /// The text up to and with the parenthesis before the first literal.
    [[nodiscard]] std::string_view Prefix() const { return prefix_; }
    [[nodiscard]] std::size_t Count() const { return count_; }
    [[nodiscard]] const StatementLiteral& Literal(std::size_t index) const { return literals_[index]; }

    [[nodiscard]] bool HasPlainPrefix() const;
    /// The statement with a parameter in place of each literal.
    [[nodiscard]] std::string Parametrised() const;

private:
    [[nodiscard]] bool ReadLiterals(const char* at, const char* end);
    [[nodiscard]] const char* ReadText(const char* at, const char* end, StatementLiteral& literal);

    std::string_view prefix_;
    std::size_t count_ = 0;
    std::array<StatementLiteral, kMaxLiterals> literals_;
    std::string undoubled_;
};
