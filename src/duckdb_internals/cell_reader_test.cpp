#include "duckdb_internals/cell_reader.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <random>

#include "duckdb_internals/value_guard.h"
#include "support/sample_values.h"
#include "support/test_engine.h"

namespace mduckdb {
namespace {

using Kind = Cell::Kind;

/** A cell that owns its bytes; numbers as the bits that they fill. */
struct PlainCell {
    Kind kind = Kind::null;
    uint64_t number = 0;
    std::string bytes;

    friend bool operator==(const PlainCell&, const PlainCell&) = default;
    friend std::ostream& operator<<(std::ostream& out, const PlainCell& cell) {
        return out << "kind " << static_cast<int>(cell.kind) << " number " << cell.number << " bytes '"
                   << cell.bytes << "'";
    }
};

uint64_t BitsOf(const Cell& cell) {
    switch (cell.kind) {
        case Kind::boolean:
            return cell.number.boolean ? 1 : 0;
        case Kind::int16:
            return static_cast<uint64_t>(cell.number.int16);
        case Kind::int32:
            return static_cast<uint64_t>(cell.number.int32);
        case Kind::int64:
            return static_cast<uint64_t>(cell.number.int64);
        case Kind::uint8:
            return cell.number.uint8;
        case Kind::uint16:
            return cell.number.uint16;
        case Kind::uint32:
            return cell.number.uint32;
        case Kind::uint64:
            return cell.number.uint64;
        case Kind::real32:
            return std::bit_cast<uint32_t>(cell.number.real32);
        case Kind::real64:
            return std::bit_cast<uint64_t>(cell.number.real64);
        default:
            return 0;
    }
}

PlainCell FastCell(CellReader& reader, idx_t column, idx_t row) {
    const Cell cell = reader.Read(column, row);
    return {cell.kind, BitsOf(cell), std::string(cell.bytes)};
}

std::string BlobOf(duckdb_value value) {
    duckdb_blob blob = duckdb_get_blob(value);
    std::string bytes(static_cast<char*>(blob.data), blob.size);
    duckdb_free(blob.data);
    return bytes;
}

/** The same by way of a value and DuckDB's getters. */
PlainCell StockCell(duckdb_data_chunk chunk, idx_t column, idx_t row) {
    ValueHolder holder(duckdb_data_chunk_get_value(chunk, column, row));
    duckdb_value value = holder.get();
    if (value == nullptr || duckdb_is_null_value(value)) {
        return {};
    }
    if (!IsReadable(value)) {
        return {Kind::text, 0, ""};
    }
    const duckdb_type type = duckdb_get_type_id(duckdb_get_value_type(value));
    static const std::map<duckdb_type, std::function<PlainCell(duckdb_value)>> kGetters = {
        {DUCKDB_TYPE_BOOLEAN,
         [](auto v) {
             return PlainCell{Kind::boolean, duckdb_get_bool(v), {}};
         }},
        {DUCKDB_TYPE_TINYINT,
         [](auto v) {
             return PlainCell{Kind::int16, uint64_t(duckdb_get_int16(v)), {}};
         }},
        {DUCKDB_TYPE_SMALLINT,
         [](auto v) {
             return PlainCell{Kind::int16, uint64_t(duckdb_get_int16(v)), {}};
         }},
        {DUCKDB_TYPE_INTEGER,
         [](auto v) {
             return PlainCell{Kind::int32, uint64_t(duckdb_get_int32(v)), {}};
         }},
        {DUCKDB_TYPE_BIGINT,
         [](auto v) {
             return PlainCell{Kind::int64, uint64_t(duckdb_get_int64(v)), {}};
         }},
        {DUCKDB_TYPE_UTINYINT,
         [](auto v) {
             return PlainCell{Kind::uint8, duckdb_get_uint8(v), {}};
         }},
        {DUCKDB_TYPE_USMALLINT,
         [](auto v) {
             return PlainCell{Kind::uint16, duckdb_get_uint16(v), {}};
         }},
        {DUCKDB_TYPE_UINTEGER,
         [](auto v) {
             return PlainCell{Kind::uint32, duckdb_get_uint32(v), {}};
         }},
        {DUCKDB_TYPE_UBIGINT,
         [](auto v) {
             return PlainCell{Kind::uint64, duckdb_get_uint64(v), {}};
         }},
        {DUCKDB_TYPE_FLOAT,
         [](auto v) {
             return PlainCell{Kind::real32, std::bit_cast<uint32_t>(duckdb_get_float(v)), {}};
         }},
        {DUCKDB_TYPE_DOUBLE,
         [](auto v) {
             return PlainCell{Kind::real64, std::bit_cast<uint64_t>(duckdb_get_double(v)), {}};
         }},
        {DUCKDB_TYPE_DECIMAL,
         [](auto v) {
             return PlainCell{Kind::real64, std::bit_cast<uint64_t>(duckdb_get_double(v)), {}};
         }},
        {DUCKDB_TYPE_BLOB,
         [](auto v) {
             return PlainCell{Kind::blob, 0, BlobOf(v)};
         }},
        {DUCKDB_TYPE_VARIANT,
         [](auto) {
             return PlainCell{Kind::variant, 0, {}};
         }},
    };
    if (const auto getter = kGetters.find(type); getter != kGetters.end()) {
        return getter->second(value);
    }
    return {Kind::text, 0, TextOf(value).value_or("")};
}

void ExpectSameCells(duckdb_data_chunk chunk, CellReader& reader) {
    reader.Bind(chunk);
    ASSERT_EQ(reader.get_RowCount(), duckdb_data_chunk_get_size(chunk));
    ASSERT_EQ(reader.get_ColumnCount(), duckdb_data_chunk_get_column_count(chunk));
    for (idx_t row = 0; row < reader.get_RowCount(); ++row) {
        for (idx_t column = 0; column < reader.get_ColumnCount(); ++column) {
            ASSERT_EQ(FastCell(reader, column, row), StockCell(chunk, column, row))
                << "column " << column << " row " << row;
        }
    }
}

/** Compares every chunk of the query's result; gives the number of rows. */
idx_t ExpectSameRows(TestEngine& engine, const std::string& sql) {
    SCOPED_TRACE(sql);
    ResultHolder result = engine.Query(sql);
    CellReader reader;
    idx_t rows = 0;
    while (ChunkHolder chunk{duckdb_fetch_chunk(*result)}) {
        ExpectSameCells(chunk.get(), reader);
        rows += reader.get_RowCount();
    }
    return rows;
}

TEST(CellReader, EveryTypeReadsAsThroughDuckDBsOwnCalls) {
    TestEngine engine;
    for (const auto& expression : get_SampleExpressions()) {
        EXPECT_EQ(ExpectSameRows(engine, "SELECT " + expression), 1U);
    }
    for (const auto& expression : get_VariantExpressions()) {
        EXPECT_EQ(ExpectSameRows(engine, "SELECT " + expression), 1U);
    }
}

TEST(CellReader, RowsOfMixedValuesAndNullsReadAsThroughDuckDBsOwnCalls) {
    TestEngine engine;
    const idx_t rows = ExpectSameRows(engine, R"(
        SELECT i::INTEGER, (i * 1.37)::DOUBLE, i * 1000000007, 'row ' || i, (i % 300)::SMALLINT,
               repeat('x', (i % 40)::INTEGER), 'x'::BLOB || i::VARCHAR::BLOB, i::HUGEINT * i,
               DATE '2000-01-01' + i::INTEGER, TIMESTAMP '2000-01-01' + INTERVAL (i) SECOND,
               (i / 3)::DECIMAL(18, 6), [i, NULL], {'a': i}, (i % 2 = 0),
               CASE i % 3 WHEN 0 THEN 'a' ELSE 'b' END::ENUM('a', 'b')
        FROM (SELECT CASE WHEN range % 7 = 0 THEN NULL ELSE range END AS i FROM range(5000)))");
    EXPECT_EQ(rows, 5000U);
}

TEST(CellReader, DecimalsOfEveryWidthAreTheDoublesOfDuckDBsCast) {
    TestEngine engine;
    std::mt19937_64 random(20);
    for (int width = 1; width <= 38; ++width) {
        for (int scale : {0, 1, width / 2, width - 1, width}) {
            std::string sql = "SELECT unnest([";
            for (int i = 0; i < 40; ++i) {
                std::string digits(i % 2 == 0 ? "-" : "");
                const auto length = static_cast<std::size_t>(
                    i < 20 ? width : std::uniform_int_distribution<int>(1, width)(random));
                for (std::size_t d = 0; d < length; ++d) {
                    digits += i < 2 ? '9' : static_cast<char>('0' + random() % 10);
                }
                if (scale > 0) {
                    const std::size_t sign = i % 2 == 0 ? 1 : 0;
                    while (digits.size() - sign < static_cast<std::size_t>(scale) + 1) {
                        digits.insert(sign, "0");
                    }
                    digits.insert(digits.size() - static_cast<std::size_t>(scale), ".");
                }
                sql += "'" + digits + "', ";
            }
            sql += "NULL]::DECIMAL(" + std::to_string(width) + "," + std::to_string(scale) + ")[])";
            ASSERT_EQ(ExpectSameRows(engine, sql), 41U);
        }
    }
}

TEST(CellReader, NestedColumnsReadAsThroughDuckDBsOwnCalls) {
    TestEngine engine;
    ExpectSameRows(engine, R"(
        SELECT CASE i % 5 WHEN 0 THEN NULL WHEN 1 THEN [] ELSE [i, NULL, i + 1] END,
               {'a': i, 'b': 'x' || chr(0) || i}, [i, i]::BIGINT[2], MAP {i: [i]}, [[i], []],
               CASE i % 3 WHEN 0 THEN i::UNION(num BIGINT, txt VARCHAR) WHEN 1 THEN NULL
                    ELSE 'x'::UNION(num BIGINT, txt VARCHAR) END,
               [i::DECIMAL(9, 1)], {'t': '12:00:00'::TIME}, [i::VARIANT], [{'a': i, 'b': [NULL, 'y']}]
        FROM range(3000) t(i))");
}

TEST(CellReader, EnumsOfEveryWidthReadAsTheirTexts) {
    TestEngine engine;
    for (const int size : {200, 300, 70000}) {
        engine.Query("CREATE OR REPLACE TYPE many AS ENUM (SELECT 'a longer entry ' || range FROM range(" +
                     std::to_string(size) + "))");
        ExpectSameRows(engine, "SELECT ('a longer entry ' || " + std::to_string(size - 1) + " )::many");
    }
}

TEST(CellReader, TextsAreReadWhereTheyLie) {
    TestEngine engine;
    ResultHolder result = engine.Query("SELECT repeat('long ', 100), 'short'");
    ChunkHolder chunk(duckdb_fetch_chunk(*result));
    CellReader reader;
    reader.Bind(chunk.get());
    for (idx_t column = 0; column < 2; ++column) {
        auto* text = static_cast<duckdb_string_t*>(
            duckdb_vector_get_data(duckdb_data_chunk_get_vector(chunk.get(), column)));
        EXPECT_EQ(reader.Read(column, 0).bytes.data(), duckdb_string_t_data(text));
    }
}

TEST(CellReader, ReadingOneCellAgainAndAgainHoldsNoGrowingMemory) {
    TestEngine engine;
    ResultHolder result = engine.Query("SELECT '2024-01-31 12:34:56.789012'::TIMESTAMP");
    ChunkHolder chunk(duckdb_fetch_chunk(*result));
    CellReader reader;
    reader.Bind(chunk.get());
    for (int i = 0; i < 100000; ++i) {
        ASSERT_EQ(reader.Read(0, 0).bytes, "2024-01-31 12:34:56.789012");
    }
}

TEST(CellReader, OutsideTheChunkEveryCellIsNull) {
    TestEngine engine;
    CellReader reader;
    EXPECT_EQ(reader.Read(0, 0).kind, Kind::null);
    EXPECT_FALSE(reader.TakeValue(0, 0));
    EXPECT_EQ(reader.get_RowCount(), 0U);
    ResultHolder result = engine.Query("SELECT 1");
    ChunkHolder chunk(duckdb_fetch_chunk(*result));
    reader.Bind(chunk.get());
    EXPECT_EQ(reader.Read(0, 0).kind, Kind::int32);
    EXPECT_TRUE(reader.TakeValue(0, 0));
    EXPECT_EQ(reader.Read(0, 1).kind, Kind::null);
    EXPECT_EQ(reader.Read(1, 0).kind, Kind::null);
    EXPECT_EQ(reader.Read(std::numeric_limits<idx_t>::max(), 0).kind, Kind::null);
    EXPECT_EQ(reader.Read(0, std::numeric_limits<idx_t>::max()).kind, Kind::null);
    EXPECT_FALSE(reader.TakeValue(0, 1));
    reader.Bind(nullptr);
    EXPECT_EQ(reader.get_ColumnCount(), 0U);
    EXPECT_EQ(reader.Read(0, 0).kind, Kind::null);
}

/** A chunk of one column, flat, with room for 2048 rows. */
class OneColumn {
  public:
    explicit OneColumn(duckdb_logical_type type, idx_t rows) : chunk_(duckdb_create_data_chunk(&type, 1)) {
        duckdb_data_chunk_set_size(chunk_.get(), rows);
    }
    static OneColumn OfType(duckdb_type type, idx_t rows) {
        LogicalTypeHolder logical(duckdb_create_logical_type(type));
        return OneColumn(logical.get(), rows);
    }
    duckdb_data_chunk get() const { return chunk_.get(); }
    duckdb_vector get_Vector() const { return duckdb_data_chunk_get_vector(chunk_.get(), 0); }
    template <class T>
    void Set(std::initializer_list<T> numbers) {
        std::copy(numbers.begin(), numbers.end(), static_cast<T*>(duckdb_vector_get_data(get_Vector())));
    }

