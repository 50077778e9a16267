#pragma once

#include <cstddef>
#include <vector>

namespace mduckdb_host {

/** Which columns of a table are shown, and how wide. */
struct TableLayout {
    /** Width of each column in characters, borders not counted; 0 for one that is left out. */
    std::vector<int> widths;
    /** The columns from here on, `left_out` of them, are left out for a mark. */
    std::size_t first_left_out = 0;
    std::size_t left_out = 0;
};

/** Lays out columns of the given natural widths on a screen: narrows the widest ones first, then leaves
    out columns in the middle. A `screen_width` of 0 leaves all as they are. */
TableLayout MakeTableLayout(std::vector<int> natural_widths, int screen_width);

}  // namespace mduckdb_host
