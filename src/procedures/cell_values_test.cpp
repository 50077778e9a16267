#include "procedures/cell_values.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "support/fake_host.h"

namespace mduckdb {
namespace {

using test::FakeHost;
using test::FakeValue;

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kDay = 86'400'000'000;

class CellPackerTest : public ::testing::Test {
  protected:
    /** The value that is read from a cell with exactly this memory, NULL for none. Read from the second of
        two rows, in memory of exactly that size, so that AddressSanitizer detects a read outside it. */
    template <class T>
    std::string Read(std::int32_t type, const T& cell) {
        const std::vector<T> cells{cell, cell};
        const CellPacker pack = ChooseCellPacker(type, GetCellStorage(type));
        const mirona_value value = pack(host_.get_Api(), host_.get_Call(), cells.data(), 1);
        return value != nullptr ? static_cast<FakeValue*>(value)->text : "NULL";
    }

    FakeHost host_;
};

TEST_F(CellPackerTest, IntegersAreExtendedByTheirSign) {
    EXPECT_EQ("-128", Read<std::int8_t>(DUCKDB_TYPE_TINYINT, -128));
    EXPECT_EQ("-32768", Read<std::int16_t>(DUCKDB_TYPE_SMALLINT, -32768));
    EXPECT_EQ("-1", Read<std::int32_t>(DUCKDB_TYPE_INTEGER, -1));
    EXPECT_EQ(std::to_string(kMin), Read<std::int64_t>(DUCKDB_TYPE_BIGINT, kMin));
    EXPECT_EQ("255", Read<std::uint8_t>(DUCKDB_TYPE_UTINYINT, 255));
    EXPECT_EQ("65535", Read<std::uint16_t>(DUCKDB_TYPE_USMALLINT, 65535));
    EXPECT_EQ("4294967295", Read<std::uint32_t>(DUCKDB_TYPE_UINTEGER, 4294967295));
    EXPECT_EQ("18446744073709551615", Read<std::uint64_t>(DUCKDB_TYPE_UBIGINT, ~std::uint64_t{0}));
}

TEST_F(CellPackerTest, ABooleanIsZeroOrOneForAnyByte) {
    EXPECT_EQ("0", Read<std::uint8_t>(DUCKDB_TYPE_BOOLEAN, 0));
    EXPECT_EQ("1", Read<std::uint8_t>(DUCKDB_TYPE_BOOLEAN, 1));
    EXPECT_EQ("1", Read<std::uint8_t>(DUCKDB_TYPE_BOOLEAN, 255));
}

TEST_F(CellPackerTest, ATimestampIsPackedAsDuckDBSplitsIt) {
    for (const std::int64_t micros : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{1'710'508'455'678'901},
                                      -kDay, -kDay - 1, kMax - 1, -(kMax / kDay) * kDay}) {
        const duckdb_timestamp_struct parts = duckdb_from_timestamp({micros});
        const auto date = static_cast<std::uint32_t>(parts.date.year) << 9 |
                          static_cast<std::uint32_t>(parts.date.month) << 5 |
                          static_cast<std::uint32_t>(parts.date.day);
        const auto time = static_cast<std::uint32_t>(parts.time.hour) << 27 |
                          static_cast<std::uint32_t>(parts.time.min) << 21 |
                          static_cast<std::uint32_t>(parts.time.sec) << 15 |
                          static_cast<std::uint32_t>(parts.time.micros / 1000);
        EXPECT_EQ(std::to_string(std::uint64_t{date} << 32 | time), Read(DUCKDB_TYPE_TIMESTAMP, micros))
            << micros;
    }
}

TEST_F(CellPackerTest, ATimestampThatDuckDBCannotSplitIsNull) {
    for (const std::int64_t micros : {kMax, -kMax, kMin, -(kMax / kDay) * kDay - 1}) {
        EXPECT_ANY_THROW(duckdb_from_timestamp({micros})) << micros;
        EXPECT_EQ("NULL", Read(DUCKDB_TYPE_TIMESTAMP, micros)) << micros;
    }
}

TEST_F(CellPackerTest, AnInvalidDateOrTimeIsNull) {
    for (const std::int32_t days : {0x7FFFFFFF, -0x7FFFFFFF, -0x7FFFFFFF - 1}) {
        EXPECT_EQ("NULL", Read(DUCKDB_TYPE_DATE, days));
    }
    for (const std::int64_t micros : {std::int64_t{-1}, kDay + 1, kMax, kMin}) {
        EXPECT_EQ("NULL", Read(DUCKDB_TYPE_TIME, micros));
    }
    EXPECT_EQ(std::to_string(24u << 27), Read(DUCKDB_TYPE_TIME, kDay));
}

duckdb_string_t MakeString(const char* text, std::uint32_t length) {
    duckdb_string_t cell{};
    cell.value.inlined.length = length;
    if (length <= 12) {
        std::memcpy(cell.value.inlined.inlined, text, length);
    } else {
        cell.value.pointer.ptr = const_cast<char*>(text);
    }
    return cell;
}

TEST_F(CellPackerTest, TextsAndBlobsAreReadShortAndLongWithTheirNuls) {
    using namespace std::string_literals;
    EXPECT_EQ("", Read(DUCKDB_TYPE_VARCHAR, MakeString("", 0)));
    EXPECT_EQ("twelve bytes", Read(DUCKDB_TYPE_VARCHAR, MakeString("twelve bytes", 12)));
    EXPECT_EQ("thirteen byte", Read(DUCKDB_TYPE_VARCHAR, MakeString("thirteen byte", 13)));
    EXPECT_EQ("a\0b"s, Read(DUCKDB_TYPE_BLOB, MakeString("a\0b", 3)));
}

/** Whether reading a column stored as `stored` as its normalised type returns a value. */
bool IsReadable(std::int32_t stored) {
    FakeHost host;
    const std::int32_t normalised = NormalizeDuckDBType(stored);
    const CellPacker pack = ChooseCellPacker(normalised, GetCellStorage(stored));
    const duckdb_string_t memory[2]{};
    return pack(host.get_Api(), host.get_Call(), memory, 0) != nullptr;
}

TEST(ChooseCellPacker, ReadsForeignTypesOnlyInsideTheirMemoryAndOnlyTextAsText) {
    for (const std::int32_t type : {20, 21, 22, 31, 30, 39, 29, 35, 40}) {
        EXPECT_TRUE(IsReadable(type)) << type;
    }
    for (const std::int32_t type : {0, 15, 16, 23, 24, 25, 26, 27, 28, 32, 33, 34, 36, 37, 38, 41, 42, -1}) {
        EXPECT_FALSE(IsReadable(type)) << type;
    }
}

TEST(ChooseCellPacker, ReadsADecimalAsADoubleWhereItsNumberIsAsWideAsOne) {
    FakeHost host;
    const std::int64_t memory[4]{};
    const auto is_readable = [&](std::int32_t internal) {
        return ChooseCellPacker(DUCKDB_TYPE_DOUBLE, GetCellStorage(internal))(host.get_Api(), host.get_Call(),
                                                                              memory, 0) != nullptr;
    };
    EXPECT_FALSE(is_readable(DUCKDB_TYPE_SMALLINT));
    EXPECT_FALSE(is_readable(DUCKDB_TYPE_INTEGER));
    EXPECT_TRUE(is_readable(DUCKDB_TYPE_BIGINT));
    EXPECT_TRUE(is_readable(DUCKDB_TYPE_HUGEINT));
}

}  // namespace
}  // namespace mduckdb
