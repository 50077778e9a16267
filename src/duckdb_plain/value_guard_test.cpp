#include "duckdb_plain/value_guard.h"

#include <gtest/gtest.h>

#include "duckdb_plain/sample_values.h"
#include "duckdb_plain/test_engine.h"

namespace duckdb_plain {
namespace {

TEST(ValueGuard, EveryOrdinaryValueIsReadable) {
    TestEngine engine;
    for (const auto& expression : get_SampleExpressions()) {
        EXPECT_TRUE(IsReadable(engine.QueryValue("SELECT " + expression).get())) << expression;
    }
    for (const auto& expression : get_VariantExpressions()) {
        EXPECT_TRUE(IsReadable(engine.QueryValue("SELECT " + expression).get())) << expression;
    }
}

}  // namespace
}  // namespace duckdb_plain
