#pragma once

#include <gtest/gtest.h>

#include <limits>

#include "duckdb_internals/value_guard.h"
#include "support/test_engine.h"

namespace mduckdb {

/** Creates the table `times` with two TIMEs that their type does not allow: one that DuckDB cannot format,
   and the first after the end of the day, of which it makes a text. */
inline void StoreHarmfulTime(TestEngine& engine) {
    engine.Query("CREATE TABLE times(t TIME)");
    duckdb_appender appender = nullptr;
    ASSERT_EQ(duckdb_appender_create(engine.get(), nullptr, "times", &appender), DuckDBSuccess);
    for (const int64_t micros : {std::numeric_limits<int64_t>::max(), kMicrosPerDay + 1}) {
        ASSERT_EQ(duckdb_append_time(appender, {micros}), DuckDBSuccess);
        ASSERT_EQ(duckdb_appender_end_row(appender), DuckDBSuccess);
    }
    ASSERT_EQ(duckdb_appender_destroy(&appender), DuckDBSuccess);
}

}  // namespace mduckdb
