#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "nbx/value.h"

namespace mduckdb_host {

struct Cell;

/** Bytes that are no text. */
struct Bytes {
    std::string data;
};
/** Text that is one JSON value. */
struct JsonText {
    std::string text;
};
struct List {
    std::vector<Cell> items;
};
struct Null {};

/** One value as the program handles it: an argument, a field of a row. Texts are UTF-8, and may be
    malformed where the data are. Owns all that it holds. */
struct Cell {
    using Content = std::variant<Null, bool, int64_t, uint64_t, double, std::string, Bytes, JsonText,
                                 nbx::DateContent, nbx::TimeContent, nbx::DateTimeContent, List>;

    Content content;

    bool get_IsNull() const noexcept { return std::holds_alternative<Null>(content); }
};

/** The type of the content, as the function table numbers types (`mirona_type`). */
uint32_t get_HostType(const Cell& cell) noexcept;
/** Name of a host type code; "unknown" when there is none. */
const char* get_HostTypeName(uint32_t host_type) noexcept;

/** Name and types of one column of a result. */
struct Column {
    std::string name;
    uint32_t duckdb_type = 0; /**< 0 when the result does not tell */
    uint32_t host_type = 0;   /**< `mirona_type` */
};

using Row = std::vector<Cell>;

/** Whether the column holds numbers, also those that are too large for the host and arrive as text. */
bool IsNumeric(const Column& column) noexcept;

}  // namespace mduckdb_host
