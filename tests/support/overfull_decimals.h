#pragma once

#include <duckdb.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "base/holders.h"

namespace mduckdb {

/** Creates a table `raw (x DECIMAL(36,17), y DECIMAL(18,3))` of three rows: two with numbers that have too
   many digits, and one that has not. */
inline void AppendOverfullDecimals(duckdb_connection connection) {
    EXPECT_EQ(duckdb_query(connection, "CREATE TABLE raw (x DECIMAL(36,17), y DECIMAL(18,3))", nullptr),
              DuckDBSuccess);
    const LogicalTypeHolder wide(duckdb_create_decimal_type(36, 17));
    const LogicalTypeHolder narrow(duckdb_create_decimal_type(18, 3));
    duckdb_logical_type types[] = {wide.get(), narrow.get()};
    const ChunkHolder chunk(duckdb_create_data_chunk(types, 2));
    // 9.2233720368547758e+20, as pandas writes it; the largest number; an ordinary one.
    const duckdb_hugeint wides[] = {
        {0xD4B1A08F5C800000, 0x456391825CDC1B7A}, {UINT64_MAX, INT64_MAX}, {123456789, 0}};
    const std::int64_t narrows[] = {INT64_MAX, -INT64_MAX, 1500};
    std::memcpy(duckdb_vector_get_data(duckdb_data_chunk_get_vector(chunk.get(), 0)), wides, sizeof wides);
    std::memcpy(duckdb_vector_get_data(duckdb_data_chunk_get_vector(chunk.get(), 1)), narrows,
                sizeof narrows);
    duckdb_data_chunk_set_size(chunk.get(), 3);
    duckdb_appender appender = nullptr;
    EXPECT_EQ(duckdb_appender_create(connection, nullptr, "raw", &appender), DuckDBSuccess);
    EXPECT_EQ(duckdb_append_data_chunk(appender, chunk.get()), DuckDBSuccess);
    EXPECT_EQ(duckdb_appender_destroy(&appender), DuckDBSuccess);
}

}  // namespace mduckdb
