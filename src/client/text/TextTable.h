#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// How many columns of a terminal the characters of `text` (UTF-8) take.
[[nodiscard]] std::size_t DisplayWidth(std::string_view text);

/// `text` without anything that a terminal acts on: control characters, line ends and marks that change the
/// direction of writing are shown as escapes (\n, \x1b, \u202e), bytes that are not UTF-8 as U+FFFD.
[[nodiscard]] std::string Harmless(std::string_view text);

/// A table of text for people. Cells are made harmless and aligned by their display width; one that is wider
/// than kMaxCellWidth is cut and ends in an ellipsis.
class TextTable {
public:
    static constexpr std::size_t kMaxCellWidth = 100;

    enum class Align { kLeft, kRight };

    /// Titles stand out on a terminal.
    void SetBoldTitles(bool bold) { boldTitles_ = bold; }
    /// The longest beginning of `text` that with an ellipsis fits into `width` columns, in its place.
    static void CutTo(std::string& text, std::size_t width);

    void AddColumn(std::string_view title, Align align = Align::kLeft);
    /// Cells in the order of the columns; missing ones are empty, those after the last column are dropped.
    void AddRow(const std::vector<std::string>& cells);

    /// Title line, rule, and one line a row, each ended by a line end and without trailing blanks. Empty
    /// where there is no column.
    [[nodiscard]] std::string Render();
    /// The same for a table that is shown in parts: the rows since the last part, with titles and rule the
    /// first time, which are then forgotten. A later part is never narrower than one before it.
    [[nodiscard]] std::string TakeRendered();

private:
    void AppendLine(std::string& out, const std::vector<std::string>& cells) const;

    struct Column {
        Align align;
        std::size_t width;
    };

    std::vector<Column> columns_;
    std::vector<std::string> titles_;
    std::vector<std::vector<std::string>> rows_;
    bool boldTitles_ = false;
    bool hasTitles_ = false;  ///< they were rendered
};
