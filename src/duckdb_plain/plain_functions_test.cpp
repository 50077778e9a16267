#include "duckdb_plain/plain_functions.h"

#include <gtest/gtest.h>

#include <cstring>

#include "duckdb_plain/sample_values.h"
#include "duckdb_plain/test_engine.h"

namespace duckdb_plain {
namespace {

TEST(PlainFunctions, EveryTypeReadsWithItsOwnTypeAndText) {
    TestEngine engine;
    for (const auto& expression : get_SampleExpressions()) {
        SCOPED_TRACE(expression);
        ValueHolder value = engine.QueryValue("SELECT " + expression);
        ASSERT_TRUE(value);
        if (expression != "NULL") {  // an untyped NULL column is made an INTEGER
            EXPECT_EQ(TypeTextOf(value.get()), engine.QueryText("SELECT typeof(" + expression + ")"));
        }
        EXPECT_EQ(TextOf(value.get()), engine.QueryText("SELECT CAST(" + expression + " AS VARCHAR)"));
    }
}

}  // namespace
}  // namespace duckdb_plain
