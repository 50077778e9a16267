#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/text.h"
#include "duckdb_internals/column_writer.h"
#include "nbx/string.h"

namespace mduckdb {

/** Copies a text of ASCII, as most are; false for any other. `out` has room for as many bytes as the text has
    units. */
inline bool CopyAscii(std::u16string_view text, char* out) noexcept {
    using Units = uint16_t __attribute__((vector_size(16)));
    using Bytes = uint8_t __attribute__((vector_size(8)));
    constexpr std::size_t kStep = sizeof(Bytes);
    constexpr unsigned kOthers = 0xFF80U;
    Units all{};
    const auto copy = [&](std::size_t i) {
        Units units;
        std::memcpy(&units, text.data() + i, sizeof units);
        all |= units;
        const Bytes bytes = __builtin_convertvector(units, Bytes);
        std::memcpy(out + i, &bytes, sizeof bytes);
    };
    if (text.size() < kStep) {
        unsigned seen = 0;
        for (std::size_t i = 0; i < text.size(); ++i) {
            seen |= text[i];
            out[i] = static_cast<char>(text[i]);
        }
        return (seen & kOthers) == 0;
    }
    for (std::size_t i = 0; i + kStep < text.size(); i += kStep) {
        copy(i);
    }
    copy(text.size() - kStep);  // the rest, with units before it once more unless it is a whole step
    std::array<uint64_t, 2> halves;
    std::memcpy(halves.data(), &all, sizeof all);
    return ((halves[0] | halves[1]) & (kOthers * 0x0001000100010001U)) == 0;
}

/** `ColumnWriter::PutText` of UTF-16. */
inline bool StoreText(std::u16string_view text, ColumnWriter& column, idx_t row) {
    std::array<char, 256> ascii;
    if (text.size() <= ascii.size() && CopyAscii(text, ascii.data())) {
        return column.PutText(row, std::string_view(ascii.data(), text.size()));
    }
    return column.PutText(row, ToUtf8(nbx::String(text.data(), text.size())));
}

}  // namespace mduckdb
