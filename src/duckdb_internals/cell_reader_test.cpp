#include "duckdb_internals/cell_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <random>

#include "duckdb_internals/value_guard.h"
#include "support/sample_values.h"
#include "support/test_engine.h"
#include "support/value_description.h"

namespace mduckdb {
namespace {

/** Replaces the conversion of the value inside. */
HostValue ConvertVariant(duckdb_value variant) {
    return variant == nullptr || duckdb_is_null_value(variant)
               ? MakeNullValue()
               : MakeStringValue("a VARIANT of " + TextOf(variant).value_or("nothing"));
}

class Reader : public CellReader {
  public:
    Reader() : CellReader(ConvertVariant) {}
    std::string Describe(idx_t column, idx_t row) { return mduckdb::Describe(Read(column, row).get()); }
};

constexpr const char* kNull = "Boolean NULL?";
constexpr const char* kEmptyText = "String ";

template <ValueFactory kFactory, auto kGetter>
HostValue ByGetter(duckdb_value value) {
    return MakeHostValue<kFactory>(kGetter(value));
}

HostValue ByBlob(duckdb_value value) {
    const duckdb_blob blob = duckdb_get_blob(value);
    const TextHolder owner(static_cast<char*>(blob.data));
    return MakeBinaryValue({owner.get(), blob.size});
}

/** The cell through a `duckdb_value` and DuckDB's getters. */
std::string StockCell(duckdb_data_chunk chunk, idx_t column, idx_t row) {
    static const std::map<duckdb_type, std::function<HostValue(duckdb_value)>> kGetters = {
        {DUCKDB_TYPE_BOOLEAN, ByGetter<nbx::CreateValueBoolean, duckdb_get_bool>},
        {DUCKDB_TYPE_TINYINT, ByGetter<nbx::CreateValueShort, duckdb_get_int16>},
        {DUCKDB_TYPE_SMALLINT, ByGetter<nbx::CreateValueShort, duckdb_get_int16>},
        {DUCKDB_TYPE_INTEGER, ByGetter<nbx::CreateValueLong, duckdb_get_int32>},
        {DUCKDB_TYPE_BIGINT, ByGetter<nbx::CreateValueLLong, duckdb_get_int64>},
        {DUCKDB_TYPE_UTINYINT, ByGetter<nbx::CreateValueByte, duckdb_get_uint8>},
        {DUCKDB_TYPE_USMALLINT, ByGetter<nbx::CreateValueUShort, duckdb_get_uint16>},
        {DUCKDB_TYPE_UINTEGER, ByGetter<nbx::CreateValueULong, duckdb_get_uint32>},
        {DUCKDB_TYPE_UBIGINT, ByGetter<nbx::CreateValueULLong, duckdb_get_uint64>},
        {DUCKDB_TYPE_FLOAT, ByGetter<nbx::CreateValueFloat, duckdb_get_float>},
        {DUCKDB_TYPE_DOUBLE, ByGetter<nbx::CreateValueDouble, duckdb_get_double>},
        {DUCKDB_TYPE_DECIMAL, ByGetter<nbx::CreateValueDouble, duckdb_get_double>},
        {DUCKDB_TYPE_BLOB, ByBlob},
        {DUCKDB_TYPE_VARIANT, ConvertVariant},
    };
    ValueHolder holder(duckdb_data_chunk_get_value(chunk, column, row));
    duckdb_value value = holder.get();
    if (value == nullptr || duckdb_is_null_value(value)) {
        return kNull;
    }
    if (!IsReadable(value)) {
        return kEmptyText;
    }
    const auto getter = kGetters.find(duckdb_get_type_id(duckdb_get_value_type(value)));
    return Describe(getter != kGetters.end() ? getter->second(value).get()
                                             : MakeStringValue(TextOf(value).value_or("")).get());
}

void ExpectSameCells(duckdb_data_chunk chunk, Reader& reader) {
    reader.Bind(chunk);
    ASSERT_EQ(reader.get_RowCount(), duckdb_data_chunk_get_size(chunk));
    const idx_t column_count = duckdb_data_chunk_get_column_count(chunk);
    for (idx_t row = 0; row < reader.get_RowCount(); ++row) {
        for (idx_t column = 0; column < column_count; ++column) {
            ASSERT_EQ(reader.Describe(column, row), StockCell(chunk, column, row))
                << "column " << column << " row " << row;
        }
    }
}

/** Compares every chunk of the query's result; returns the number of rows. */
idx_t ExpectSameRows(TestEngine& engine, const std::string& sql) {
    SCOPED_TRACE(sql);
    ResultHolder result = engine.Query(sql);
    Reader reader;
    idx_t rows = 0;
    while (ChunkHolder chunk{duckdb_fetch_chunk(*result)}) {
        ExpectSameCells(chunk.get(), reader);
        rows += reader.get_RowCount();
    }
    return rows;
}

TEST(ValueText, IsEmptyForANullHandleAndForNull) {
    EXPECT_EQ(ValueText(nullptr).get_View(), "");
    EXPECT_EQ(ValueText(ValueHolder(duckdb_create_null_value()).get()).get_View(), "");
}

TEST(ValueText, ReturnsTheTextThatDuckDBShows) {
    EXPECT_EQ(ValueText(ValueHolder(duckdb_create_date({19753})).get()).get_View(), "2024-01-31");
    EXPECT_EQ(ValueText(ValueHolder(duckdb_create_int64(-5)).get()).get_View(), "-5");
}

TEST(ValueText, KeepsNulCharacters) {
    const std::string text("a\0b", 3);
    const ValueHolder value(duckdb_create_varchar_length(text.data(), text.size()));
    EXPECT_EQ(ValueText(value.get()).get_View(), text);
}

TEST(ValueText, IsEmptyForNumbersThatTheirTypeDoesNotAllow) {
    EXPECT_EQ(ValueText(ValueHolder(duckdb_create_time({-1})).get()).get_View(), "");
    EXPECT_EQ(ValueText(ValueHolder(duckdb_create_time({INT64_MAX})).get()).get_View(), "");
    EXPECT_EQ(ValueText(ValueHolder(duckdb_create_time_ns({INT64_MAX})).get()).get_View(), "");
    EXPECT_EQ(ValueText(ValueHolder(duckdb_create_time({86'400'000'000})).get()).get_View(), "24:00:00");
}

TEST(ValueText, IsEmptyWhenDuckDBRefusesTheCast) {
    EXPECT_EQ(ValueText(ValueHolder(duckdb_create_timestamp_s({INT64_MAX - 1})).get()).get_View(), "");
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

TEST(CellReader, ReadingOneCellAgainAndAgainDoesNotGrowMemory) {
    TestEngine engine;
    ResultHolder result = engine.Query("SELECT '2024-01-31 12:34:56.789012'::TIMESTAMP");
    ChunkHolder chunk(duckdb_fetch_chunk(*result));
    Reader reader;
    reader.Bind(chunk.get());
    for (int i = 0; i < 100000; ++i) {
        ASSERT_EQ(reader.Describe(0, 0), "String 2024-01-31 12:34:56.789012");
    }
}

TEST(CellReader, HasTheCellsOfItsChunkAndNoOthers) {
    constexpr idx_t kLast = std::numeric_limits<idx_t>::max();
    TestEngine engine;
    Reader reader;
    EXPECT_FALSE(reader.HasCell(0, 0));
    ResultHolder result = engine.Query("SELECT 1");
    ChunkHolder chunk(duckdb_fetch_chunk(*result));
    reader.Bind(chunk.get());
    EXPECT_TRUE(reader.HasCell(0, 0));
    EXPECT_FALSE(reader.HasCell(0, 1));
    EXPECT_FALSE(reader.HasCell(1, 0));
    EXPECT_FALSE(reader.HasCell(kLast, 0));
    EXPECT_FALSE(reader.HasCell(0, kLast));
    reader.Bind(nullptr);
    EXPECT_FALSE(reader.HasCell(0, 0));
}

TEST(CellReader, HandsOverOneReference) {
    TestEngine engine;
    ResultHolder result = engine.Query("SELECT 1");
    ChunkHolder chunk(duckdb_fetch_chunk(*result));
    Reader reader;
    reader.Bind(chunk.get());
    EXPECT_EQ(reader.Read(0, 0)->get_RefsCount(), 1U);
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

std::vector<std::string> ReadAll(const OneColumn& column) {
    Reader reader;
    ExpectSameCells(column.get(), reader);
    std::vector<std::string> cells;
    for (idx_t row = 0; row < reader.get_RowCount(); ++row) {
        cells.push_back(reader.Describe(0, row));
    }
    return cells;
}

TEST(CellReader, DictionaryAndConstantColumnsReadLikeFlatOnes) {
    OneColumn column = OneColumn::OfType(DUCKDB_TYPE_INTEGER, 4);
    column.Set<int32_t>({10, 20, 30, 40});
    duckdb_selection_vector selection = duckdb_create_selection_vector(4);
    sel_t* positions = duckdb_selection_vector_get_data_ptr(selection);
    positions[0] = 3, positions[1] = 0, positions[2] = 3, positions[3] = 1;
    duckdb_slice_vector(column.get_Vector(), selection, 4);
    duckdb_destroy_selection_vector(selection);
    const auto cells = ReadAll(column);
    EXPECT_EQ(cells[0], "Long 40");
    EXPECT_EQ(cells[1], "Long 10");
    EXPECT_EQ(cells[2], "Long 40");
    EXPECT_EQ(cells[3], "Long 20");

    OneColumn constant = OneColumn::OfType(DUCKDB_TYPE_VARCHAR, 3);
    ValueHolder value(duckdb_create_varchar("the same in every row"));
    duckdb_vector_reference_value(constant.get_Vector(), value.get());
    for (const auto& cell : ReadAll(constant)) {
        EXPECT_EQ(cell, "String the same in every row");
    }
}

TEST(CellReader, TimesOutsideTheDayAreEmptyTexts) {
    constexpr int64_t kDay = int64_t{86'400} * 1'000'000;
    OneColumn time = OneColumn::OfType(DUCKDB_TYPE_TIME, 4);
    time.Set<int64_t>({-1, std::numeric_limits<int64_t>::max(), kDay, kDay + 1});
    EXPECT_EQ(ReadAll(time),
              (std::vector<std::string>{kEmptyText, kEmptyText, "String 24:00:00", kEmptyText}));

    OneColumn nanos = OneColumn::OfType(DUCKDB_TYPE_TIME_NS, 3);
    nanos.Set<int64_t>({-1, std::numeric_limits<int64_t>::max(), kDay * 1000 + 1});
    EXPECT_EQ(ReadAll(nanos), std::vector<std::string>(3, kEmptyText));

    OneColumn zoned = OneColumn::OfType(DUCKDB_TYPE_TIME_TZ, 3);
    zoned.Set<uint64_t>({~uint64_t{0}, 0x00FFFFFF, uint64_t{kDay + 1} << 24});
    EXPECT_EQ(ReadAll(zoned), std::vector<std::string>(3, kEmptyText));
}

TEST(CellReader, DecimalsWithMoreDigitsThanTheirWidthAreWhatDuckDBsGettersReturn) {
    constexpr int64_t kLargest = std::numeric_limits<int64_t>::max();
    const auto expect_doubles = [](OneColumn& column) {
        for (idx_t row = 0; row < duckdb_data_chunk_get_size(column.get()); ++row) {
            Reader reader;
            reader.Bind(column.get());
            const ValueHolder value(duckdb_data_chunk_get_value(column.get(), 0, row));
            EXPECT_EQ(reader.Describe(0, row),
                      Describe(MakeHostValue<nbx::CreateValueDouble>(duckdb_get_double(value.get())).get()))
                << row;
        }
    };
    LogicalTypeHolder narrow(duckdb_create_decimal_type(3, 1));
    OneColumn small(narrow.get(), 6);
    small.Set<int16_t>({999, 1000, -1000, -999, 32767, -32768});
    expect_doubles(small);
    LogicalTypeHolder middle(duckdb_create_decimal_type(18, 18));
    OneColumn large(middle.get(), 3);
    large.Set<int64_t>({kLargest, -kLargest - 1, 1});
    expect_doubles(large);
    LogicalTypeHolder wide(duckdb_create_decimal_type(36, 17));
    OneColumn huge(wide.get(), 2);
    huge.Set<duckdb_hugeint>({{~uint64_t{0}, kLargest}, {1, -kLargest - 1}});
    expect_doubles(huge);
}

TEST(CellReader, TheDecimalWithoutAnOppositeIsTheEmptyText) {
    LogicalTypeHolder type(duckdb_create_decimal_type(38, 0));
    OneColumn column(type.get(), 1);
    column.Set<duckdb_hugeint>({{0, std::numeric_limits<int64_t>::min()}});
    EXPECT_EQ(ReadAll(column), std::vector<std::string>(1, kEmptyText));
}

TEST(CellReader, TimestampsThatHaveNoTextAreEmptyTexts) {
    for (const duckdb_type type : {DUCKDB_TYPE_TIMESTAMP, DUCKDB_TYPE_TIMESTAMP_TZ, DUCKDB_TYPE_TIMESTAMP_S,
                                   DUCKDB_TYPE_TIMESTAMP_MS, DUCKDB_TYPE_TIMESTAMP_NS}) {
        constexpr int64_t kLargest = std::numeric_limits<int64_t>::max();
        OneColumn column = OneColumn::OfType(type, 5);
        column.Set<int64_t>({-kLargest - 1, -kLargest, kLargest, kLargest - 1, 0});
        const auto cells = ReadAll(column);
        EXPECT_EQ(cells[1], "String -infinity");
        EXPECT_EQ(cells[2], "String infinity");
        EXPECT_EQ(cells[4].substr(0, 26), "String 1970-01-01 00:00:00");
    }
}

TEST(CellReader, ANestedRowWithoutATextDoesNotAffectTheOthers) {
    LogicalTypeHolder seconds(duckdb_create_logical_type(DUCKDB_TYPE_TIMESTAMP_S));
    LogicalTypeHolder pair(duckdb_create_array_type(seconds.get(), 1));
    OneColumn column(pair.get(), 3);
    constexpr int64_t kSeconds[] = {0, std::numeric_limits<int64_t>::max() - 1, 86400};
    const duckdb_vector child = duckdb_array_vector_get_child(column.get_Vector());
    std::ranges::copy(kSeconds, static_cast<int64_t*>(duckdb_vector_get_data(child)));
    const auto text = [](const char* sql) { return "String " + TestEngine().QueryText(sql).value(); };
    EXPECT_EQ(ReadAll(column), (std::vector<std::string>{
                                   text("SELECT array_value(TIMESTAMP_S '1970-01-01')::VARCHAR"), kEmptyText,
                                   text("SELECT array_value(TIMESTAMP_S '1970-01-02')::VARCHAR")}));
}

TEST(CellReader, EveryDateHasItsText) {
    TestEngine engine;
    ExpectSameRows(engine, "SELECT DATE '0001-01-01' + 365 * i::INTEGER FROM range(10030) t(i)");
    OneColumn column = OneColumn::OfType(DUCKDB_TYPE_DATE, 9);
    constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
    column.Set<int32_t>({-kMax - 1, -kMax, kMax, kMax - 1, -1, -719163, -719162, 2932896, 2932897});
    const auto cells = ReadAll(column);
    EXPECT_EQ(cells[2], "String infinity");
    EXPECT_EQ(cells[4], "String 1969-12-31");
}

TEST(CellReader, ReplacesInvalidUtf8WithTheReplacementCharacter) {
    OneColumn column = OneColumn::OfType(DUCKDB_TYPE_VARCHAR, 2);
    const std::string texts[] = {"a\xFF\xC3", std::string(40, '\x80')};
    duckdb_vector_assign_string_element_len(column.get_Vector(), 0, "x", 1);
    auto* cells = static_cast<duckdb_string_t*>(duckdb_vector_get_data(column.get_Vector()));
    for (std::size_t row = 0; row < 2; ++row) {
        // Assigning would check the text, so it is written directly, as if read from a damaged file.
        cells[row].value.pointer.length = static_cast<uint32_t>(texts[row].size());
        if (texts[row].size() <= 12) {
            std::memcpy(cells[row].value.inlined.inlined, texts[row].data(), texts[row].size());
        } else {
            cells[row].value.pointer.ptr = const_cast<char*>(texts[row].data());
        }
    }
    const auto read = ReadAll(column);
    EXPECT_EQ(read[0], "String a\uFFFD\uFFFD");
    std::string replaced;
    for (int i = 0; i < 40; ++i) {
        replaced += "\uFFFD";
    }
    EXPECT_EQ(read[1], "String " + replaced);
}

}  // namespace
}  // namespace mduckdb
