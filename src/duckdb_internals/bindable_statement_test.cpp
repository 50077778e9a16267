#include "duckdb_internals/bindable_statement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "support/test_engine.h"

namespace mduckdb {
namespace {

/** One bind of parameter `index`, by the class and by DuckDB itself. */
struct SameBind {
    std::string name;
    std::function<duckdb_state(BindableStatement&, idx_t index)> bind;
    std::function<duckdb_state(duckdb_prepared_statement, idx_t index)> stock;
};

template <auto kBind, class... Arguments>
SameBind Make(const std::string& name, Arguments... arguments) {
    return {
        name,
        [=](BindableStatement& statement, idx_t index) { return statement.Bind<kBind>(index, arguments...); },
        [=](duckdb_prepared_statement statement, idx_t index) {
            return kBind(statement, index, arguments...);
        }};
}

/** The binds that the class leaves to DuckDB's own functions. */
template <auto kBind, class... Arguments>
SameBind MakeStock(const std::string& name, Arguments... arguments) {
    return {name,
            [=](BindableStatement& statement, idx_t index) {
                return kBind(statement.get(), index, arguments...);
            },
            [=](duckdb_prepared_statement statement, idx_t index) {
                return kBind(statement, index, arguments...);
            }};
}

template <auto kBind, class Number>
void AddExtremes(std::vector<SameBind>& binds, const std::string& name) {
    binds.push_back(Make<kBind>(name + " least", std::numeric_limits<Number>::lowest()));
    binds.push_back(Make<kBind>(name + " greatest", std::numeric_limits<Number>::max()));
}

const std::string kLongText = "a text that does not fit into twelve bytes, привет";

std::vector<SameBind> GetBinds() {
    std::vector<SameBind> binds;
    AddExtremes<duckdb_bind_boolean, bool>(binds, "BOOLEAN");
    AddExtremes<duckdb_bind_int8, int8_t>(binds, "TINYINT");
    AddExtremes<duckdb_bind_int16, int16_t>(binds, "SMALLINT");
    AddExtremes<duckdb_bind_int32, int32_t>(binds, "INTEGER");
    AddExtremes<duckdb_bind_int64, int64_t>(binds, "BIGINT");
    AddExtremes<duckdb_bind_uint8, uint8_t>(binds, "UTINYINT");
    AddExtremes<duckdb_bind_uint16, uint16_t>(binds, "USMALLINT");
    AddExtremes<duckdb_bind_uint32, uint32_t>(binds, "UINTEGER");
    AddExtremes<duckdb_bind_uint64, uint64_t>(binds, "UBIGINT");
    AddExtremes<duckdb_bind_float, float>(binds, "FLOAT");
    AddExtremes<duckdb_bind_double, double>(binds, "DOUBLE");
    const std::vector<SameBind> others = {
        Make<duckdb_bind_hugeint>("HUGEINT least", duckdb_hugeint{0, INT64_MIN}),
        Make<duckdb_bind_hugeint>("HUGEINT", duckdb_hugeint{UINT64_MAX, 7}),
        Make<duckdb_bind_uhugeint>("UHUGEINT", duckdb_uhugeint{5, UINT64_MAX}),
        Make<duckdb_bind_double>("DOUBLE not a number", std::nan("")),
        Make<duckdb_bind_decimal>("DECIMAL(4,2)", duckdb_decimal{4, 2, {1234, 0}}),
        Make<duckdb_bind_decimal>("DECIMAL(4,1)", duckdb_decimal{4, 1, {1234, 0}}),
        Make<duckdb_bind_decimal>("DECIMAL(18,3) below zero", duckdb_decimal{18, 3, {uint64_t(-5), -1}}),
        Make<duckdb_bind_decimal>("DECIMAL(38,10)", duckdb_decimal{38, 10, {UINT64_MAX, 1000}}),
        Make<duckdb_bind_date>("DATE", duckdb_date{-1}),
        Make<duckdb_bind_date>("DATE infinite", duckdb_date{INT32_MAX}),
        Make<duckdb_bind_time>("TIME", duckdb_time{86399999999}),
        Make<duckdb_bind_timestamp>("TIMESTAMP", duckdb_timestamp{1234567890123456}),
        Make<duckdb_bind_timestamp_tz>("TIMESTAMP_TZ", duckdb_timestamp{1234567890123456}),
        Make<duckdb_bind_interval>("INTERVAL", duckdb_interval{-1, 2, 3}),
        Make<duckdb_bind_varchar_length>("VARCHAR empty", static_cast<const char*>(""), idx_t{0}),
        Make<duckdb_bind_varchar_length>("VARCHAR short", static_cast<const char*>("a\0b"), idx_t{3}),
        Make<duckdb_bind_varchar_length>("VARCHAR", kLongText.c_str(), idx_t{kLongText.size()}),
        Make<duckdb_bind_blob>("BLOB", static_cast<const void*>("\x01\xff"), idx_t{2}),
        MakeStock<duckdb_bind_null>("NULL"),
    };
    binds.insert(binds.end(), others.begin(), others.end());
    return binds;
}

class BindableStatementTest : public testing::Test {
  protected:
    void Prepare(duckdb_prepared_statement* place, const char* sql) {
        ASSERT_EQ(duckdb_prepare(engine_.get(), sql, place), DuckDBSuccess);
    }
    /** Type and text of the first cell, or DuckDB's error. */
    static std::string Run(duckdb_prepared_statement statement) {
        ResultHolder result;
        if (duckdb_execute_prepared(statement, result.Receive()) != DuckDBSuccess) {
            return duckdb_result_error(result.get());
        }
        const LogicalTypeHolder type(duckdb_column_logical_type(result.get(), 0));
        const TextHolder type_text(duckdb_logical_type_to_string(type.get()));
        const ChunkHolder chunk(duckdb_fetch_chunk(*result));
        const ValueHolder value(duckdb_data_chunk_get_value(chunk.get(), 0, 0));
        return std::string(type_text.get()) + " " + TextOf(value.get()).value_or("NULL");
    }
    std::string RunStock(const SameBind& bind, const char* sql) {
        PreparedHolder statement;
        Prepare(statement.Receive(), sql);
        EXPECT_EQ(bind.stock(statement.get(), 1), DuckDBSuccess);
        return Run(statement.get());
    }

