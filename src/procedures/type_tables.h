#pragma once

#include <cstdint>

namespace mduckdb {

/* Pure tables over DuckDB's type codes (`duckdb_type`) and the host's (`mirona_type`). All are total: any
   code has an answer, and the texts are static. */

/** The enumeration name without its prefix, for example TIMESTAMP_MS; UNKNOWN for a code outside 0 to
    39. */
const char* DuckDBTypeName(std::int32_t duckdb_type) noexcept;

/** Which of the sixteen types that the host receives directly is used to read cells of this type. */
std::int32_t NormalizeDuckDBType(std::int32_t duckdb_type) noexcept;

/** The host's type for a normalised DuckDB type. */
std::int32_t HostTypeOfDuckDBType(std::int32_t normalised_type) noexcept;

/** The host's name of one of its types; unknown for a code outside 1 to 13. */
const char* HostTypeName(std::int32_t host_type) noexcept;

/** How DuckDB stores the cells of a type in a vector. */
struct CellStorage {
    /** Bytes of a cell in the vector's data; 0 if the vector has no data of its own or if the type alone does
        not determine the width. */
    std::uint8_t width;
    /** Whether a cell is a `duckdb_string_t`, with DuckDB's own bytes behind it. */
    bool is_string;
};

/** Storage of a type. For a DECIMAL, ask with the integer type that DuckDB stores it in. */
CellStorage GetCellStorage(std::int32_t duckdb_type) noexcept;

}  // namespace mduckdb
