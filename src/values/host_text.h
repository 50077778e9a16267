#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/text.h"
#include "duckdb_internals/column_writer.h"
#include "nbx/string.h"
#include "nbx/text_in_place.h"

namespace mduckdb {

/** Copies a text of ASCII, as most are; false for any other. */
inline bool CopyAscii(std::u16string_view text, char* out) noexcept {
    constexpr uint64_t kOthers = 0xFF80FF80FF80FF80U;
    constexpr uint64_t kPairs = 0x0000FFFF0000FFFFU;
    uint64_t all = 0;
    std::size_t i = 0;
    // Four units at a time, each in a lane of 16 bits; the steps join two and two of them.
    for (; i + 4 <= text.size(); i += 4) {
        uint64_t units = 0;
        std::memcpy(&units, text.data() + i, sizeof units);
        all |= units;
        units = (units | units >> 8U) & kPairs;
        const auto bytes = static_cast<uint32_t>(units | units >> 16U);
        std::memcpy(out + i, &bytes, sizeof bytes);
    }
    for (; i < text.size(); ++i) {
        all |= text[i];
        out[i] = static_cast<char>(text[i]);
    }
    return (all & kOthers) == 0;
}

/** `ColumnWriter::PutText` of a host value's text. */
inline bool StoreHostText(const nbx::I_Value& value, ColumnWriter& column, idx_t row) {
    std::array<char, 256> ascii;
    const auto copy_ascii = [&](std::u16string_view text) {
        return text.size() <= ascii.size() && CopyAscii(text, ascii.data());
    };
    const auto in_place = nbx::GetTextInPlace(value);
    if (in_place && copy_ascii(*in_place)) {
        return column.PutText(row, std::string_view(ascii.data(), in_place->size()));
    }
    const nbx::String text = value.get_Text();
    const std::u16string_view units = text.get_View();
    if (!in_place && copy_ascii(units)) {
        return column.PutText(row, std::string_view(ascii.data(), units.size()));
    }
    return column.PutText(row, ToUtf8(text));
}

}  // namespace mduckdb
