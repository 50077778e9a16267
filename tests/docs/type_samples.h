#pragma once

/* The values of the page of types, chosen to show what each conversion loses. */

namespace mduckdb_docs {

struct CellSample {
    const char* type; /**< as a cast writes it */
    const char* expression;
    /** What a cursor and the procedures of the two modules lose, if the measured columns do not show it. */
    const char* remark;
};

constexpr CellSample kCells[] = {
    {"BOOLEAN", "true", ""},
    {"TINYINT", "-5", "the host has no signed kind of 8 bits"},
    {"SMALLINT", "-32768", ""},
    {"INTEGER", "-2147483648", ""},
    {"BIGINT", "9223372036854775807", ""},
    {"UTINYINT", "255", ""},
    {"USMALLINT", "65535", ""},
    {"UINTEGER", "4294967295", ""},
    {"UBIGINT", "18446744073709551615", ""},
    {"HUGEINT", "170141183460469231731687303715884105727", ""},
    {"UHUGEINT", "340282366920938463463374607431768211455", ""},
    {"BIGNUM", "'123456789012345678901234567890123456789012'", ""},
    {"FLOAT", "1.5", ""},
    {"DOUBLE", "0.1", ""},
    {"DECIMAL(18,3)", "123456789012345.678", "digits beyond the 15 to 17 of a double"},
    {"VARCHAR", "'Zürich'", "bytes that are not valid UTF-8 become U+FFFD"},
    {"ENUM('low', 'high')", "'high'", "which texts the type allows"},
    {"BLOB", "'\\x00\\xFF'", ""},
    {"BIT", "'0101'", ""},
    {"UUID", "'a1b2c3d4-0000-4000-8000-00000000ffff'", ""},
    {"DATE", "'2024-01-31'", "procedures: infinite dates, and years that do not fit the packed form"},
    {"TIME", "'12:34:56.789012'", "procedures: digits below a millisecond"},
    {"TIME_NS", "'12:34:56.789012345'", "procedures: digits below a millisecond"},
    {"TIME WITH TIME ZONE", "'12:34:56.789012+02'", "procedures: the offset, digits below a millisecond"},
    {"TIMESTAMP", "'2024-01-31 12:34:56.789012'", "procedures: infinities, digits below a millisecond"},
    {"TIMESTAMP_S", "'2024-01-31 12:34:56'", "procedures: infinities"},
    {"TIMESTAMP_MS", "'2024-01-31 12:34:56.789'", "procedures: infinities"},
    {"TIMESTAMP_NS", "'2024-01-31 12:34:56.789012345'", "procedures: infinities, digits below a millisecond"},
    {"TIMESTAMP WITH TIME ZONE", "'2024-01-31 12:34:56.789012+02'",
     "cursor: always in UTC; `mduckdb`: in UTC, `mduckdb_casts`: in the "
     "process's time zone; procedures: infinities, digits below a millisecond"},
    {"INTERVAL", "'1 year 2 days 03:04:05.678'", ""},
    {"INTEGER[]", "[1, NULL, 3]", "text only, no host array"},
    {"INTEGER[2]", "[1, 2]", "text only, no host array"},
    {"STRUCT(a INTEGER, b VARCHAR)", "{'a': 1, 'b': 'x'}", "text only"},
    {"MAP(VARCHAR, INTEGER)", "MAP {'k': 1}", "text only"},
    {"UNION(num INTEGER, txt VARCHAR)", "union_value(num := 1)", "text only; which member it was"},
    {"JSON", "'{\"a\": [1]}'", "that it is JSON"},
    {"GEOMETRY", "'POINT(1 2)'", ""},
    {"VARIANT", "1.25::DECIMAL(3,2)", "see the table of VARIANT contents"},
};

/** Contents of a VARIANT, one of each kind that DuckDB creates. */
constexpr const char* kVariantContents[] = {
    "NULL",
    "true",
    "(-5)::TINYINT",
    "(-5)::SMALLINT",
    "(-5)::INTEGER",
    "(-5)::BIGINT",
    "(-5)::HUGEINT",
    "5::UTINYINT",
    "5::USMALLINT",
    "5::UINTEGER",
    "5::UBIGINT",
    "5::UHUGEINT",
    "1.5::FLOAT",
    "1.5::DOUBLE",
    "12.50::DECIMAL(4,2)",
    "'Wien'",
    "'\\x00\\xFF'::BLOB",
    "'a1b2c3d4-0000-4000-8000-00000000ffff'::UUID",
    "'2024-01-31'::DATE",
    "'12:34:56.789012'::TIME",
    "'12:34:56.789012345'::TIME_NS",
    "'12:34:56+02'::TIMETZ",
    "'2024-01-31 12:34:56'::TIMESTAMP_S",
    "'2024-01-31 12:34:56.789'::TIMESTAMP_MS",
    "'2024-01-31 12:34:56.789012'::TIMESTAMP",
    "'2024-01-31 12:34:56.789012345'::TIMESTAMP_NS",
    "'2024-01-31 12:34:56+00'::TIMESTAMPTZ",
    "'2 days'::INTERVAL",
    "{'a': 1, 'b': 'x'}",
    "[1, 2]",
    "['x', 'y']",
    "'123456789012345678901234567890123456789012'::BIGNUM",
    "'0101'::BIT",
    "'POINT(1 2)'::GEOMETRY",
};

/** An envelope: the word and a value that it can read. */
struct EnvelopeSample {
    const char* marker; /**< duckdb_value or duckdb_variant */
    const char* word;
    const char* value; /**< as JSON */
};

constexpr EnvelopeSample kEnvelopes[] = {
    {"duckdb_value", "VARIANT_NULL", "null"},
    {"duckdb_value", "BOOL", "\"true\""},
    {"duckdb_value", "BOOLEAN", "\"true\""},
    {"duckdb_value", "BOOL_TRUE", "null"},
    {"duckdb_value", "BOOL_FALSE", "null"},
    {"duckdb_value", "INT8", "\"-5\""},
    {"duckdb_value", "INT16", "\"-5\""},
    {"duckdb_value", "INT32", "\"-5\""},
    {"duckdb_value", "INT64", "\"-5\""},
    {"duckdb_value", "INT128", "\"-5\""},
    {"duckdb_value", "UINT8", "\"5\""},
    {"duckdb_value", "UINT16", "\"5\""},
    {"duckdb_value", "UINT32", "\"5\""},
    {"duckdb_value", "UINT64", "\"5\""},
    {"duckdb_value", "UINT128", "\"5\""},
    {"duckdb_value", "FLOAT", "\"1.5\""},
    {"duckdb_value", "DOUBLE", "\"1.5\""},
    {"duckdb_value", "DECIMAL", "\"-12.50\""},
    {"duckdb_value", "VARCHAR", "\"Wien\""},
    {"duckdb_value", "UUID", "\"a1b2c3d4-0000-4000-8000-00000000ffff\""},
    {"duckdb_value", "DATE", "\"2024-01-31\""},
    {"duckdb_value", "TIME_MICROS", "\"12:34:56.789012\""},
    {"duckdb_value", "TIME_NANOS", "\"12:34:56.789012345\""},
    {"duckdb_value", "TIME_MICROS_TZ", "\"12:34:56+02\""},
    {"duckdb_value", "TIMESTAMP_SEC", "\"2024-01-31 12:34:56\""},
    {"duckdb_value", "TIMESTAMP_MILIS", "\"2024-01-31 12:34:56.789\""},
    {"duckdb_value", "TIMESTAMP_MICROS", "\"2024-01-31 12:34:56.789012\""},
    {"duckdb_value", "TIMESTAMP_NANOS", "\"2024-01-31 12:34:56.789012345\""},
    {"duckdb_value", "TIMESTAMP_MICROS_TZ", "\"2024-01-31 12:34:56+00\""},
    {"duckdb_value", "INTERVAL", "\"2 days\""},
    {"duckdb_value", "BITSTRING", "\"0101\""},
    {"duckdb_value", "BIGNUM", "\"123456789012345678901234567890\""},
    {"duckdb_value", "GEOMETRY", "\"POINT(1 2)\""},
    {"duckdb_variant", "ARRAY", "[1, \"x\"]"},
    {"duckdb_variant", "OBJECT", "{\"a\": 1}"},
    {"duckdb_variant", "JSON", "\"[1]\""},
};

}  // namespace mduckdb_docs