  private:
    ChunkHolder chunk_;
};

std::vector<PlainCell> ReadAll(const OneColumn& column) {
    CellReader reader;
    ExpectSameCells(column.get(), reader);
    std::vector<PlainCell> cells;
    for (idx_t row = 0; row < reader.get_RowCount(); ++row) {
        cells.push_back(FastCell(reader, 0, row));
    }
    return cells;
}

const PlainCell kEmptyText{Kind::text, 0, ""};

TEST(CellReader, DictionaryAndConstantColumnsReadLikeFlatOnes) {
    OneColumn column = OneColumn::OfType(DUCKDB_TYPE_INTEGER, 4);
    column.Set<int32_t>({10, 20, 30, 40});
    duckdb_selection_vector selection = duckdb_create_selection_vector(4);
    sel_t* positions = duckdb_selection_vector_get_data_ptr(selection);
    positions[0] = 3, positions[1] = 0, positions[2] = 3, positions[3] = 1;
    duckdb_slice_vector(column.get_Vector(), selection, 4);
    duckdb_destroy_selection_vector(selection);
    const auto cells = ReadAll(column);
    EXPECT_EQ(cells[0], (PlainCell{Kind::int32, 40, ""}));
    EXPECT_EQ(cells[1], (PlainCell{Kind::int32, 10, ""}));
    EXPECT_EQ(cells[2], (PlainCell{Kind::int32, 40, ""}));
    EXPECT_EQ(cells[3], (PlainCell{Kind::int32, 20, ""}));

    OneColumn constant = OneColumn::OfType(DUCKDB_TYPE_VARCHAR, 3);
    ValueHolder value(duckdb_create_varchar("the same in every row"));
    duckdb_vector_reference_value(constant.get_Vector(), value.get());
    for (const auto& cell : ReadAll(constant)) {
        EXPECT_EQ(cell, (PlainCell{Kind::text, 0, "the same in every row"}));
    }
}

TEST(CellReader, TimesOutsideTheDayAreEmptyTexts) {
    constexpr int64_t kDay = int64_t{86'400} * 1'000'000;
    OneColumn time = OneColumn::OfType(DUCKDB_TYPE_TIME, 4);
    time.Set<int64_t>({-1, std::numeric_limits<int64_t>::max(), kDay, kDay + 1});
    EXPECT_EQ(ReadAll(time),
              (std::vector<PlainCell>{kEmptyText, kEmptyText, {Kind::text, 0, "24:00:00"}, kEmptyText}));

    OneColumn nanos = OneColumn::OfType(DUCKDB_TYPE_TIME_NS, 3);
    nanos.Set<int64_t>({-1, std::numeric_limits<int64_t>::max(), kDay * 1000 + 1});
    EXPECT_EQ(ReadAll(nanos), std::vector<PlainCell>(3, kEmptyText));

    OneColumn zoned = OneColumn::OfType(DUCKDB_TYPE_TIME_TZ, 3);
    zoned.Set<uint64_t>({~uint64_t{0}, 0x00FFFFFF, uint64_t{kDay + 1} << 24});
    EXPECT_EQ(ReadAll(zoned), std::vector<PlainCell>(3, kEmptyText));
}

TEST(CellReader, DecimalsWithTooManyDigitsAreEmptyTexts) {
    LogicalTypeHolder narrow(duckdb_create_decimal_type(3, 1));
    OneColumn column(narrow.get(), 4);
    column.Set<int16_t>({999, 1000, -1000, -999});
    const auto cells = ReadAll(column);
    EXPECT_EQ(cells[0], (PlainCell{Kind::real64, std::bit_cast<uint64_t>(99.9), ""}));
    EXPECT_EQ(cells[1], kEmptyText);
    EXPECT_EQ(cells[2], kEmptyText);
    EXPECT_EQ(cells[3], (PlainCell{Kind::real64, std::bit_cast<uint64_t>(-99.9), ""}));

    LogicalTypeHolder wide(duckdb_create_decimal_type(38, 0));
    OneColumn wide_column(wide.get(), 2);
    wide_column.Set<duckdb_hugeint>(
        {{0, std::numeric_limits<int64_t>::min()}, {~uint64_t{0}, std::numeric_limits<int64_t>::max()}});
    EXPECT_EQ(ReadAll(wide_column), std::vector<PlainCell>(2, kEmptyText));
}

TEST(CellReader, TimestampsThatHaveNoTextAreEmptyTexts) {
    for (const duckdb_type type : {DUCKDB_TYPE_TIMESTAMP, DUCKDB_TYPE_TIMESTAMP_TZ, DUCKDB_TYPE_TIMESTAMP_S,
                                   DUCKDB_TYPE_TIMESTAMP_MS, DUCKDB_TYPE_TIMESTAMP_NS}) {
        constexpr int64_t kLargest = std::numeric_limits<int64_t>::max();
        OneColumn column = OneColumn::OfType(type, 5);
        column.Set<int64_t>({-kLargest - 1, -kLargest, kLargest, kLargest - 1, 0});
        const auto cells = ReadAll(column);
        EXPECT_EQ(cells[1].bytes, "-infinity");
        EXPECT_EQ(cells[2].bytes, "infinity");
        EXPECT_EQ(cells[4].bytes.substr(0, 19), "1970-01-01 00:00:00");
    }
}

TEST(CellReader, ANestedRowWithoutATextLeavesTheOthersTheirs) {
    LogicalTypeHolder seconds(duckdb_create_logical_type(DUCKDB_TYPE_TIMESTAMP_S));
    LogicalTypeHolder pair(duckdb_create_array_type(seconds.get(), 1));
    OneColumn column(pair.get(), 3);
    auto* numbers =
        static_cast<int64_t*>(duckdb_vector_get_data(duckdb_array_vector_get_child(column.get_Vector())));
    numbers[0] = 0;
    numbers[1] = std::numeric_limits<int64_t>::max() - 1;
    numbers[2] = 86400;
    EXPECT_EQ(ReadAll(column), (std::vector<PlainCell>{{Kind::text, 0, "[1970-01-01 00:00:00]"},
                                                       kEmptyText,
                                                       {Kind::text, 0, "[1970-01-02 00:00:00]"}}));
}

TEST(CellReader, EveryDateHasItsText) {
    OneColumn column = OneColumn::OfType(DUCKDB_TYPE_DATE, 5);
    constexpr int32_t kLargest = std::numeric_limits<int32_t>::max();
    column.Set<int32_t>({-kLargest - 1, -kLargest, kLargest, kLargest - 1, -1});
    const auto cells = ReadAll(column);
    EXPECT_EQ(cells[2].bytes, "infinity");
    EXPECT_EQ(cells[4].bytes, "1969-12-31");
}

TEST(CellReader, TextThatIsNotUtf8IsReadUnchanged) {
    OneColumn column = OneColumn::OfType(DUCKDB_TYPE_VARCHAR, 2);
    const std::string texts[] = {"a\xFF\xC3", std::string(40, '\x80')};
    duckdb_vector_assign_string_element_len(column.get_Vector(), 0, "x", 1);
    auto* cells = static_cast<duckdb_string_t*>(duckdb_vector_get_data(column.get_Vector()));
    for (std::size_t row = 0; row < 2; ++row) {
        // Assigning would check the text, so it is put there as a damaged file would.
        cells[row].value.pointer.length = static_cast<uint32_t>(texts[row].size());
        if (texts[row].size() <= 12) {
            std::memcpy(cells[row].value.inlined.inlined, texts[row].data(), texts[row].size());
        } else {
            cells[row].value.pointer.ptr = const_cast<char*>(texts[row].data());
        }
    }
    const auto read = ReadAll(column);
    EXPECT_EQ(read[0].bytes, texts[0]);
    EXPECT_EQ(read[1].bytes, texts[1]);
}

}  // namespace
}  // namespace mduckdb
