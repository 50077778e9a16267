#pragma once

#include <array>
#include <string_view>

#include "base/text.h"
#include "duckdb_internals/column_writer.h"
#include "nbx/string.h"

namespace mduckdb {

/** Copies a text of ASCII, as most are; false for any other. */
inline bool CopyAscii(std::u16string_view text, char* out) noexcept {
    unsigned all = 0;
    for (const char16_t unit : text) {
        all |= unit;
        *out++ = static_cast<char>(unit);
    }
    return all < 0x80;
}

/** `ColumnWriter::PutText` of a host's text. */
inline bool StoreHostText(const nbx::String& text, ColumnWriter& column, idx_t row) {
    const std::u16string_view units = text.get_View();
    std::array<char, 256> ascii;
    if (units.size() <= ascii.size() && CopyAscii(units, ascii.data())) {
        return column.PutText(row, std::string_view(ascii.data(), units.size()));
    }
    return column.PutText(row, ToUtf8(text));
}

}  // namespace mduckdb
