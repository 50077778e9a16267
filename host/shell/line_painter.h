#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace mduckdb_host {

/** Where the line editor shows the line that is being edited. */
struct EditedLine {
    std::wstring_view text;
    /** Index of the character under the cursor. */
    std::size_t cursor = 0;
    int prompt_width = 0;
    int columns = 80;
    int lines = 24;
};

/** The cursor's row, where the prompt's is 0, if the line needs to be redrawn because it has wide characters
   and takes several rows. Otherwise, or if the place of each character on the screen is not certain, -1. */
int FindRowToRedraw(const EditedLine& line);

/** What paints colours over the line, which is on the screen already, and the hint behind it, and returns the
   cursor to its place. `kinds` has a `TextKind` for each character. The hint is cut at the end of the row.
   Empty if the place of each character on the screen is not certain. */
std::string PaintLine(const EditedLine& line, std::string_view kinds, const std::string& hint);

}  // namespace mduckdb_host
