#pragma once

#include <cstddef>
#include <vector>

namespace mduckdb_host {

/** Which columns of a table are shown, and how wide. */
struct TableLayout {
    /** Width of each column in characters, borders not counted; 0 for a hidden one. */
    std::vector<int> widths;
    /** The first of the `left_out` hidden columns; one mark is shown instead of them. */
    std::size_t first_left_out = 0;
    std::size_t left_out = 0;
};

/** Fits columns of the given natural widths into a screen: narrows the widest ones first, then hides columns
    in the middle. A `screen_width` of 0 keeps every width. */
TableLayout MakeTableLayout(std::vector<int> natural_widths, int screen_width);

}  // namespace mduckdb_host
