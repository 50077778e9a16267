#pragma once

#include <duckdb.h>

#include <cstdint>
#include <string>
#include <vector>

#include "same_values.h"

namespace bench {

/** The deliveries of the cursors in bare calls on a connection. Each returns the number of cells. */

/** Runs the query and fetches its chunks; reads nothing. */
uint64_t Drain(duckdb_connection connection, const std::string& sql);
/** For each cell one DuckDB value, stock getters, and one host value, released at once. */
uint64_t ValueLoop(duckdb_connection connection, const std::string& sql);
/** The same host values straight from the vectors, released at once. */
uint64_t VectorLoop(duckdb_connection connection, const std::string& sql);
/** As `ValueLoop`, the host values kept in `kept`. */
uint64_t ValueLoopKept(duckdb_connection connection, const std::string& sql, KeptValues& kept);
/** As `VectorLoop`, kept. */
uint64_t VectorLoopKept(duckdb_connection connection, const std::string& sql, KeptValues& kept);

/** One cell of a vector. */
struct VectorView {
    duckdb_type type;
    /** How DuckDB stores the type: the integer below a DECIMAL. */
    duckdb_type storage;
    double scale;
    const void* data;
    uint64_t* validity;

    bool IsNull(idx_t row) const noexcept {
        return validity != nullptr && (validity[row >> 6] >> (row & 63) & 1) == 0;
    }
};
std::vector<VectorView> GetVectors(duckdb_data_chunk chunk);

}  // namespace bench
