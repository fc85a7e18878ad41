#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The pieces that a report is put together of. Texts in pictures stand beside them as text of the page, so
/// that they keep their size however wide the picture is drawn.
namespace html {

/// Text as HTML shows it, with nothing that a browser acts on.
[[nodiscard]] std::string Text(std::string_view text);

/// One of the colours of the page, by its place among those that are told apart.
[[nodiscard]] std::string Colour(std::size_t place);
inline constexpr std::size_t kColours = 6;  ///< and one more for all others

/// A list of names with a bar and a number each; bars are shares of the largest.
struct Bar {
    std::string name;
    uint64_t count = 0;
    bool isRest = false;  ///< all others together: no measure for the named ones
};
[[nodiscard]] std::string BarList(const std::vector<Bar>& bars, std::size_t colour);

/// Columns that stand side by side, each of several parts on top of each other.
struct ColumnPart {
    std::size_t colour = 0;
    std::vector<uint64_t> counts;  ///< one a column
};
/// `label` is read out in place of the picture; `axis` are the labels below, the first and the last at the
/// ends.
[[nodiscard]] std::string Columns(const std::vector<ColumnPart>& parts, std::size_t height,
                                  const std::string& label, const std::vector<std::string>& axis);

/// A field of squares, row by row, the fuller the larger the number, with `rowLabels` beside it.
[[nodiscard]] std::string HeatField(const std::vector<std::vector<uint64_t>>& rows, const std::string& label,
                                    const std::vector<std::string>& rowLabels,
                                    const std::vector<std::string>& axis);

[[nodiscard]] std::string Tile(const std::string& figure, const std::string& what);

}  // namespace html
