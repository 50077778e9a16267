#include <cmath>
#include <functional>
#include <limits>

#include "statement_fixture.h"
#include "support/expected_by_version.h"

namespace mduckdb::test {

namespace {

template <class Number>
constexpr Number kMin = std::numeric_limits<Number>::min();
template <class Number>
constexpr Number kMax = std::numeric_limits<Number>::max();

constexpr int64_t kDayMicros = 86400000000;
constexpr int64_t kDayNanos = kDayMicros * 1000;

using S = I_DuckDBStatement;

/** A bind, and the type and text that DuckDB then has. */
struct Case {
    const char* what;
    std::function<void(S&)> bind;
    const char* type;
    const char* text;
};

/** A bind that is refused, and the error: the module's text for the type, or a part of DuckDB's. */
struct Refusal {
    const char* what;
    std::function<void(S&)> bind;
    const char* type_word;
    const char* part_of_duckdb_text = nullptr;
};

const uint8_t kNoBytes[1] = {0};

void BindBlobText(S& s, std::string_view bytes) {
    s.BindBlob(1, bytes.data(), bytes.size());
}

void BindBitBytes(S& s, std::vector<uint8_t> bytes) {
    s.BindBit(1, bytes.data(), bytes.size());
}

void BindBignumBytes(S& s, std::vector<uint8_t> bytes, bool is_negative) {
    s.BindBignum(1, bytes.data(), bytes.size(), is_negative ? 1 : 0);
}

const std::vector<Case>& IntegerCases() {
    static const std::vector<Case> kCases = {
        {"null", [](S& s) { s.BindNull(1); }, "\"NULL\"", "NULL"},
        {"false", [](S& s) { s.BindBoolean(1, false); }, "BOOLEAN", "false"},
        {"true", [](S& s) { s.BindBoolean(1, true); }, "BOOLEAN", "true"},
        {"tinyint min", [](S& s) { s.BindTinyInt(1, kMin<int8_t>); }, "TINYINT", "-128"},
        {"tinyint zero", [](S& s) { s.BindTinyInt(1, 0); }, "TINYINT", "0"},
        {"tinyint max", [](S& s) { s.BindTinyInt(1, kMax<int8_t>); }, "TINYINT", "127"},
        {"utinyint min", [](S& s) { s.BindUTinyInt(1, 0); }, "UTINYINT", "0"},
        {"utinyint past tinyint", [](S& s) { s.BindUTinyInt(1, 128); }, "UTINYINT", "128"},
        {"utinyint max", [](S& s) { s.BindUTinyInt(1, 255); }, "UTINYINT", "255"},
        {"smallint min", [](S& s) { s.BindSmallInt(1, kMin<int16_t>); }, "SMALLINT", "-32768"},
        {"smallint past tinyint", [](S& s) { s.BindSmallInt(1, -129); }, "SMALLINT", "-129"},
        {"smallint zero", [](S& s) { s.BindSmallInt(1, 0); }, "SMALLINT", "0"},
        {"smallint max", [](S& s) { s.BindSmallInt(1, kMax<int16_t>); }, "SMALLINT", "32767"},
        {"usmallint min", [](S& s) { s.BindUSmallInt(1, 0); }, "USMALLINT", "0"},
        {"usmallint past smallint", [](S& s) { s.BindUSmallInt(1, 32768); }, "USMALLINT", "32768"},
        {"usmallint max", [](S& s) { s.BindUSmallInt(1, 65535); }, "USMALLINT", "65535"},
        {"integer min", [](S& s) { s.BindInteger(1, kMin<int32_t>); }, "INTEGER", "-2147483648"},
        {"integer past smallint", [](S& s) { s.BindInteger(1, -32769); }, "INTEGER", "-32769"},
        {"integer zero", [](S& s) { s.BindInteger(1, 0); }, "INTEGER", "0"},
        {"integer max", [](S& s) { s.BindInteger(1, kMax<int32_t>); }, "INTEGER", "2147483647"},
        {"uinteger min", [](S& s) { s.BindUInteger(1, 0); }, "UINTEGER", "0"},
        {"uinteger past integer", [](S& s) { s.BindUInteger(1, 2147483648u); }, "UINTEGER", "2147483648"},
        {"uinteger max", [](S& s) { s.BindUInteger(1, kMax<uint32_t>); }, "UINTEGER", "4294967295"},
        {"bigint min", [](S& s) { s.BindBigInt(1, kMin<int64_t>); }, "BIGINT", "-9223372036854775808"},
        {"bigint past integer", [](S& s) { s.BindBigInt(1, -2147483649); }, "BIGINT", "-2147483649"},
        {"bigint zero", [](S& s) { s.BindBigInt(1, 0); }, "BIGINT", "0"},
        {"bigint max", [](S& s) { s.BindBigInt(1, kMax<int64_t>); }, "BIGINT", "9223372036854775807"},
        {"ubigint min", [](S& s) { s.BindUBigInt(1, 0); }, "UBIGINT", "0"},
        {"ubigint past bigint", [](S& s) { s.BindUBigInt(1, 9223372036854775808u); }, "UBIGINT",
         "9223372036854775808"},
        {"ubigint max", [](S& s) { s.BindUBigInt(1, kMax<uint64_t>); }, "UBIGINT", "18446744073709551615"},
        {"hugeint min", [](S& s) { s.BindHugeInt(1, 0, kMin<int64_t>); }, "HUGEINT",
         "-170141183460469231731687303715884105728"},
        {"hugeint past bigint", [](S& s) { s.BindHugeInt(1, kMax<int64_t>, -1); }, "HUGEINT",
         "-9223372036854775809"},
        {"hugeint zero", [](S& s) { s.BindHugeInt(1, 0, 0); }, "HUGEINT", "0"},
        {"hugeint max", [](S& s) { s.BindHugeInt(1, kMax<uint64_t>, kMax<int64_t>); }, "HUGEINT",
         "170141183460469231731687303715884105727"},
        {"uhugeint min", [](S& s) { s.BindUHugeInt(1, 0, 0); }, "UHUGEINT", "0"},
        {"uhugeint past ubigint", [](S& s) { s.BindUHugeInt(1, 0, 1); }, "UHUGEINT", "18446744073709551616"},
        {"uhugeint max", [](S& s) { s.BindUHugeInt(1, kMax<uint64_t>, kMax<uint64_t>); }, "UHUGEINT",
         "340282366920938463463374607431768211455"},
    };
    return kCases;
}

const std::vector<Case>& FractionCases() {
    static const std::vector<Case> kCases = {
        {"decimal zero", [](S& s) { s.BindDecimal(1, 1, 0, 0, 0); }, "DECIMAL(1,0)", "0"},
        {"decimal of one digit", [](S& s) { s.BindDecimal(1, 1, 1, 9, 0); }, "DECIMAL(1,1)", ".9"},
        {"decimal negative", [](S& s) { s.BindDecimal(1, 4, 2, static_cast<uint64_t>(-1250), -1); },
         "DECIMAL(4,2)", "-12.50"},
        {"decimal of 18 digits", [](S& s) { s.BindDecimal(1, 18, 0, 999999999999999999u, 0); },
         "DECIMAL(18,0)", "999999999999999999"},
        {"decimal past 64 bits", [](S& s) { s.BindDecimal(1, 19, 3, 9999999999999999999u, 0); },
         "DECIMAL(19,3)", "9999999999999999.999"},
        {"decimal max", [](S& s) { s.BindDecimal(1, 38, 0, 687399551400673279u, 5421010862427522170); },
         "DECIMAL(38,0)", "99999999999999999999999999999999999999"},
        {"decimal min",
         [](S& s) { s.BindDecimal(1, 38, 38, ~687399551400673279u + 1, -5421010862427522171); },
         "DECIMAL(38,38)", "-.99999999999999999999999999999999999999"},
        {"float lowest", [](S& s) { s.BindFloat(1, -std::numeric_limits<float>::max()); }, "FLOAT",
         "-3.4028235e+38"},
        {"float zero", [](S& s) { s.BindFloat(1, 0); }, "FLOAT", "0.0"},
        {"float max", [](S& s) { s.BindFloat(1, std::numeric_limits<float>::max()); }, "FLOAT",
         "3.4028235e+38"},
        {"float infinity", [](S& s) { s.BindFloat(1, std::numeric_limits<float>::infinity()); }, "FLOAT",
         "inf"},
        {"float nan", [](S& s) { s.BindFloat(1, std::numeric_limits<float>::quiet_NaN()); }, "FLOAT", "nan"},
        {"double lowest", [](S& s) { s.BindDouble(1, -std::numeric_limits<double>::max()); }, "DOUBLE",
         "-1.7976931348623157e+308"},
        {"double zero", [](S& s) { s.BindDouble(1, 0); }, "DOUBLE", "0.0"},
        {"double past float", [](S& s) { s.BindDouble(1, 1e39); }, "DOUBLE", "1e+39"},
        {"double max", [](S& s) { s.BindDouble(1, std::numeric_limits<double>::max()); }, "DOUBLE",
         "1.7976931348623157e+308"},
        {"double infinity", [](S& s) { s.BindDouble(1, -std::numeric_limits<double>::infinity()); }, "DOUBLE",
         "-inf"},
    };
    return kCases;
}

const std::vector<Case>& TimeCases() {
    static const std::vector<Case> kCases = {
        {"date leap day", [](S& s) { s.BindDate(1, 2024, 2, 29); }, "DATE", "2024-02-29"},
        {"date epoch", [](S& s) { s.BindDate(1, 1970, 1, 1); }, "DATE", "1970-01-01"},
        {"date max", [](S& s) { s.BindDate(1, 5881580, 7, 10); }, "DATE", "5881580-07-10"},
        {"date min", [](S& s) { s.BindDate(1, -5877641, 6, 25); }, "DATE", "5877642-06-25 (BC)"},
        {"time min", [](S& s) { s.BindTime(1, 0); }, "TIME", "00:00:00"},
        {"time below midnight", [](S& s) { s.BindTime(1, kDayMicros - 1); }, "TIME", "23:59:59.999999"},
        {"time max", [](S& s) { s.BindTime(1, kDayMicros); }, "TIME", "24:00:00"},
        {"time_ns min", [](S& s) { s.BindTimeNs(1, 0); }, "TIME_NS", "00:00:00"},
        {"time_ns max", [](S& s) { s.BindTimeNs(1, kDayNanos); }, "TIME_NS", "24:00:00"},
        {"time_ns below midnight", [](S& s) { s.BindTimeNs(1, kDayNanos - 1); }, "TIME_NS",
         "23:59:59.999999999"},
        {"time_tz zero", [](S& s) { s.BindTimeTz(1, 0, 0); }, "TIME WITH TIME ZONE", "00:00:00+00"},
        {"time_tz one hour", [](S& s) { s.BindTimeTz(1, 0, 3600); }, "TIME WITH TIME ZONE", "00:00:00+01"},
        {"time_tz max", [](S& s) { s.BindTimeTz(1, kDayMicros, 57599); }, "TIME WITH TIME ZONE",
         "24:00:00+15:59:59"},
        {"time_tz min", [](S& s) { s.BindTimeTz(1, 0, -57599); }, "TIME WITH TIME ZONE", "00:00:00-15:59:59"},
        {"timestamp zero", [](S& s) { s.BindTimestamp(1, 0); }, "TIMESTAMP", "1970-01-01 00:00:00"},
        {"timestamp before the epoch", [](S& s) { s.BindTimestamp(1, -1); }, "TIMESTAMP",
         "1969-12-31 23:59:59.999999"},
        {"timestamp max", [](S& s) { s.BindTimestamp(1, kMax<int64_t> - 1); }, "TIMESTAMP",
         "294247-01-10 04:00:54.775806"},
        {"timestamp infinity", [](S& s) { s.BindTimestamp(1, kMax<int64_t>); }, "TIMESTAMP", "infinity"},
        {"timestamp -infinity", [](S& s) { s.BindTimestamp(1, -kMax<int64_t>); }, "TIMESTAMP", "-infinity"},
        {"timestamp_tz zero", [](S& s) { s.BindTimestampTz(1, 0); }, "TIMESTAMP WITH TIME ZONE",
         "1970-01-01 00:00:00+00"},
        {"timestamp_tz max", [](S& s) { s.BindTimestampTz(1, kMax<int64_t>); }, "TIMESTAMP WITH TIME ZONE",
         "infinity"},
        {"timestamp_s zero", [](S& s) { s.BindTimestampS(1, 0); }, "TIMESTAMP_S", "1970-01-01 00:00:00"},
        {"timestamp_s negative", [](S& s) { s.BindTimestampS(1, -1); }, "TIMESTAMP_S", "1969-12-31 23:59:59"},
        {"timestamp_ms zero", [](S& s) { s.BindTimestampMs(1, 0); }, "TIMESTAMP_MS", "1970-01-01 00:00:00"},
        {"timestamp_ms", [](S& s) { s.BindTimestampMs(1, 1250); }, "TIMESTAMP_MS", "1970-01-01 00:00:01.25"},
        {"timestamp_ns zero", [](S& s) { s.BindTimestampNs(1, 0); }, "TIMESTAMP_NS", "1970-01-01 00:00:00"},
        {"timestamp_ns max", [](S& s) { s.BindTimestampNs(1, kMax<int64_t> - 1); }, "TIMESTAMP_NS",
         "2262-04-11 23:47:16.854775806"},
        {"interval zero", [](S& s) { s.BindInterval(1, 0, 0, 0); }, "INTERVAL", "00:00:00"},
        {"interval max", [](S& s) { s.BindInterval(1, kMax<int32_t>, kMax<int32_t>, kMax<int64_t>); },
         "INTERVAL", "178956970 years 7 months 2147483647 days 2562047788:00:54.775807"},
        {"interval min", [](S& s) { s.BindInterval(1, kMin<int32_t>, kMin<int32_t>, kMin<int64_t>); },
         "INTERVAL", "-178956970 years -8 months -2147483648 days -2562047788:00:54.775808"},
    };
    return kCases;
}

const std::vector<Case>& TextAndByteCases() {
    static const std::vector<Case> kCases = {
        {"varchar empty", [](S& s) { s.BindVarchar(1, String()); }, "VARCHAR", ""},
        {"varchar outside ASCII", [](S& s) { s.BindVarchar(1, Text("aé€😀")); }, "VARCHAR", "aé€😀"},
        {"blob empty", [](S& s) { BindBlobText(s, ""); }, "BLOB", ""},
        {"blob empty without a pointer", [](S& s) { s.BindBlob(1, nullptr, 0); }, "BLOB", ""},
        {"blob", [](S& s) { BindBlobText(s, std::string_view("a\0\xff", 3)); }, "BLOB", "a\\x00\\xFF"},
        {"bit of one byte",
         [](S& s) {
             BindBitBytes(s, {0, 0xA5});
         },
         "BIT", "10100101"},
        {"bit with padding",
         [](S& s) {
             BindBitBytes(s, {7, 0xFF});
         },
         "BIT", "1"},
        {"bignum zero", [](S& s) { BindBignumBytes(s, {0}, false); }, "BIGNUM", "0"},
        {"bignum",
         [](S& s) {
             BindBignumBytes(s, {1, 0, 0, 0, 0, 0, 0, 0, 0}, false);
         },
         "BIGNUM", "18446744073709551616"},
        {"bignum negative",
         [](S& s) {
             BindBignumBytes(s, {1, 0}, true);
         },
         "BIGNUM", "-256"},
        {"uuid zero", [](S& s) { s.BindUuid(1, 0, 0); }, "UUID", "00000000-0000-0000-0000-000000000000"},
        {"uuid max", [](S& s) { s.BindUuid(1, kMax<uint64_t>, kMax<uint64_t>); }, "UUID",
         "ffffffff-ffff-ffff-ffff-ffffffffffff"},
        {"uuid", [](S& s) { s.BindUuid(1, 0x8899aabbccddeeff, 0x0011223344556677); }, "UUID",
         "00112233-4455-6677-8899-aabbccddeeff"},
    };
    return kCases;
}

const std::vector<Refusal>& Refusals() {
    static const std::vector<Refusal> kRefusals = {
        {"decimal without width", [](S& s) { s.BindDecimal(1, 0, 0, 0, 0); }, "DECIMAL"},
        {"decimal too wide", [](S& s) { s.BindDecimal(1, 39, 0, 0, 0); }, "DECIMAL"},
        {"decimal with too many places", [](S& s) { s.BindDecimal(1, 4, 5, 0, 0); }, "DECIMAL"},
        {"decimal one past one digit", [](S& s) { s.BindDecimal(1, 1, 0, 10, 0); }, "DECIMAL"},
        {"decimal one past 18 digits", [](S& s) { s.BindDecimal(1, 18, 0, 1000000000000000000u, 0); },
         "DECIMAL"},
        {"decimal with an upper half", [](S& s) { s.BindDecimal(1, 18, 0, 0, 1); }, "DECIMAL"},
        {"decimal one past max",
         [](S& s) { s.BindDecimal(1, 38, 0, 687399551400673280u, 5421010862427522170); }, "DECIMAL"},
        {"decimal one past min",
         [](S& s) { s.BindDecimal(1, 38, 0, ~687399551400673279u, -5421010862427522171); }, "DECIMAL"},
        {"date that is none", [](S& s) { s.BindDate(1, 2023, 2, 29); }, "DATE", "out of range"},
        {"date without a month", [](S& s) { s.BindDate(1, 2023, 0, 1); }, "DATE", "out of range"},
        {"date one past max", [](S& s) { s.BindDate(1, 5881580, 7, 11); }, "DATE", "out of range"},
        {"date one past min", [](S& s) { s.BindDate(1, -5877641, 6, 24); }, "DATE", "out of range"},
        {"time one below", [](S& s) { s.BindTime(1, -1); }, "TIME"},
        {"time one past", [](S& s) { s.BindTime(1, kDayMicros + 1); }, "TIME"},
        {"time far past", [](S& s) { s.BindTime(1, kMax<int64_t>); }, "TIME"},
        {"time_ns one below", [](S& s) { s.BindTimeNs(1, -1); }, "TIME_NS"},
        {"time_ns one past", [](S& s) { s.BindTimeNs(1, kDayNanos + 1); }, "TIME_NS"},
        {"time_ns far past", [](S& s) { s.BindTimeNs(1, kMax<int64_t>); }, "TIME_NS"},
        {"time_tz one below", [](S& s) { s.BindTimeTz(1, -1, 0); }, "TIME_TZ"},
        {"time_tz one past", [](S& s) { s.BindTimeTz(1, kDayMicros + 1, 0); }, "TIME_TZ"},
        {"time_tz offset one past", [](S& s) { s.BindTimeTz(1, 0, 57600); }, "TIME_TZ"},
        {"time_tz offset one below", [](S& s) { s.BindTimeTz(1, 0, -57600); }, "TIME_TZ"},
        {"time_tz offset far past", [](S& s) { s.BindTimeTz(1, 0, kMin<int32_t>); }, "TIME_TZ"},
        {"bit without bytes", [](S& s) { s.BindBit(1, kNoBytes, 0); }, "BIT"},
        {"bit without a pointer", [](S& s) { s.BindBit(1, nullptr, 0); }, "BIT"},
        {"bit of padding alone", [](S& s) { BindBitBytes(s, {0}); }, "BIT"},
        {"bit with too much padding",
         [](S& s) {
             BindBitBytes(s, {8, 0xFF});
         },
         "BIT"},
        {"bignum without bytes", [](S& s) { s.BindBignum(1, kNoBytes, 0, 0); }, "BIGNUM"},
        {"blob without the bytes announced", [](S& s) { s.BindBlob(1, nullptr, 3); }, "BLOB"},
        {"bignum without the bytes announced", [](S& s) { s.BindBignum(1, nullptr, 3, 0); }, "BIGNUM"},
    };
    return kRefusals;
}

/** The thirty binds with valid values, and any index. */
struct IndexedBind {
    const char* type_word;
    void (*bind)(S&, uint32_t index);
};

constexpr IndexedBind kThirtyBinds[] = {
    {"NULL", [](S& s, uint32_t i) { s.BindNull(i); }},
    {"BOOLEAN", [](S& s, uint32_t i) { s.BindBoolean(i, true); }},
    {"TINYINT", [](S& s, uint32_t i) { s.BindTinyInt(i, 1); }},
    {"UTINYINT", [](S& s, uint32_t i) { s.BindUTinyInt(i, 1); }},
    {"SMALLINT", [](S& s, uint32_t i) { s.BindSmallInt(i, 1); }},
    {"USMALLINT", [](S& s, uint32_t i) { s.BindUSmallInt(i, 1); }},
    {"INTEGER", [](S& s, uint32_t i) { s.BindInteger(i, 1); }},
    {"UINTEGER", [](S& s, uint32_t i) { s.BindUInteger(i, 1); }},
    {"BIGINT", [](S& s, uint32_t i) { s.BindBigInt(i, 1); }},
    {"UBIGINT", [](S& s, uint32_t i) { s.BindUBigInt(i, 1); }},
    {"HUGEINT", [](S& s, uint32_t i) { s.BindHugeInt(i, 1, 0); }},
    {"UHUGEINT", [](S& s, uint32_t i) { s.BindUHugeInt(i, 1, 0); }},
    {"DECIMAL", [](S& s, uint32_t i) { s.BindDecimal(i, 4, 2, 1, 0); }},
    {"FLOAT", [](S& s, uint32_t i) { s.BindFloat(i, 1); }},
    {"DOUBLE", [](S& s, uint32_t i) { s.BindDouble(i, 1); }},
    {"DATE", [](S& s, uint32_t i) { s.BindDate(i, 2024, 1, 1); }},
    {"TIME", [](S& s, uint32_t i) { s.BindTime(i, 1); }},
    {"TIME_NS", [](S& s, uint32_t i) { s.BindTimeNs(i, 1); }},
    {"TIME_TZ", [](S& s, uint32_t i) { s.BindTimeTz(i, 1, 1); }},
    {"TIMESTAMP", [](S& s, uint32_t i) { s.BindTimestamp(i, 1); }},
    {"TIMESTAMP_TZ", [](S& s, uint32_t i) { s.BindTimestampTz(i, 1); }},
    {"TIMESTAMP_S", [](S& s, uint32_t i) { s.BindTimestampS(i, 1); }},
    {"TIMESTAMP_MS", [](S& s, uint32_t i) { s.BindTimestampMs(i, 1); }},
    {"TIMESTAMP_NS", [](S& s, uint32_t i) { s.BindTimestampNs(i, 1); }},
    {"INTERVAL", [](S& s, uint32_t i) { s.BindInterval(i, 1, 1, 1); }},
    {"VARCHAR", [](S& s, uint32_t i) { s.BindVarchar(i, Text("a")); }},
    {"BLOB", [](S& s, uint32_t i) { s.BindBlob(i, "a", 1); }},
    {"BIT", [](S& s, uint32_t i) { s.BindBit(i, "\0a", 2); }},
    {"BIGNUM", [](S& s, uint32_t i) { s.BindBignum(i, "a", 1, 0); }},
    {"UUID", [](S& s, uint32_t i) { s.BindUuid(i, 1, 1); }},
};
static_assert(std::size(kThirtyBinds) == 30);

}  // namespace

class TypedBindsTest : public StatementTest {
  protected:
    void ExpectSeen(const std::vector<Case>& cases) {
        auto probe = Probe();
        for (const Case& item : cases) {
            SCOPED_TRACE(item.what);
            EXPECT_EQ(Catch([&] { item.bind(*probe); }), Thrown{});
            EXPECT_EQ(ReadBack(*probe), std::pair(std::string(item.type), std::string(item.text)));
        }
    }
};

TEST_F(TypedBindsTest, IntegersArriveWholeAtTheEndsOfTheirRange) {
    ExpectSeen(IntegerCases());
}

TEST_F(TypedBindsTest, FractionsArriveWholeAtTheEndsOfTheirRange) {
    ExpectSeen(FractionCases());
}

TEST_F(TypedBindsTest, DatesAndTimesArriveWholeAtTheEndsOfTheirRange) {
    Direct("SET TimeZone = 'UTC'");
    ExpectSeen(TimeCases());
}

TEST_F(TypedBindsTest, TextsAndBytesArriveWhole) {
    ExpectSeen(TextAndByteCases());
}

TEST_F(TypedBindsTest, ValuesThatTheirTypeDoesNotAllowAreRejected) {
    auto probe = Probe();
    for (const Refusal& item : Refusals()) {
        SCOPED_TRACE(item.what);
        probe->BindInteger(1, 77);
        const Thrown thrown = Catch([&] { item.bind(*probe); });
        if (item.part_of_duckdb_text == nullptr) {
            EXPECT_EQ(thrown,
                      MemoryError(std::string("Failed to bind ") + item.type_word + " statement parameter"));
        } else {
            EXPECT_EQ(thrown, MemoryError(thrown.message));
            EXPECT_NE(thrown.message.find(item.part_of_duckdb_text), std::string::npos) << thrown.message;
        }
        // Earlier bindings stay.
        EXPECT_EQ(ReadBack(*probe), std::pair(std::string("INTEGER"), std::string("77")));
    }
}

TEST_F(TypedBindsTest, TimestampsAtTheEdgeBindAndFailInDuckDBWhenConvertedToText) {
    const std::vector<std::function<void(S&)>> binds = {
        [](S& s) { s.BindTimestamp(1, kMin<int64_t>); },
        [](S& s) { s.BindTimestampS(1, kMax<int64_t> - 1); },
        [](S& s) { s.BindTimestampMs(1, kMax<int64_t> - 1); },
    };
    for (const auto& bind : binds) {
        auto probe = Probe();
        EXPECT_EQ(Catch([&] { bind(*probe); }), Thrown{});
        const Thrown thrown = Catch([&] { probe->Execute(); });
        EXPECT_EQ(thrown.exception, "xDuckDBError");
        EXPECT_TRUE(thrown.message.starts_with("{\"exception_type\":\"" +
                                               get_ExpectedByVersion().failed_timestamp_cast + "\""))
            << thrown.message;
        // The engine can still be used.
        EXPECT_EQ(Scalar("SELECT 1"), "1");
    }
}

TEST_F(TypedBindsTest, AnIndexThatTheStatementLacksIsRejectedByEveryBind) {
    for (const IndexedBind& item : kThirtyBinds) {
        SCOPED_TRACE(item.type_word);
        auto probe = Probe();
        for (const uint32_t index : {0u, 2u, kMax<uint32_t>}) {
            EXPECT_EQ(Catch([&] { item.bind(*probe, index); }),
                      MemoryError("Invalid Input Error: Can not bind to parameter number " +
                                  std::to_string(index) + ", statement only has 1 parameter(s)"));
        }
        // The next one works, although DuckDB keeps the text of the failure.
        EXPECT_EQ(Catch([&] { item.bind(*probe, 1); }), Thrown{});
        EXPECT_NE(ReadBack(*probe).first, "no row");
    }
}

TEST_F(TypedBindsTest, AnErrorOfTheModuleHasNoTextOfAnEarlierFailure) {
    auto probe = Probe();
    EXPECT_NE(Catch([&] { probe->BindInteger(9, 1); }).message.find("number 9"), std::string::npos);
    EXPECT_EQ(Catch([&] { probe->BindTime(1, -1); }), MemoryError("Failed to bind TIME statement parameter"));
    EXPECT_EQ(Catch([&] { probe->BindValue(1, TimeOfDay(25, 0, 0, 0)); }),
              MemoryError("Failed to bind statement parameter"));
}

TEST_F(TypedBindsTest, EveryBindIsIgnoredWhileNothingIsPrepared) {
    for (const IndexedBind& item : kThirtyBinds) {
        SCOPED_TRACE(item.type_word);
        auto statement = Make("INSERT INTO seen SELECT typeof(v), CAST(v AS VARCHAR) FROM (SELECT $1 AS v)");
        EXPECT_EQ(Catch([&] { item.bind(*statement, 1); }), Thrown{});
        EXPECT_EQ(Catch([&] { item.bind(*statement, 99); }), Thrown{});
        statement->PrepareNext();
        EXPECT_NE(Catch([&] { statement->Execute(); }).message.find("Values were not provided"),
                  std::string::npos);
        item.bind(*statement, 1);
        EXPECT_EQ(Catch([&] { statement->Execute(); }), Thrown{});
    }
}

TEST_F(TypedBindsTest, EveryBindReportsThatTheDatabaseIsInvalidOnceItHasClosed) {
    auto probe = Probe();
    database_->Close();
    for (const IndexedBind& item : kThirtyBinds) {
        EXPECT_EQ(Catch([&] { item.bind(*probe, 1); }), kDatabaseIsInvalid) << item.type_word;
    }
}

TEST_F(TypedBindsTest, EveryBindDropsStoredValuesAndWhatTheyBound) {
    for (const IndexedBind& item : kThirtyBinds) {
        SCOPED_TRACE(item.type_word);
        auto statement = Prepared("SELECT $1, $2");
        auto row = Row({Long(1), Long(2)});
        statement->put_Parameters(row);
        item.bind(*statement, 1);
        EXPECT_EQ(row->get_RefsCount(), 1u);
        // Parameter 2 is not bound any more.
        EXPECT_NE(Catch([&] { statement->Execute(); }).message.find("Values were not provided"),
                  std::string::npos);
        item.bind(*statement, 2);
        EXPECT_EQ(Catch([&] { statement->Execute(); }), Thrown{});

        auto rows = Rows({Row({Long(1), Long(2)})});
        statement->put_ParameterRows(rows);
        item.bind(*statement, 1);
        EXPECT_EQ(rows->get_RefsCount(), 1u);
    }
}

TEST_F(TypedBindsTest, TypedBindsAccumulate) {
    auto statement = Prepared("INSERT INTO seen SELECT $1, $2");
    statement->BindInteger(1, 1);
    statement->BindVarchar(2, Text("two"));
    statement->Execute();
    EXPECT_EQ(Direct("SELECT * FROM seen"), (Table{{"1", "two"}}));
}

TEST_F(TypedBindsTest, TheLengthOfATextIsThatOfItsUtf8Bytes) {
    auto statement = Prepared("INSERT INTO seen SELECT length($1), octet_length(encode($1))");
    statement->BindVarchar(1, Text("aé€😀"));
    statement->Execute();
    EXPECT_EQ(Direct("SELECT * FROM seen"), (Table{{"4", "10"}}));
}

TEST_F(TypedBindsTest, NulCharactersInATextArrive) {
    auto statement =
        Prepared("INSERT INTO seen SELECT length($1), CAST($1 = 'a' || chr(0) || 'b' AS VARCHAR)");
    statement->BindVarchar(1, String(std::u16string(u"a\0b", 3)));
    statement->Execute();
    EXPECT_EQ(Direct("SELECT * FROM seen"), (Table{{"3", "true"}}));
}

TEST_F(TypedBindsTest, ALoneSurrogateArrivesAsTheReplacementCharacter) {
    auto statement = Prepared("INSERT INTO seen SELECT CAST($1 = chr(65533) AS VARCHAR), ''");
    statement->BindVarchar(1, String(std::u16string(1, char16_t{0xD800})));
    statement->Execute();
    EXPECT_EQ(Scalar("SELECT type FROM seen"), "true");
}

TEST_F(TypedBindsTest, TheBytesOfABlobAreCopiedDuringTheCall) {
    auto statement = Prepared("INSERT INTO seen SELECT 'x', CAST($1 AS VARCHAR)");
    std::string bytes = "before";
    statement->BindBlob(1, bytes.data(), bytes.size());
    bytes.assign("after!");
    statement->Execute();
    EXPECT_EQ(Scalar("SELECT text FROM seen"), "before");
}

}  // namespace mduckdb::test
