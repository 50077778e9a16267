// Every type of column, in both cursors, compared with DuckDB's own text of the same cell.
#include <cmath>
#include <cstdlib>
#include <map>
#include <set>

#include "cursor_fixture.h"
#include "support/sample_values.h"
#include "support/test_engine.h"
#include "values/variant.h"

namespace mduckdb {
namespace {

using Oracle = TestEngine;

/** More cells, for types that are easy to get wrong. */
const std::vector<std::string>& get_EdgeExpressions() {
    static const std::vector<std::string> edges = {
        "16777217::FLOAT",
        "0.30000000000000004::DOUBLE",
        "5e-324::DOUBLE",
        "99999999999999999999999999999999999999::DECIMAL(38,0)",
        "(-0.01)::DECIMAL(3,2)",
        "9999::DECIMAL(4,0)",
        "999999999::DECIMAL(9,0)",
        "(-999999999999999999)::DECIMAL(18,0)",
        "12345678901234567.8::DECIMAL(18,1)",
        "'\u0001\u001f\u007f'",
        "chr(65279) || 'after a byte order mark'",
        "repeat('\U0001F986', 1000)",
        "chr(0)",
        "'1677-09-22 00:00:00'::TIMESTAMP_NS",
        "'2262-04-11 23:47:16.854775806'::TIMESTAMP_NS",
        "'0001-01-01 00:00:00'::TIMESTAMP_MS",
        "'infinity'::TIMESTAMP_MS",
        "'12:34:56.5-03:30'::TIMETZ",
        "'2024-01-31 12:34:56+05:30'::TIMESTAMPTZ",
        "INTERVAL '-1 month -30 days -0.000001 seconds'",
        "INTERVAL '999999 years'",
        "MAP {'a': [1, NULL], 'b': NULL}",
        "{'a': {'b': {'c': [NULL, 'x']}}}",
        "[[[]]]",
        "[NULL]::VARCHAR[]",
        "[TIME '12:00:00', NULL]",
        "[1.25::DECIMAL(5,2)]",
        "['101'::BIT]",
        "[NULL, 1::VARIANT]",
        "[[1, 2], NULL]::INTEGER[2][2]",
        "(-123456789012345678901234567890)::BIGNUM",
        "'\\x27\\x5C\\x00'::BLOB",
        "repeat('ab', 5000)::BLOB",
    };
    return edges;
}

/** The field of the expression's only cell, through a cursor of the module. */
std::string FieldOf(const OpenedDatabase& database, const std::string& expression, uint32_t location) {
    const Cursor cursor = database.Select("SELECT " + expression, location);
    EXPECT_TRUE(cursor->NextRecord());
    return DescribeField(*cursor, 0);
}

/** Reads a number from DuckDB's text of it and writes it as `Describe` does. */
std::string DescribeNumber(const char* kind, const std::string& text, bool is_single) {
    const double number =
        is_single ? double{std::strtof(text.c_str(), nullptr)} : std::strtod(text.c_str(), nullptr);
    char digits[64];
    std::snprintf(digits, sizeof(digits), "%a", number);
    return std::string(kind) + " " + digits;
}

std::string LowerHex(Oracle& oracle, const std::string& expression) {
    return *oracle.QueryText("SELECT lower(hex(" + expression + "))") + " of " +
           *oracle.QueryText("SELECT octet_length(" + expression + ")::VARCHAR") + "?";
}

/** The expected field, from the texts that DuckDB itself returns on a separate connection. */
std::string ExpectedField(Oracle& oracle, const std::string& expression, duckdb_type type) {
    const auto text = oracle.QueryText("SELECT CAST(" + expression + " AS VARCHAR)");
    if (!text) {
        return "Boolean NULL?";
    }
    switch (type) {
        case DUCKDB_TYPE_BOOLEAN:
            return "Boolean " + *text;
        case DUCKDB_TYPE_TINYINT:
        case DUCKDB_TYPE_SMALLINT:
            return "Short " + *text;
        case DUCKDB_TYPE_INTEGER:
            return "Long " + *text;
        case DUCKDB_TYPE_BIGINT:
            return "LLong " + *text;
        case DUCKDB_TYPE_UTINYINT:
            return "Byte " + *text;
        case DUCKDB_TYPE_USMALLINT:
            return "UShort " + *text;
        case DUCKDB_TYPE_UINTEGER:
            return "ULong " + *text;
        case DUCKDB_TYPE_UBIGINT:
            return "ULLong " + *text;
        case DUCKDB_TYPE_FLOAT:
            return DescribeNumber("Float", *text, true);
        case DUCKDB_TYPE_DOUBLE:
            return DescribeNumber("Double", *text, false);
        case DUCKDB_TYPE_DECIMAL:
            return DescribeNumber(
                "Double", *oracle.QueryText("SELECT CAST(CAST(" + expression + " AS DOUBLE) AS VARCHAR)"),
                false);
        case DUCKDB_TYPE_BLOB:
            return "FixedBinary " + LowerHex(oracle, expression);
        default:
            return "String " + *text;
    }
}

duckdb_type TypeOf(Oracle& oracle, const std::string& expression) {
    ResultHolder result = oracle.Query("SELECT " + expression);
    return duckdb_column_type(result.get(), 0);
}

class CursorTypes : public testing::Test {
  protected:
    CursorTypes() { database_.Query("SET TimeZone = 'UTC'"); }

