#include "client/report/Html.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "client/text/Quantity.h"
#include "client/text/TextTable.h"

namespace html {

namespace {

/// A number with at most two digits after the point, which is a point whatever the locale.
std::string Fixed(double number) {
    std::array<char, 32> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%.2f", number));  // the C locale is in force
    std::string out(text.data());
    out.erase(out.find_last_not_of('0') + 1);
    if (out.back() == '.') {
        out.pop_back();
    }
    return out;
}

double Share(uint64_t count, uint64_t of) {
    return of == 0 ? 0 : static_cast<double>(count) / static_cast<double>(of);
}

/// The smallest of 1, 2, 4, 6, 8, 10, 20, 40, ... that is not below `largest`, as the top of a scale: its
/// middle is a round number too.
uint64_t TopOfScale(uint64_t largest) {
    uint64_t unit = 1;
    while (unit <= largest / 10) {
        unit *= 10;
    }
    for (const uint64_t factor : {1U, 2U, 4U, 6U, 8U}) {
        if (unit * factor >= largest) {
            return unit * factor;
        }
    }
    return unit * 10;
}

std::string Rectangle(double x, double y, double width, double height, std::string_view fill,
                      std::string_view more = {}) {
    return "<rect x=\"" + Fixed(x) + "\" y=\"" + Fixed(y) + "\" width=\"" + Fixed(width) + "\" height=\"" +
           Fixed(height) + "\" fill=\"" + std::string(fill) + "\"" + std::string(more) + "/>";
}

std::string Picture(double width, double height, std::string_view pixels, const std::string& label) {
    return "<svg viewBox=\"0 0 " + Fixed(width) + " " + Fixed(height) +
           R"(" preserveAspectRatio="none" height=")" + std::string(pixels) + R"(" role="img" aria-label=")" +
           Text(label) + "\">";
}

/// Labels in the middle give way on a narrow screen.
std::string Axis(const std::vector<std::string>& labels) {
    std::string out = "<div class=\"axis\">";
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const bool atEnd = i == 0 || i + 1 == labels.size();
        out += (atEnd ? "<span>" : "<span class=\"wide\">") + Text(labels[i]) + "</span>";
    }
    return out + "</div>";
}

std::string Ticks(const std::vector<std::string>& labels) {
    std::string out = "<div class=\"ticks\">";
    for (const std::string& label : labels) {
        out += "<span>" + Text(label) + "</span>";
    }
    return out + "</div>";
}

}  // namespace

std::string Text(std::string_view text) {
    std::string out;
    for (const char letter : Harmless(text)) {
        switch (letter) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += letter;
                break;
        }
    }
    return out;
}

std::string Colour(std::size_t place) {
    return "var(--c" + std::to_string(std::min(place, kColours)) + ")";
}

std::string BarList(const std::vector<Bar>& bars, std::size_t colour) {
    uint64_t largest = 0;
    for (const Bar& bar : bars) {
        largest = bar.isRest && bars.size() > 1 ? largest : std::max(largest, bar.count);
    }
    std::string out = "<div class=\"bars\">";
    for (const Bar& bar : bars) {
        const double width = bar.count == 0 ? 0 : std::clamp(100 * Share(bar.count, largest), 0.5, 100.0);
        out += "<span class=\"name\">" + Text(bar.name.empty() ? "(empty)" : bar.name) +
               R"(</span><svg viewBox="0 0 100 1" preserveAspectRatio="none" aria-hidden="true">)" +
               Rectangle(0, 0, width, 1, Colour(bar.isRest ? kColours : colour)) +
               "</svg><span class=\"number\">" + WithThousands(bar.count) + "</span>\n";
    }
    return out + "</div>\n";
}

std::string Columns(const std::vector<ColumnPart>& parts, std::size_t height, const std::string& label,
                    const std::vector<std::string>& axis) {
    constexpr double kStep = 10;
    constexpr double kColumn = 8;
    constexpr double kTop = 100;
    const std::size_t columns = parts.empty() ? 0 : parts.front().counts.size();
    std::vector<uint64_t> sums(columns);
    for (const ColumnPart& part : parts) {
        std::transform(part.counts.begin(), part.counts.end(), sums.begin(), sums.begin(), std::plus<>());
    }
    const uint64_t top = TopOfScale(sums.empty() ? 0 : *std::max_element(sums.begin(), sums.end()));
    const double width = kStep * static_cast<double>(std::max<std::size_t>(columns, 1));
    std::string out =
        "<div class=\"plot\">" + Ticks({WithThousands(top), top > 1 ? WithThousands(top / 2) : "", "0"});
    out += Picture(width, kTop, std::to_string(height), label);
    for (const double at : {0.0, kTop / 2, kTop}) {
        out += R"(<line class="grid" x1="0" y1=")" + Fixed(at) + "\" x2=\"" + Fixed(width) + "\" y2=\"" +
               Fixed(at) + "\"/>";
    }
    for (std::size_t i = 0; i < columns; ++i) {
        double bottom = kTop;
        for (const ColumnPart& part : parts) {
            const double tall = kTop * Share(part.counts[i], top);
            if (part.counts[i] > 0) {
                bottom -= tall;
                out += Rectangle(kStep * static_cast<double>(i) + (kStep - kColumn) / 2, bottom, kColumn,
                                 tall, Colour(part.colour));
            }
        }
    }
    return out + "</svg>" + Axis(axis) + "</div>\n";
}

std::string HeatField(const std::vector<std::vector<uint64_t>>& rows, const std::string& label,
                      const std::vector<std::string>& rowLabels, const std::vector<std::string>& axis) {
    constexpr double kCell = 10;
    constexpr double kGapWidth = 1;
    constexpr double kFaintest = 0.18;
    uint64_t largest = 0;
    std::size_t columns = 1;
    for (const std::vector<uint64_t>& row : rows) {
        columns = std::max(columns, row.size());
        largest = row.empty() ? largest : std::max(largest, *std::max_element(row.begin(), row.end()));
    }
    std::string out = "<div class=\"plot\">" + Ticks(rowLabels) +
                      Picture(kCell * static_cast<double>(columns), kCell * static_cast<double>(rows.size()),
                              std::to_string(rows.size() * 9), label);
    for (std::size_t y = 0; y < rows.size(); ++y) {
        for (std::size_t x = 0; x < rows[y].size(); ++x) {
            // The root lets a few events still be seen beside many.
            const double fill = kFaintest + (1 - kFaintest) * std::sqrt(Share(rows[y][x], largest));
            out += Rectangle(kCell * static_cast<double>(x) + kGapWidth / 2,
                             kCell * static_cast<double>(y) + kGapWidth / 2, kCell - kGapWidth,
                             kCell - kGapWidth, rows[y][x] == 0 ? "var(--track)" : Colour(0),
                             rows[y][x] == 0 ? "" : " fill-opacity=\"" + Fixed(fill) + "\"");
        }
    }
    return out + "</svg>" + Axis(axis) + "</div>\n";
}

std::string Tile(const std::string& figure, const std::string& what) {
    return "<div class=\"tile\"><b>" + Text(figure) + "</b><span>" + Text(what) + "</span></div>\n";
}

}  // namespace html
