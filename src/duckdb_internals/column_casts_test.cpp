#include "duckdb_internals/column_casts.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "duckdb_internals/results.h"
#include "support/harmful_time.h"

namespace mduckdb {
namespace {

using Texts = std::vector<std::optional<std::string>>;

/** The only column of the query, which becomes one chunk, cast to VARCHAR. */
Texts CastToTexts(TestEngine& engine, const std::string& sql) {
    const ResultHolder rows = engine.Query(sql);
    ResultChunks chunks(*rows, ColumnCasts(engine.get(), {DUCKDB_TYPE_VARCHAR}));
    EXPECT_EQ(chunks.get_Count(), 1U) << sql;
    chunks.Load(0);
    const auto* validity = const_cast<uint64_t*>(chunks.get_Validity(0));
    auto* texts = static_cast<duckdb_string_t*>(const_cast<void*>(chunks.get_Data(0)));
    Texts found;
    for (idx_t row = 0; row < chunks.get_FirstRow(1); ++row) {
        if (duckdb_validity_row_is_valid(const_cast<uint64_t*>(validity), row)) {
            found.emplace_back(
                std::string(duckdb_string_t_data(&texts[row]), duckdb_string_t_length(texts[row])));
        } else {
            found.emplace_back();
        }
    }
    return found;
}

/** Types that hold a `t`. */
constexpr const char* kHolders[] = {"[t]",
                                    "{'a': t}",
                                    "MAP {1: t}",
                                    "MAP {coalesce(t, TIME '14:00'): 1}",
                                    "row(t)",
                                    "array_value(t, t)",
                                    "union_value(k := t)",
                                    "[[TIME '01:02:03'], [t, NULL]]",
                                    "[{'a': [t], 'b': 'text'}]",
                                    "{'a': array_value([t], NULL), 'b': [1, 2]}",
                                    "t::VARIANT",
                                    "[{'a': t::VARIANT}]",
                                    "{'a': [t]}::VARIANT"};

/** Creates the table `rows` with the harmful times between others. */
void StoreTimes(TestEngine& engine) {
    StoreHarmfulTime(engine);
    engine.Query(
        "CREATE TABLE rows AS SELECT TIME '12:00' AS t UNION ALL FROM times UNION ALL SELECT NULL "
        "UNION ALL SELECT TIME '13:00'");
}

TEST(ColumnCastsTest, AHarmfulValueInsideANestedCellMakesItNullAndDoesNotAffectOthers) {
    TestEngine engine;
    StoreTimes(engine);
    for (const std::string holder : kHolders) {
        Texts expected = CastToTexts(
            engine, "SELECT " + holder +
                        " FROM (VALUES (TIME '12:00'), (NULL), (NULL), (NULL), (TIME '13:00')) v(t)");
        ASSERT_EQ(expected.size(), 5U);
        expected[1] = expected[2] = std::nullopt;
        EXPECT_EQ(CastToTexts(engine, "SELECT " + holder + " FROM rows"), expected) << holder;
    }
}

TEST(ColumnCastsTest, AHarmfulValueThatNoRowShowsIsNotCast) {
    TestEngine engine;
    StoreTimes(engine);
    EXPECT_EQ(CastToTexts(engine, "SELECT CASE WHEN t = TIME '12:00' THEN [t] END FROM rows"),
              (Texts{"['12:00:00']", std::nullopt, std::nullopt, std::nullopt, std::nullopt}));
    EXPECT_EQ(CastToTexts(engine, "SELECT CASE WHEN t = TIME '12:00' THEN {'a': t} END FROM rows"),
              (Texts{"{'a': '12:00:00'}", std::nullopt, std::nullopt, std::nullopt, std::nullopt}));
}

TEST(ColumnCastsTest, ANestedCellThatDuckDBRefusesDoesNotAffectOthers) {
    TestEngine engine;
    engine.Query("CREATE TABLE stamps(t TIMESTAMP_MS)");
    duckdb_appender appender = nullptr;
    ASSERT_EQ(duckdb_appender_create(engine.get(), nullptr, "stamps", &appender), DuckDBSuccess);
    for (const int64_t millis : {int64_t{0}, std::numeric_limits<int64_t>::max() - 1, int64_t{1000}}) {
        const ValueHolder value(duckdb_create_timestamp_ms({millis}));
        ASSERT_EQ(duckdb_append_value(appender, value.get()), DuckDBSuccess);
        ASSERT_EQ(duckdb_appender_end_row(appender), DuckDBSuccess);
    }
    ASSERT_EQ(duckdb_appender_destroy(&appender), DuckDBSuccess);
    EXPECT_EQ(CastToTexts(engine, "SELECT [t] FROM stamps"),
              (Texts{"['1970-01-01 00:00:00']", std::nullopt, "['1970-01-01 00:00:01']"}));
}

}  // namespace
}  // namespace mduckdb