    void ExpectAsDuckDB(const std::vector<std::string>& expressions) {
        for (const std::string& expression : expressions) {
            const duckdb_type type = TypeOf(oracle_, expression);
            if (type == DUCKDB_TYPE_VARIANT) {
                continue;  // by kind, below
            }
            const std::string expected = ExpectedField(oracle_, expression, type);
            EXPECT_EQ(FieldOf(database_, expression, kServerCursor), expected) << expression;
            EXPECT_EQ(FieldOf(database_, expression, kClientCursor), expected) << expression;
        }
    }

    OpenedDatabase database_;
    Oracle oracle_;
};

TEST_F(CursorTypes, EverySampleEqualsDuckDBsText) {
    ExpectAsDuckDB(get_SampleExpressions());
}

TEST_F(CursorTypes, TheEdgesEqualDuckDBsText) {
    ExpectAsDuckDB(get_EdgeExpressions());
}

TEST_F(CursorTypes, TheSamplesHoldEveryTypeThatAColumnCanHave) {
    std::set<duckdb_type> types;
    for (const std::string& expression : get_SampleExpressions()) {
        types.insert(TypeOf(oracle_, expression));
    }
    // INVALID, ANY and the literals are not types of columns; a NULL column is reported as INTEGER.
    const std::set<uint32_t> impossible = {DUCKDB_TYPE_ANY, DUCKDB_TYPE_STRING_LITERAL,
                                           DUCKDB_TYPE_INTEGER_LITERAL, DUCKDB_TYPE_SQLNULL};
    for (uint32_t type = DUCKDB_TYPE_BOOLEAN; type <= DUCKDB_TYPE_VARIANT; ++type) {
        EXPECT_EQ(types.count(static_cast<duckdb_type>(type)), 1U - impossible.count(type)) << type;
    }
}

TEST_F(CursorTypes, WholeColumnsMixNULLWithEachSample) {
    for (const std::string& expression : get_SampleExpressions()) {
        if (TypeOf(oracle_, expression) == DUCKDB_TYPE_VARIANT) {
            continue;
        }
        const std::string expected = FieldOf(database_, expression, kServerCursor);
        for (const uint32_t location : {kServerCursor, kClientCursor}) {
            const Cursor cursor =
                database_.Select("SELECT x FROM (SELECT i, " + expression +
                                     " AS x FROM range(130) t(i) WHERE i % 3 > 0 UNION ALL "
                                     "SELECT i, NULL FROM range(130) t(i) WHERE i % 3 = 0) ORDER BY i",
                                 location);
            for (int row = 0; row < 130; ++row) {
                ASSERT_TRUE(cursor->NextRecord());
                ASSERT_EQ(DescribeField(*cursor, 0), row % 3 == 0 ? "Boolean NULL?" : expected)
                    << expression << " row " << row;
            }
        }
    }
}

/** What the value inside a VARIANT of each kind must become, by DuckDB's text of the value. */
std::string ExpectedOfKind(uint32_t kind, const std::string& text, const std::string& hex) {
    static const std::map<uint32_t, std::string> numbers = {{4, "Short "},  {5, "Long "},   {6, "LLong "},
                                                            {8, "Byte "},   {9, "UShort "}, {10, "ULong "},
                                                            {11, "ULLong "}};
    if (const auto number = numbers.find(kind); number != numbers.end()) {
        return number->second + text;
    }
    switch (kind) {
        case 0:
            return "Boolean NULL?";
        case 1:
            return "Boolean true";
        case 2:
            return "Boolean false";
        case 13:
            return DescribeNumber("Float", text, true);
        case 14:
            return DescribeNumber("Double", text, false);
        case 16:
            return "String " + text;
        case 17:
            return "FixedBinary " + hex;
        case 19:
            return "Date " + text + "?";
        case 23:
            return "DateTime " + text;
        default:
            return R"(JSON {"duckdb_variant":true,"variant_type":")" + std::string(VariantTypeName(kind)) +
                   R"(","value":")" + text + "\"}";
    }
}

TEST_F(CursorTypes, EveryKindOfValueInsideAVARIANTEqualsDuckDBsText) {
    const std::vector<std::string>& expressions = get_VariantExpressions();
    ASSERT_EQ(expressions.size(), kVariantTypeCount - 1) << "all kinds but NULL";
    for (uint32_t kind = 1; kind < kVariantTypeCount; ++kind) {
        const std::string& expression = expressions[kind - 1];
        const std::string text = *oracle_.QueryText("SELECT CAST(" + expression + " AS VARCHAR)");
        std::string hex;
        if (kind == 17) {
            hex = LowerHex(oracle_, "CAST(" + expression + " AS BLOB)");
        }
        const std::string expected = ExpectedOfKind(kind, text, hex);
        EXPECT_EQ(FieldOf(database_, expression, kServerCursor), expected) << expression;
        EXPECT_EQ(FieldOf(database_, expression, kClientCursor), expected) << expression;
    }
}

TEST_F(CursorTypes, AVARIANTOfNULLIsANullBoolean) {
    for (const char* expression : {"NULL::VARIANT", "(NULL::INTEGER)::VARIANT", "'null'::JSON::VARIANT"}) {
        EXPECT_EQ(FieldOf(database_, expression, kServerCursor), "Boolean NULL?") << expression;
        EXPECT_EQ(FieldOf(database_, expression, kClientCursor), "Boolean NULL?") << expression;
    }
}

TEST_F(CursorTypes, AColumnOfVARIANTsReadsEachRowByItsOwnKind) {
    const std::string sql =
        "SELECT v FROM (VALUES (1::INTEGER::VARIANT), ('x'::VARIANT), (NULL), "
        "(true::VARIANT), ([1]::VARIANT), (1.5::DECIMAL(3,1)::VARIANT)) t(v)";
    const std::vector<std::string> expected = {
        "Long 1",
        "String x",
        "Boolean NULL?",
        "Boolean true",
        R"(JSON {"duckdb_variant":true,"variant_type":"ARRAY","value":"[1]"})",
        R"(JSON {"duckdb_variant":true,"variant_type":"DECIMAL","value":"1.5"})",
    };
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        const Cursor cursor = database_.Select(sql, location);
        for (const std::string& field : expected) {
            ASSERT_TRUE(cursor->NextRecord());
            EXPECT_EQ(DescribeField(*cursor, 0), field);
        }
    }
}

}  // namespace
}  // namespace mduckdb
