// DECIMALs with more digits than their width, as files of other programs contain them.
#include <cstring>

#include "cursor_fixture.h"

namespace mduckdb {
namespace {

/** A table `raw (x DECIMAL(36,17), y DECIMAL(18,3))` with numbers that have too many digits, and one that has
    not. */
class OverfullDecimals : public testing::Test {
  protected:
    OverfullDecimals() {
        database_.Query("CREATE TABLE raw (x DECIMAL(36,17), y DECIMAL(18,3))");
        const LogicalTypeHolder wide(duckdb_create_decimal_type(36, 17));
        const LogicalTypeHolder narrow(duckdb_create_decimal_type(18, 3));
        duckdb_logical_type types[] = {wide.get(), narrow.get()};
        const ChunkHolder chunk(duckdb_create_data_chunk(types, 2));
        // 9.2233720368547758e+20, as pandas writes it; the largest number; an ordinary one.
        const duckdb_hugeint wides[] = {
            {0xD4B1A08F5C800000, 0x456391825CDC1B7A}, {UINT64_MAX, INT64_MAX}, {123456789, 0}};
        const int64_t narrows[] = {INT64_MAX, -INT64_MAX, 1500};
        std::memcpy(duckdb_vector_get_data(duckdb_data_chunk_get_vector(chunk.get(), 0)), wides,
                    sizeof wides);
        std::memcpy(duckdb_vector_get_data(duckdb_data_chunk_get_vector(chunk.get(), 1)), narrows,
                    sizeof narrows);
        duckdb_data_chunk_set_size(chunk.get(), 3);
        duckdb_appender appender = nullptr;
        EXPECT_EQ(duckdb_appender_create(database_.get_Connection(), nullptr, "raw", &appender),
                  DuckDBSuccess);
        EXPECT_EQ(duckdb_append_data_chunk(appender, chunk.get()), DuckDBSuccess);
        EXPECT_EQ(duckdb_appender_destroy(&appender), DuckDBSuccess);
    }

    std::vector<std::string> ReadAll(const std::string& expression, uint32_t location) {
        const Cursor cursor = database_.Select("SELECT " + expression + " FROM raw", location);
        std::vector<std::string> fields;
        while (cursor->NextRecord()) {
            fields.push_back(DescribeField(*cursor, 0));
        }
        EXPECT_EQ(fields.size(), 3U);
        return fields;
    }

    OpenedDatabase database_;
};

TEST_F(OverfullDecimals, AreTheDoublesOfDuckDBsCast) {
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        for (const std::string column : {"x", "y"}) {
            EXPECT_EQ(ReadAll(column, location), ReadAll(column + "::DOUBLE", location));
        }
    }
}

TEST_F(OverfullDecimals, InsideListsStructsAndMapsAreDuckDBsTexts) {
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        for (const std::string column : {"x", "y"}) {
            for (const std::string& nested :
                 {"[" + column + "]", "{'a': " + column + "}", "MAP {1: " + column + "}"}) {
                EXPECT_EQ(ReadAll(nested, location), ReadAll("(" + nested + ")::VARCHAR", location))
                    << nested;
            }
        }
    }
}

TEST_F(OverfullDecimals, InsideAVARIANTAreEnvelopesWithDuckDBsText) {
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        for (const std::string column : {"x", "y"}) {
            const auto texts = ReadAll(column + "::VARCHAR", location);
            const auto envelopes = ReadAll(column + "::VARIANT", location);
            for (std::size_t row = 0; row < 3; ++row) {
                const std::string text = texts[row].substr(std::strlen("String "));
                EXPECT_NE(envelopes[row].find("\"DECIMAL\",\"value\":\"" + text + "\""), std::string::npos)
                    << envelopes[row] << " " << text;
            }
        }
    }
}

}  // namespace
}  // namespace mduckdb
