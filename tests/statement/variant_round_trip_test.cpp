#include <iostream>
#include <set>

#include "nbx/mrsql/duckdb_cursor.h"
#include "statement_fixture.h"

// A VARIANT read with a cursor and passed back as a parameter.
namespace mduckdb::test {

namespace {

struct Kind {
    const char* word;
    /** SQL of a value of the kind. */
    const char* sql;
};

constexpr Kind kKinds[] = {
    {"VARIANT_NULL", "NULL::VARIANT"},
    {"BOOL_TRUE", "true::VARIANT"},
    {"BOOL_FALSE", "false::VARIANT"},
    {"INT8", "(-5)::TINYINT::VARIANT"},
    {"INT16", "(-500)::SMALLINT::VARIANT"},
    {"INT32", "70000::INTEGER::VARIANT"},
    {"INT64", "(-9223372036854775808)::BIGINT::VARIANT"},
    {"INT128", "170141183460469231731687303715884105727::HUGEINT::VARIANT"},
    {"UINT8", "255::UTINYINT::VARIANT"},
    {"UINT16", "65535::USMALLINT::VARIANT"},
    {"UINT32", "4294967295::UINTEGER::VARIANT"},
    {"UINT64", "18446744073709551615::UBIGINT::VARIANT"},
    {"UINT128", "340282366920938463463374607431768211455::UHUGEINT::VARIANT"},
    {"FLOAT", "1.5::FLOAT::VARIANT"},
    {"DOUBLE", "1e300::DOUBLE::VARIANT"},
    {"DECIMAL", "12.50::DECIMAL(4,2)::VARIANT"},
    {"VARCHAR", "'text'::VARIANT"},
    {"BLOB", "'\\xAA\\x00b'::BLOB::VARIANT"},
    {"UUID", "'00112233-4455-6677-8899-aabbccddeeff'::UUID::VARIANT"},
    {"DATE", "DATE '2024-02-29'::VARIANT"},
    {"TIME_MICROS", "TIME '12:34:56.789012'::VARIANT"},
    {"TIME_NANOS", "'12:34:56.789012345'::TIME_NS::VARIANT"},
    {"TIMESTAMP_SEC", "'2024-02-29 12:34:56'::TIMESTAMP_S::VARIANT"},
    {"TIMESTAMP_MILIS", "'2024-02-29 12:34:56.25'::TIMESTAMP_MS::VARIANT"},
    {"TIMESTAMP_MICROS", "'2024-02-29 12:34:56.789012'::TIMESTAMP::VARIANT"},
    {"TIMESTAMP_NANOS", "'2024-02-29 12:34:56.789012345'::TIMESTAMP_NS::VARIANT"},
    {"TIME_MICROS_TZ", "'12:34:56+02'::TIMETZ::VARIANT"},
    {"TIMESTAMP_MICROS_TZ", "'2024-02-29 12:34:56+00'::TIMESTAMPTZ::VARIANT"},
    {"INTERVAL", "INTERVAL '1 year 2 days'::VARIANT"},
    {"OBJECT", "{'a': 1}::VARIANT"},
    {"ARRAY", "[1, 2]::VARIANT"},
    {"ARRAY of texts", "['a', 'b']::VARIANT"},
    {"DECIMAL wider than its digits", "1.50::DECIMAL(5,2)::VARIANT"},
    {"BIGNUM", "'123456789012345678901234567890'::BIGNUM::VARIANT"},
    {"BITSTRING", "'10100101'::BIT::VARIANT"},
    {"GEOMETRY", "'POINT (1 2)'::GEOMETRY::VARIANT"},
};

}  // namespace

class RoundTripTest : public StatementTest {
  protected:
    RoundTripTest() { Direct("SET TimeZone = 'UTC'"); }

    /** Empty when the value arrives unchanged, otherwise what went wrong. */
    std::string Trip(const Kind& kind) {
        const std::string expression = kind.sql;
        auto cursor = database_->SqlSelect(Text("SELECT " + expression), nbx::mrsql::kClientCursor, nullptr);
        cursor->FirstRecord();
        const Value value = cursor->get_Value(0);
        Direct("CREATE OR REPLACE TABLE trip (v VARIANT)");
        const Thrown thrown = Catch([&] {
            auto statement = Prepared("INSERT INTO trip VALUES ($1)");
            statement->BindValue(1, value);
            statement->Execute();
        });
        if (!thrown.exception.empty()) {
            return "refused: " + thrown.message;
        }
        const Table before =
            Direct("SELECT variant_typeof(v), CAST(v AS VARCHAR) FROM (SELECT " + expression + " AS v)");
        const Table after = Direct("SELECT variant_typeof(v), CAST(v AS VARCHAR) FROM trip");
        return before == after
                   ? ""
                   : before[0][0] + " " + before[0][1] + " became " + after[0][0] + " " + after[0][1];
    }
};

TEST_F(RoundTripTest, OnlyTheseKindsDoNotSurviveTheRoundTrip) {
    // Objects and arrays travel in DuckDB's own text form, which is JSON only if it contains no text or key,
    // and are refused otherwise; a DECIMAL comes back as wide as its digits.
    const std::set<std::string> expected = {"ARRAY of texts", "DECIMAL wider than its digits", "OBJECT"};
    std::set<std::string> failed;
    for (const Kind& kind : kKinds) {
        const std::string failure = Trip(kind);
        if (!failure.empty()) {
            failed.insert(kind.word);
            std::cout << kind.word << ": " << failure << '\n';
        }
    }
    EXPECT_EQ(failed, expected);
}

}  // namespace mduckdb::test
