#pragma once

#include <duckdb.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "base/holders.h"
#include "duckdb_internals/plain_functions.h"
#include "support/expected_by_version.h"

namespace mduckdb {

/** An engine in memory with one connection and the module's settings, for tests. */
class TestEngine {
  public:
    TestEngine() {
        EXPECT_EQ(duckdb_open(nullptr, &database_), DuckDBSuccess);
        EXPECT_EQ(duckdb_connect(database_, &connection_), DuckDBSuccess);
        for (const std::string& statement : get_EngineSettingStatements()) {
            Query(statement);
        }
        Query("SET TimeZone = 'UTC'");  // as a cast without a connection uses it
    }
    ~TestEngine() {
        duckdb_disconnect(&connection_);
        duckdb_close(&database_);
    }
    TestEngine(const TestEngine&) = delete;
    TestEngine& operator=(const TestEngine&) = delete;

    duckdb_connection get() const noexcept { return connection_; }

    ResultHolder Query(const std::string& sql) {
        ResultHolder result;
        EXPECT_EQ(duckdb_query(connection_, sql.c_str(), result.Receive()), DuckDBSuccess)
            << sql << ": " << duckdb_result_error(result.get());
        return result;
    }

    /** The first cell of the query as a value. */
    ValueHolder QueryValue(const std::string& sql) {
        ResultHolder result = Query(sql);
        ChunkHolder chunk(duckdb_fetch_chunk(*result));
        return ValueHolder(duckdb_data_chunk_get_value(chunk.get(), 0, 0));
    }

    /** The first cell of the query, which must be a VARCHAR, as DuckDB holds it. */
    std::optional<std::string> QueryText(const std::string& sql) {
        ResultHolder result = Query(sql);
        ChunkHolder chunk(duckdb_fetch_chunk(*result));
        if (!chunk) {
            ADD_FAILURE() << "no row: " << sql;
            return std::nullopt;
        }
        duckdb_vector vector = duckdb_data_chunk_get_vector(chunk.get(), 0);
        uint64_t* validity = duckdb_vector_get_validity(vector);
        if (validity != nullptr && !duckdb_validity_row_is_valid(validity, 0)) {
            return std::nullopt;
        }
        auto* text = static_cast<duckdb_string_t*>(duckdb_vector_get_data(vector));
        return std::string(duckdb_string_t_data(text), duckdb_string_t_length(*text));
    }

  private:
    duckdb_database database_ = nullptr;
    duckdb_connection connection_ = nullptr;
};

/** The text of `duckdb_get_varchar_length`, or nothing for null. */
inline std::optional<std::string> TextOf(duckdb_value value) {
    idx_t length = 77;
    TextHolder text(duckdb_get_varchar_length(value, &length));
    if (!text) {
        EXPECT_EQ(length, 0U);
        return std::nullopt;
    }
    EXPECT_EQ(text.get()[length], '\0');
    return std::string(text.get(), length);
}

inline std::string TypeTextOf(duckdb_value value) {
    TextHolder text(duckdb_logical_type_to_string(duckdb_get_value_type(value)));
    return text ? text.get() : "";
}

/** A VARCHAR value with the alias JSON; the text is not checked. */
inline ValueHolder JsonValue(const std::string& text) {
    ValueHolder value(duckdb_create_varchar_length(text.data(), text.size()));
    duckdb_logical_type_set_alias(duckdb_get_value_type(value.get()), "JSON");
    return value;
}

struct CastResult {
    duckdb_state state;
    ValueHolder value;
    std::string error;
};

inline CastResult Cast(duckdb_value value, duckdb_logical_type type) {
    CastResult result{};
    char* error = nullptr;
    result.state = duckdb_cast_value(value, type, result.value.Receive(), &error);
    TextHolder owned(error);
    result.error = error == nullptr ? "" : error;
    EXPECT_EQ(result.state == DuckDBSuccess, static_cast<bool>(result.value));
    return result;
}

inline CastResult Cast(duckdb_value value, duckdb_type type) {
    LogicalTypeHolder logical(duckdb_create_logical_type(type));
    return Cast(value, logical.get());
}

}  // namespace mduckdb