    TestEngine engine_;
};

constexpr const char* kSql = "SELECT $1";

TEST_F(BindableStatementTest, BindsEveryTypeOverEveryOtherAsDuckDBBindsItAlone) {
    const std::vector<SameBind> binds = GetBinds();
    BindableStatement statement;
    Prepare(statement.Receive(), kSql);
    for (const SameBind& second : binds) {
        const std::string expected = RunStock(second, kSql);
        for (const SameBind& first : binds) {
            // So that the type of the earlier value does not decide.
            ASSERT_EQ(duckdb_bind_null(statement.get(), 1), DuckDBSuccess);
            ASSERT_EQ(first.bind(statement, 1), DuckDBSuccess) << first.name;
            ASSERT_EQ(second.bind(statement, 1), DuckDBSuccess) << second.name;
            ASSERT_EQ(Run(statement.get()), expected) << second.name << " after " << first.name;
        }
    }
}

TEST_F(BindableStatementTest, BindsAgainAfterAnExecution) {
    BindableStatement statement;
    Prepare(statement.Receive(), "SELECT $1::BIGINT + 1");
    for (int64_t i = 0; i < 5; ++i) {
        ASSERT_EQ(statement.Bind<duckdb_bind_int64>(1, i), DuckDBSuccess);
        EXPECT_EQ(Run(statement.get()), "BIGINT " + std::to_string(i + 1));
    }
}

TEST_F(BindableStatementTest, KeepsTheParametersOfOneStatementApart) {
    BindableStatement statement;
    Prepare(statement.Receive(), "SELECT concat($2, '-', $1, '-', $3, '-', $1)");
    for (int32_t i = 0; i < 3; ++i) {
        ASSERT_EQ(statement.Bind<duckdb_bind_int32>(3, i * 10 + 3), DuckDBSuccess);
        ASSERT_EQ(statement.Bind<duckdb_bind_int32>(1, i * 10 + 1), DuckDBSuccess);
        ASSERT_EQ(statement.Bind<duckdb_bind_int32>(2, i * 10 + 2), DuckDBSuccess);
        const auto text = [i](int last) { return std::to_string(i * 10 + last); };
        EXPECT_EQ(Run(statement.get()), "VARCHAR " + text(2) + "-" + text(1) + "-" + text(3) + "-" + text(1));
    }
}

TEST_F(BindableStatementTest, FindsANamedParameterByItsNumber) {
    BindableStatement statement;
    Prepare(statement.Receive(), "SELECT $who || '!'");
    for (const char* text : {"a", "b"}) {
        ASSERT_EQ(statement.Bind<duckdb_bind_varchar_length>(1, text, idx_t{1}), DuckDBSuccess);
        EXPECT_EQ(Run(statement.get()), std::string("VARCHAR ") + text + "!");
    }
}

TEST_F(BindableStatementTest, ReportsClearedParametersAsMissing) {
    BindableStatement statement;
    Prepare(statement.Receive(), kSql);
    ASSERT_EQ(statement.Bind<duckdb_bind_int32>(1, 1), DuckDBSuccess);
    ASSERT_EQ(statement.ClearBindings(), DuckDBSuccess);
    EXPECT_NE(Run(statement.get()).find("Values were not provided"), std::string::npos);
    ASSERT_EQ(statement.Bind<duckdb_bind_int32>(1, 2), DuckDBSuccess);
    EXPECT_EQ(Run(statement.get()), "INTEGER 2");
}

TEST_F(BindableStatementTest, BindsTheStatementThatReplacedAnother) {
    BindableStatement statement;
    Prepare(statement.Receive(), "SELECT $1 + $2");
    ASSERT_EQ(statement.Bind<duckdb_bind_int32>(1, 1), DuckDBSuccess);
    ASSERT_EQ(statement.Bind<duckdb_bind_int32>(2, 1), DuckDBSuccess);
    Prepare(statement.Receive(), kSql);
    EXPECT_EQ(statement.Bind<duckdb_bind_int32>(2, 5), DuckDBError);
    ASSERT_EQ(statement.Bind<duckdb_bind_int32>(1, 5), DuckDBSuccess);
    EXPECT_EQ(Run(statement.get()), "INTEGER 5");
    statement.Reset();
    EXPECT_FALSE(statement);
    EXPECT_EQ(statement.Bind<duckdb_bind_int32>(1, 5), DuckDBError);
}

TEST_F(BindableStatementTest, RejectsANumberWithoutAParameterWithDuckDBsError) {
    BindableStatement statement;
    Prepare(statement.Receive(), kSql);
    PreparedHolder stock;
    Prepare(stock.Receive(), kSql);
    for (const idx_t index : {idx_t{0}, idx_t{2}, idx_t{UINT32_MAX}}) {
        EXPECT_EQ(statement.Bind<duckdb_bind_int32>(index, 1), DuckDBError);
        EXPECT_EQ(duckdb_bind_int32(stock.get(), index, 1), DuckDBError);
        EXPECT_STREQ(duckdb_prepare_error(statement.get()), duckdb_prepare_error(stock.get()));
    }
}

TEST_F(BindableStatementTest, RejectsTextThatIsNotUTF8AndKeepsTheBoundValue) {
    BindableStatement statement;
    Prepare(statement.Receive(), kSql);
    EXPECT_EQ(statement.Bind<duckdb_bind_varchar_length>(1, "\xff", idx_t{1}), DuckDBError);
    ASSERT_EQ(statement.Bind<duckdb_bind_varchar_length>(1, "a", idx_t{1}), DuckDBSuccess);
    EXPECT_EQ(statement.Bind<duckdb_bind_varchar_length>(1, "\xff", idx_t{1}), DuckDBError);
    EXPECT_EQ(Run(statement.get()), "VARCHAR a");
}

}  // namespace
}  // namespace mduckdb
