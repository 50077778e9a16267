#include "print/table_layout.h"

#include <algorithm>

namespace mduckdb_host {

namespace {

/** No column becomes narrower than this; columns are hidden instead. */
constexpr int kNarrowest = 12;
/** A bar and two blanks per column. */
constexpr int kBorder = 3;
constexpr int kMarkWidth = 1 + kBorder;

int WidthOf(const std::vector<int>& natural_widths, const TableLayout& layout, int widest) {
    int sum = 1 + (layout.left_out > 0 ? kMarkWidth : 0);
    for (std::size_t i = 0; i < natural_widths.size(); ++i) {
        const bool is_left_out = i >= layout.first_left_out && i < layout.first_left_out + layout.left_out;
        sum += is_left_out ? 0 : std::min(natural_widths[i], widest) + kBorder;
    }
    return sum;
}

}  // namespace

TableLayout MakeTableLayout(std::vector<int> natural_widths, int screen_width) {
    TableLayout layout;
    const std::size_t count = natural_widths.size();
    const auto fits = [&](int widest) {
        return screen_width <= 0 || WidthOf(natural_widths, layout, widest) <= screen_width;
    };
    while (!fits(kNarrowest) && layout.left_out + 1 < count) {
        ++layout.left_out;
        layout.first_left_out = (count - layout.left_out + 1) / 2;
    }
    int widest = count == 0 ? 0 : *std::max_element(natural_widths.begin(), natural_widths.end());
    if (screen_width > 0) {
        widest = std::min(widest, screen_width);
    }
    while (widest > kNarrowest && !fits(widest)) {
        --widest;
    }
    layout.widths = std::move(natural_widths);
    for (std::size_t i = 0; i < count; ++i) {
        const bool is_left_out = i >= layout.first_left_out && i < layout.first_left_out + layout.left_out;
        layout.widths[i] = is_left_out ? 0 : std::min(layout.widths[i], widest);
    }
    return layout;
}

}  // namespace mduckdb_host
