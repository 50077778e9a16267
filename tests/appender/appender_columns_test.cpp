#include <array>
#include <limits>

#include "appender_fixture.h"

namespace mduckdb::test {
namespace {

/** Elements 0 and 2 are NULL. */
constexpr uint64_t kValidity = 0b11010;

template <class Element>
DuckDBColumnArray ArrayOf(duckdb_type type, const Element* elements) {
    DuckDBColumnArray array{};
    array.type = type;
    array.data = elements;
    return array;
}

DuckDBBytes BytesOf(std::string_view bytes) {
    return {bytes.data(), bytes.size()};
}

TEST_F(AppenderTest, StoresColumnsOfManyChunks) {
    constexpr uint64_t kRows = 300'000;
    Direct("CREATE TABLE t (i BIGINT, d DOUBLE, s VARCHAR)");
    std::vector<int64_t> numbers(kRows);
    std::vector<double> doubles(kRows);
    std::vector<std::string> texts(kRows);
    std::vector<DuckDBBytes> bytes(kRows);
    std::vector<uint64_t> validity(kRows / 64 + 1, ~uint64_t{0});
    for (uint64_t i = 0; i < kRows; ++i) {
        numbers[i] = static_cast<int64_t>(i);
        doubles[i] = static_cast<double>(i) / 4;
        texts[i] = "row " + std::to_string(i);
        bytes[i] = BytesOf(texts[i]);
        validity[i / 64] &= i % 7 == 3 ? ~(uint64_t{1} << (i % 64)) : ~uint64_t{0};
    }
    const Appender appender = Open("t");
    appender->AppendRow(Row({LLong(-1), Double(0), Str("first")}));
    DuckDBColumnArray columns[] = {ArrayOf(DUCKDB_TYPE_BIGINT, numbers.data()),
                                   ArrayOf(DUCKDB_TYPE_DOUBLE, doubles.data()),
                                   ArrayOf(DUCKDB_TYPE_VARCHAR, bytes.data())};
    columns[1].validity = columns[2].validity = validity.data();
    appender->AppendColumns(columns, 3, kRows);
    EXPECT_EQ(appender->get_RowCount(), kRows + 1);
    appender->Close();
    EXPECT_EQ(Direct("SELECT count(*), count(d), count(s), count(*) FILTER (i % 7 <> 3 AND d = i / 4 AND "
                     "s = 'row ' || i), count(*) FILTER (i = rowid - 1) FROM t WHERE i >= 0"),
              (Table{{"300000", "257143", "257143", "257143", "300000"}}));
}

/** An array of five elements, and the SQL of the three that are not NULL. */
struct Elements {
    const char* type;
    DuckDBColumnArray array;
    std::array<const char*, 3> sql;
};

constexpr int8_t kTiny[] = {0, -128, 0, 127, 1};
constexpr int16_t kSmall[] = {0, -32768, 0, 32767, 1};
constexpr int32_t kInteger[] = {0, -2147483647, 0, 2147483647, 1};
constexpr int32_t kCents[] = {0, -125, 0, 999'999'999, 1};
constexpr int64_t kBig[] = {0, -9223372036854775807, 0, 9223372036854775807, 1};
constexpr uint8_t kBooleans[] = {0, 1, 0, 7, 0};
constexpr float kFloats[] = {0, 1.5F, 0, -2.5F, 1};
constexpr double kDoubles[] = {0, 1.5, 0, -2.5, 1};
constexpr duckdb_hugeint kHuge[] = {{0, 0}, {~uint64_t{0}, -1}, {0, 0}, {5, 1}, {1, 0}};
constexpr duckdb_uhugeint kUHuge[] = {{0, 0}, {~uint64_t{0}, ~uint64_t{0}}, {0, 0}, {5, 1}, {1, 0}};
/** Their NULLs are no times. */
constexpr int64_t kTimes[] = {-1, 1, -1, 86'400'000'000, 0};
constexpr int64_t kMoments[] = {-1, 1, -1, 1'700'000'000'000'000, 0};
constexpr int64_t kSeconds[] = {-1, 1, -1, 1'700'000'000, 0};
constexpr duckdb_interval kIntervals[] = {{0, 0, 0}, {1, 2, 3}, {0, 0, 0}, {-14, 0, 5}, {0, 0, 0}};
const DuckDBBytes kTexts[] = {
    {nullptr, 5}, {"one", 3}, {nullptr, 1}, {"a text of more than twelve bytes", 32}, {nullptr, 0}};
const DuckDBBytes kBits[] = {{nullptr, 5}, {"\x04\xF5", 2}, {nullptr, 1}, {"\x00\xAA", 2}, {"\x00\x01", 2}};

DuckDBColumnArray Decimal(uint8_t width, const void* elements) {
    DuckDBColumnArray array = ArrayOf(DUCKDB_TYPE_DECIMAL, elements);
    array.width = width;
    array.scale = 2;
    return array;
}

const Elements kElements[] = {
    {"BOOLEAN", ArrayOf(DUCKDB_TYPE_BOOLEAN, kBooleans), {"true", "true", "false"}},
    {"TINYINT", ArrayOf(DUCKDB_TYPE_TINYINT, kTiny), {"-128", "127", "1"}},
    {"SMALLINT", ArrayOf(DUCKDB_TYPE_SMALLINT, kSmall), {"-32768", "32767", "1"}},
    {"INTEGER", ArrayOf(DUCKDB_TYPE_INTEGER, kInteger), {"-2147483647", "2147483647", "1"}},
    {"BIGINT", ArrayOf(DUCKDB_TYPE_BIGINT, kBig), {"-9223372036854775807", "9223372036854775807", "1"}},
    {"HUGEINT", ArrayOf(DUCKDB_TYPE_HUGEINT, kHuge), {"-1", "18446744073709551621", "1"}},
    {"UHUGEINT",
     ArrayOf(DUCKDB_TYPE_UHUGEINT, kUHuge),
     {"340282366920938463463374607431768211455", "18446744073709551621", "1"}},
    {"FLOAT", ArrayOf(DUCKDB_TYPE_FLOAT, kFloats), {"1.5", "-2.5", "1"}},
    {"DOUBLE", ArrayOf(DUCKDB_TYPE_DOUBLE, kDoubles), {"1.5", "-2.5", "1"}},
    {"DECIMAL(9,2)", Decimal(9, kCents), {"-1.25", "9999999.99", "0.01"}},
    {"DECIMAL(18,2)", Decimal(18, kTimes), {"0.01", "864000000.00", "0"}},
    {"DATE", ArrayOf(DUCKDB_TYPE_DATE, kInteger), {"'-infinity'", "'infinity'", "'1970-01-02'"}},
    {"TIME", ArrayOf(DUCKDB_TYPE_TIME, kTimes), {"'00:00:00.000001'", "'24:00:00'", "'00:00:00'"}},
    {"TIMESTAMP",
     ArrayOf(DUCKDB_TYPE_TIMESTAMP, kMoments),
     {"make_timestamp(1)", "make_timestamp(1700000000000000)", "make_timestamp(0)"}},
    {"TIMESTAMPTZ",
     ArrayOf(DUCKDB_TYPE_TIMESTAMP_TZ, kMoments),
     {"to_timestamp(0.000001)", "to_timestamp(1700000000)", "to_timestamp(0)"}},
    {"TIMESTAMP_S",
     ArrayOf(DUCKDB_TYPE_TIMESTAMP_S, kSeconds),
     {"make_timestamp(1000000)", "make_timestamp(1700000000000000)", "make_timestamp(0)"}},
    {"INTERVAL",
     ArrayOf(DUCKDB_TYPE_INTERVAL, kIntervals),
     {"'1 month 2 days 3 microseconds'", "'-14 months 5 microseconds'", "'0 days'"}},
    {"VARCHAR", ArrayOf(DUCKDB_TYPE_VARCHAR, kTexts), {"'one'", "'a text of more than twelve bytes'", "''"}},
    {"BLOB", ArrayOf(DUCKDB_TYPE_BLOB, kTexts), {"'one'", "'a text of more than twelve bytes'", "''"}},
    {"BIT", ArrayOf(DUCKDB_TYPE_BIT, kBits), {"'0101'", "'10101010'", "'00000001'"}},
};

TEST_F(AppenderTest, StoresAnArrayOfEachType) {
    for (const Elements& elements : kElements) {
        Direct(std::string("CREATE OR REPLACE TABLE t (row INTEGER, cell ") + elements.type + ")");
        const Appender appender = OpenColumns("t", {Text("cell")});
        DuckDBColumnArray array = elements.array;
        array.validity = &kValidity;
        appender->AppendColumns(&array, 1, 5);
        appender->Close();
        const std::string type = std::string(")::") + elements.type + "::VARCHAR";
        EXPECT_EQ(Direct("SELECT cell::VARCHAR FROM t"),
                  Direct("SELECT unnest([NULL, (" + std::string(elements.sql[0]) + type + ", NULL, (" +
                         elements.sql[1] + type + ", (" + elements.sql[2] + type + "])"))
            << elements.type;
    }
}

TEST_F(AppenderTest, CastsArraysOfAnotherTypeAsDuckDBDoes) {
    Direct("CREATE TABLE t (a VARCHAR, b BIGINT, c DECIMAL(9,3), d ENUM('one', 'two'), e JSON)");
    const int32_t numbers[] = {1, 2};
    const int16_t decimals[] = {125, -250};
    const DuckDBBytes words[] = {BytesOf("one"), BytesOf("two")};
    const DuckDBBytes documents[] = {BytesOf("[1, 2]"), BytesOf("{}")};
    const DuckDBColumnArray columns[] = {
        ArrayOf(DUCKDB_TYPE_INTEGER, numbers), ArrayOf(DUCKDB_TYPE_INTEGER, numbers), Decimal(4, decimals),
        ArrayOf(DUCKDB_TYPE_VARCHAR, words), ArrayOf(DUCKDB_TYPE_VARCHAR, documents)};
    const Appender appender = Open("t");
    appender->AppendColumns(columns, 5, 2);
    appender->Close();
    EXPECT_EQ(Direct("SELECT a, b, c, d::VARCHAR, e FROM t"),
              (Table{{"1", "1", "1.250", "one", "[1, 2]"}, {"2", "2", "-2.500", "two", "{}"}}));
}

TEST_F(AppenderTest, NamesRowAndColumnOfAnElementAndKeepsTheRowsBefore) {
    Direct("CREATE TABLE t (i TINYINT, s VARCHAR)");
    const int32_t numbers[] = {1, 2, 300, 4};
    const DuckDBBytes texts[] = {BytesOf("a"), BytesOf("\xFF"), BytesOf("c"), BytesOf("d")};
    const DuckDBColumnArray columns[] = {ArrayOf(DUCKDB_TYPE_INTEGER, numbers),
                                         ArrayOf(DUCKDB_TYPE_VARCHAR, texts)};
    const Appender appender = Open("t");
    EXPECT_EQ(Catch([&] { appender->AppendColumns(columns, 2, 4); }),
              MemoryError("Row 2, column \"s\": The text is not valid UTF-8"));
    EXPECT_EQ(appender->get_PendingRowCount(), 1u);
    const DuckDBColumnArray others[] = {ArrayOf(DUCKDB_TYPE_INTEGER, numbers + 2),
                                        ArrayOf(DUCKDB_TYPE_VARCHAR, texts + 2)};
    EXPECT_EQ(Catch([&] { appender->AppendColumns(others, 2, 2); }),
              MemoryError(
                  "Row 2, column \"i\": Type INT32 with value 300 can't be cast because the value is out of "
                  "range for the destination type INT8"));
    appender->Close();
    EXPECT_EQ(Direct("FROM t"), (Table{{"1", "a"}}));
}

TEST_F(AppenderTest, RefusesElementsThatTheirTypeDoesNotAllow) {
    const int64_t late[] = {86'400'000'001};
    const uint64_t no_zone[] = {~uint64_t{0}};
    const int16_t five_digits[] = {10'000};
    const duckdb_hugeint many_digits[] = {{0, std::numeric_limits<int64_t>::max()}};
    const DuckDBBytes no_bits[] = {{"\x04", 1}};
    const DuckDBBytes nowhere[] = {{nullptr, 1}};
    const std::pair<const char*, DuckDBColumnArray> refused[] = {
        {"TIME", ArrayOf(DUCKDB_TYPE_TIME, late)},
        {"TIME_NS", ArrayOf(DUCKDB_TYPE_TIME_NS, no_zone)},
        {"TIMETZ", ArrayOf(DUCKDB_TYPE_TIME_TZ, no_zone)},
        {"DECIMAL(4,2)", Decimal(4, five_digits)},
        {"DECIMAL(38,2)", Decimal(38, many_digits)},
        {"BIT", ArrayOf(DUCKDB_TYPE_BIT, no_bits)},
        {"BLOB", ArrayOf(DUCKDB_TYPE_BLOB, nowhere)},
        // Not even on the way to another type.
        {"VARCHAR", ArrayOf(DUCKDB_TYPE_TIME, late)},
    };
    for (const auto& [type, array] : refused) {
        Direct(std::string("CREATE OR REPLACE TABLE t (cell ") + type + ")");
        const Appender appender = Open("t");
        EXPECT_EQ(Catch([&, &elements = array] { appender->AppendColumns(&elements, 1, 1); }),
                  MemoryError("Row 1, column \"cell\": The value is not valid for its type"))
            << type;
    }
}

TEST_F(AppenderTest, RefusesArraysThatItCannotRead) {
    Direct("CREATE TABLE t (i INTEGER)");
    const Appender appender = Open("t");
    const int32_t numbers[] = {1};
    DuckDBColumnArray array = ArrayOf(DUCKDB_TYPE_LIST, numbers);
    EXPECT_EQ(Catch([&] { appender->AppendColumns(&array, 1, 1); }),
              MemoryError("Row 1, column \"i\": An array cannot have the type 24"));
    array = Decimal(39, numbers);
    EXPECT_EQ(Catch([&] { appender->AppendColumns(&array, 1, 1); }),
              MemoryError("Row 1, column \"i\": An array cannot have the type 19"));
    array = ArrayOf<int32_t>(DUCKDB_TYPE_INTEGER, nullptr);
    EXPECT_EQ(Catch([&] { appender->AppendColumns(&array, 1, 1); }),
              MemoryError("Row 1, column \"i\": The array has no elements"));
    EXPECT_EQ(Catch([&] { appender->AppendColumns(&array, 2, 1); }),
              MemoryError("Row 1: 2 arrays for 1 columns"));
    appender->AppendColumns(&array, 1, 0);
    appender->Close();
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "0");
}

/** More rows than are stored at a time, all with the same text. */
struct ManyRows {
    static constexpr uint64_t kCount = 300'000;

    explicit ManyRows(std::string_view text) : texts(kCount, BytesOf(text)) {
        for (uint64_t i = 0; i < kCount; ++i) {
            numbers.push_back(static_cast<int64_t>(i));
        }
    }
    void AppendTo(const Appender& appender) const {
        const DuckDBColumnArray columns[] = {ArrayOf(DUCKDB_TYPE_BIGINT, numbers.data()),
                                             ArrayOf(DUCKDB_TYPE_VARCHAR, texts.data())};
        appender->AppendColumns(columns, 2, kCount);
    }

    std::vector<int64_t> numbers;
    std::vector<DuckDBBytes> texts;
};

TEST_F(AppenderTest, KeepsTheRowsBeforeAnElementOfManyRows) {
    Direct("CREATE TABLE t (i BIGINT, s VARCHAR)");
    ManyRows rows("text");
    // In the second of the parts that are stored at a time.
    rows.texts[200'000] = BytesOf("\xFF");
    const Appender appender = Open("t");
    EXPECT_EQ(Catch([&] { rows.AppendTo(appender); }),
              MemoryError("Row 200001, column \"s\": The text is not valid UTF-8"));
    EXPECT_EQ(appender->get_RowCount(), 200'000u);
    EXPECT_EQ(appender->get_StoredRowCount() + appender->get_PendingRowCount(), 200'000u);
    appender->Close();
    EXPECT_EQ(Direct("SELECT count(*), max(i), sum(rowid - i), min(s), max(s) FROM t"),
              (Table{{"200000", "199999", "0", "text", "text"}}));
}

TEST_F(AppenderTest, NamesTheRowOfManyThatAConstraintRefuses) {
    for (const uint64_t duplicate : {uint64_t{77'777}, uint64_t{130'000}}) {
        Direct("CREATE OR REPLACE TABLE t (i BIGINT PRIMARY KEY, s VARCHAR)");
        ManyRows rows("text");
        rows.numbers[duplicate] = 5;
        const Appender appender = Open("t");
        const Thrown thrown = Catch([&] { rows.AppendTo(appender); });
        EXPECT_EQ(thrown.message.find("Row " + std::to_string(duplicate + 1) + ": Constraint Error: "), 0u)
            << thrown.message;
        const uint64_t stored = appender->get_StoredRowCount();
        EXPECT_EQ(stored > 0, duplicate == 130'000);
        EXPECT_EQ(appender->get_PendingRowCount(), 0u);
        appender->AppendRow(Row({LLong(-1), Str("last")}));
        appender->Close();
        EXPECT_EQ(Scalar("SELECT count(*) FROM t"), std::to_string(stored + 1));
    }
}

TEST_F(AppenderTest, OfOneTransactionStoresNothingOfManyRowsAfterAFailure) {
    Direct("CREATE TABLE t (i BIGINT CHECK (i <> 250000), s VARCHAR)");
    const Appender appender = Open("t", true);
    const ManyRows rows("text");
    Catch([&] {
        rows.AppendTo(appender);
        appender->Commit();
    });
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "0");
    EXPECT_EQ(appender->get_StoredRowCount(), 0u);
}

TEST_F(AppenderTest, StoresColumnsWhoseTextsTakeMuchMemory) {
    Direct("CREATE TABLE t (i BIGINT, s VARCHAR)");
    const Appender appender = Open("t");
    // 122,880 of them would take 120 MB.
    ManyRows(std::string(1000, 'x')).AppendTo(appender);
    appender->Close();
    EXPECT_EQ(appender->get_StoredRowCount(), ManyRows::kCount);
    EXPECT_EQ(Direct("SELECT count(*), sum(rowid - i), sum(length(s)) FROM t"),
              (Table{{"300000", "0", "300000000"}}));
}

}  // namespace
}  // namespace mduckdb::test
