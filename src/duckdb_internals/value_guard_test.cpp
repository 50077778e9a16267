#include "duckdb_internals/value_guard.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <limits>
#include <string_view>

#include "support/harmful_time.h"
#include "support/sample_values.h"
#include "support/test_engine.h"

namespace mduckdb {
namespace {

constexpr int64_t kSmallest = std::numeric_limits<int64_t>::min();
constexpr int64_t kLargest = std::numeric_limits<int64_t>::max();
constexpr int64_t kDay = int64_t{86'400} * 1'000'000;

duckdb_value MakeTime(int64_t micros) {
    return duckdb_create_time({micros});
}
duckdb_value MakeTimeNs(int64_t nanos) {
    return duckdb_create_time_ns({nanos});
}
duckdb_value MakeTimeTz(int64_t micros, int32_t offset) {
    return duckdb_create_time_tz_value(duckdb_create_time_tz(micros, offset));
}
duckdb_value MakeDecimal(uint8_t width, uint8_t scale, duckdb_hugeint number) {
    return duckdb_create_decimal({width, scale, number});
}
duckdb_value MakeBit(std::vector<uint8_t> bytes) {
    bytes.reserve(1);  // a valid pointer even for no bytes
    return duckdb_create_bit({bytes.data(), bytes.size()});
}

TEST(ValueGuard, EveryOrdinaryValueIsReadable) {
    TestEngine engine;
    for (const auto& expression : get_SampleExpressions()) {
        EXPECT_TRUE(IsReadable(engine.QueryValue("SELECT " + expression).get())) << expression;
    }
    for (const auto& expression : get_VariantExpressions()) {
        EXPECT_TRUE(IsReadable(engine.QueryValue("SELECT " + expression).get())) << expression;
    }
}

TEST(ValueGuard, NullHandlesAndNullValuesAreReadable) {
    EXPECT_TRUE(IsReadable(nullptr));
    EXPECT_TRUE(IsReadable(ValueHolder(duckdb_create_null_value()).get()));
}

TEST(ValueGuard, TimesReachFromMidnightToMidnight) {
    EXPECT_TRUE(IsValidTime(0));
    EXPECT_TRUE(IsValidTime(kDay));
    EXPECT_FALSE(IsValidTime(-1));
    EXPECT_FALSE(IsValidTime(kDay + 1));
    EXPECT_FALSE(IsValidTime(kSmallest));
    EXPECT_FALSE(IsValidTime(kLargest));
    EXPECT_TRUE(IsValidTimeNs(0));
    EXPECT_TRUE(IsValidTimeNs(kDay * 1000));
    EXPECT_FALSE(IsValidTimeNs(-1));
    EXPECT_FALSE(IsValidTimeNs(kDay * 1000 + 1));
    EXPECT_FALSE(IsValidTimeNs(kSmallest));
    EXPECT_FALSE(IsValidTimeNs(kLargest));
}

TEST(ValueGuard, ZoneOffsetsStayBelowSixteenHours) {
    constexpr int32_t kMost = 15 * 3600 + 59 * 60 + 59;
    EXPECT_TRUE(IsValidTimeTz(0, kMost));
    EXPECT_TRUE(IsValidTimeTz(kDay, -kMost));
    EXPECT_FALSE(IsValidTimeTz(0, kMost + 1));
    EXPECT_FALSE(IsValidTimeTz(0, -kMost - 1));
    EXPECT_FALSE(IsValidTimeTz(0, std::numeric_limits<int32_t>::min()));
    EXPECT_FALSE(IsValidTimeTz(-1, 0));
    EXPECT_FALSE(IsValidTimeTz(kDay + 1, 0));
}

TEST(ValueGuard, ThePackedFormOfAZonedTimeIsJudgedLikeItsParts) {
    for (const int64_t micros : {int64_t{0}, kDay, kDay + 1, int64_t{-1}}) {
        for (const int32_t offset : {0, 57599, -57599, -57600, -100000}) {
            EXPECT_EQ(IsValidTimeTzBits(duckdb_create_time_tz(micros, offset).bits),
                      IsValidTimeTz(micros, offset))
                << micros << " " << offset;
        }
    }
    EXPECT_FALSE(IsValidTimeTzBits(~uint64_t{0}));
    EXPECT_FALSE(IsValidTimeTzBits(0x00FFFFFF));
}

TEST(ValueGuard, DecimalsHaveNoMoreDigitsThanTheirWidth) {
    EXPECT_TRUE(IsValidDecimal(1, 0, {9, 0}));
    EXPECT_TRUE(IsValidDecimal(1, 1, {~uint64_t{8}, -1}));  // -9
    EXPECT_FALSE(IsValidDecimal(1, 0, {10, 0}));
    EXPECT_FALSE(IsValidDecimal(1, 0, {~uint64_t{9}, -1}));  // -10
    EXPECT_TRUE(IsValidDecimal(18, 18, {999'999'999'999'999'999, 0}));
    EXPECT_FALSE(IsValidDecimal(18, 0, {1'000'000'000'000'000'000, 0}));
    EXPECT_TRUE(IsValidDecimal(19, 0, {1'000'000'000'000'000'000, 0}));
    // 10^38 is 0x4B3B4CA85A86C47A098A224000000000.
    EXPECT_TRUE(IsValidDecimal(38, 38, {0x098A223FFFFFFFFF, 0x4B3B4CA85A86C47A}));
    EXPECT_FALSE(IsValidDecimal(38, 38, {0x098A224000000000, 0x4B3B4CA85A86C47A}));
    EXPECT_FALSE(IsValidDecimal(38, 0, {0, kSmallest}));
    EXPECT_FALSE(IsValidDecimal(18, 0, {1, 1}));
}

TEST(ValueGuard, DecimalsHaveAWidthOfOneToThirtyEightAndNoLargerScale) {
    EXPECT_FALSE(IsValidDecimal(0, 0, {0, 0}));
    EXPECT_FALSE(IsValidDecimal(39, 0, {0, 0}));
    EXPECT_FALSE(IsValidDecimal(255, 255, {0, 0}));
    EXPECT_TRUE(IsValidDecimal(4, 4, {0, 0}));
    EXPECT_FALSE(IsValidDecimal(4, 5, {0, 0}));
}

TEST(ValueGuard, BitsHaveAPaddingOfUpToSevenAndSomeBits) {
    const uint8_t bits[] = {7, 0xFF, 0};
    EXPECT_TRUE(IsValidBit(bits, 2));
    EXPECT_TRUE(IsValidBit(bits, 3));
    EXPECT_FALSE(IsValidBit(bits, 1));
    EXPECT_FALSE(IsValidBit(bits, 0));
    EXPECT_FALSE(IsValidBit(nullptr, 0));
    EXPECT_FALSE(IsValidBit(nullptr, 2));
    const uint8_t padded[] = {8, 0xFF, 0};
    EXPECT_FALSE(IsValidBit(padded, 3));
}

TEST(ValueGuard, BignumsHaveAtLeastOneByte) {
    const uint8_t bytes[] = {0x80, 0, 1, 0};
    EXPECT_TRUE(IsValidBignum(bytes, 1));
    EXPECT_FALSE(IsValidBignum(bytes, 0));
    EXPECT_FALSE(IsValidBignum(nullptr, 1));
    EXPECT_TRUE(IsValidStoredBignum(bytes, 4));
    EXPECT_FALSE(IsValidStoredBignum(bytes, 3));
    EXPECT_FALSE(IsValidStoredBignum(nullptr, 4));
}

struct Harmful {
    const char* name;
    std::function<duckdb_value()> make;
    const char* proper_text;  // the text that a correct reading would print; nothing when there is none
};

const std::vector<Harmful>& get_HarmfulValues() {
    static const std::vector<Harmful> values = {
        {"a time before midnight", [] { return MakeTime(-1); }, nullptr},
        {"a time of a hundred hours", [] { return MakeTime(int64_t{360'000} * 1'000'000); }, "100:00:00"},
        {"the smallest time", [] { return MakeTime(kSmallest); }, nullptr},
        {"the largest time", [] { return MakeTime(kLargest); }, nullptr},
        {"a fine time before midnight", [] { return MakeTimeNs(-1); }, nullptr},
        {"the largest fine time", [] { return MakeTimeNs(kLargest); }, nullptr},
        {"a zoned time before midnight", [] { return MakeTimeTz(-1, 0); }, nullptr},
        {"an offset of sixteen hours", [] { return MakeTimeTz(0, 57600); }, "00:00:00+16"},
        {"an offset of a million seconds", [] { return MakeTimeTz(0, 1'000'000); }, nullptr},
        {"a decimal of too many digits",
         [] {
             return MakeDecimal(4, 4, {32767, 0});
         },
         "3.2767"},
        {"the smallest decimal",
         [] {
             return MakeDecimal(38, 0, {0, kSmallest});
         },
         nullptr},
        {"a bit string of no bytes", [] { return MakeBit({}); }, nullptr},
        {"a bit string of padding alone", [] { return MakeBit({0}); }, "0"},
        {"a bit string of long padding",
         [] {
             return MakeBit({255, 0xFF});
         },
         nullptr},
        {"a big number of no bytes",
         [] {
             uint8_t byte = 0;
             return duckdb_create_bignum({&byte, 0, false});
         },
         nullptr},
    };
    return values;
}

/** Reads the value as text with the stock function in a separate process: its text, or nothing when it throws
    or kills the process. */
std::optional<std::string> ReadInChild(const std::function<duckdb_value()>& make) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        close(STDERR_FILENO);  // a crash is expected
        std::string text;
        int code = 1;
        try {
            text = duckdb_get_varchar(make());
            code = 0;
        } catch (...) {
        }
        _exit(write(ends[1], text.data(), text.size()) < 0 ? 2 : code);
    }
    close(ends[1]);
    std::string text;
    char buffer[256];
    for (ssize_t count; (count = read(ends[0], buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    close(ends[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? std::optional(text) : std::nullopt;
}

/** A text that could be a time, a number or bits. */
bool LooksSound(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789:+-.") == std::string::npos;
}

TEST(ValueGuard, DuckDBMisreadsOrFailsOnWhatItRefuses) {
    for (const auto& value : get_HarmfulValues()) {
        const auto text = ReadInChild(value.make);
        const bool is_proper = text && LooksSound(*text) && value.proper_text && *text == value.proper_text;
        EXPECT_FALSE(is_proper) << value.name << ": " << text.value_or("");
    }
}

TEST(ValueGuard, HarmfulValuesAreRefusedAndReadSafely) {
    LogicalTypeHolder varchar(duckdb_create_logical_type(DUCKDB_TYPE_VARCHAR));
    for (const auto& harmful : get_HarmfulValues()) {
        SCOPED_TRACE(harmful.name);
        ValueHolder value(harmful.make());
        ASSERT_TRUE(value);
        EXPECT_FALSE(IsReadable(value.get()));
        EXPECT_EQ(TextOf(value.get()), std::nullopt);
        EXPECT_EQ(Cast(value.get(), varchar.get()).state, DuckDBError);
        EXPECT_EQ(Cast(value.get(), DUCKDB_TYPE_VARIANT).state, DuckDBError);
    }
}

TEST(ValueGuard, AHarmfulNestedValueMakesTheOuterOneUnreadable) {
    for (const auto& harmful : get_HarmfulValues()) {
        SCOPED_TRACE(harmful.name);
        ValueHolder value(harmful.make());
        duckdb_logical_type type = duckdb_get_value_type(value.get());
        ValueHolder sound(duckdb_create_int32(1));
        duckdb_value element[] = {value.get()};
        duckdb_value key[] = {sound.get()};
        const char* names[] = {"a"};
        LogicalTypeHolder integer(duckdb_create_logical_type(DUCKDB_TYPE_INTEGER));
        LogicalTypeHolder struct_type(duckdb_create_struct_type(&type, names, 1));
        LogicalTypeHolder map_type(duckdb_create_map_type(integer.get(), type));
        LogicalTypeHolder union_type(duckdb_create_union_type(&type, names, 1));
        ValueHolder holders[] = {
            ValueHolder(duckdb_create_list_value(type, element, 1)),
            ValueHolder(duckdb_create_array_value(type, element, 1)),
            ValueHolder(duckdb_create_struct_value(struct_type.get(), element)),
            ValueHolder(duckdb_create_map_value(map_type.get(), key, element, 1)),
            ValueHolder(duckdb_create_union_value(union_type.get(), 0, value.get())),
        };
        for (const auto& holder : holders) {
            ASSERT_TRUE(holder);
            EXPECT_FALSE(IsReadable(holder.get())) << TypeTextOf(holder.get());
            EXPECT_EQ(TextOf(holder.get()), std::nullopt);
            duckdb_value outer[] = {holder.get()};
            ValueHolder list(duckdb_create_list_value(duckdb_get_value_type(holder.get()), outer, 1));
            EXPECT_FALSE(IsReadable(list.get()));
        }
    }
}

TEST(ValueGuard, AHarmfulValueInsideARowMakesItUnreadable) {
    TestEngine engine;
    StoreHarmfulTime(engine);
    ResultHolder result =
        engine.Query("SELECT row(t), row(1, row('a', t)), [row(t)], row(1, TIME '12:00') FROM times");
    ChunkHolder chunk(duckdb_fetch_chunk(*result));
    for (idx_t column = 0; column < 4; ++column) {
        ValueHolder value(duckdb_data_chunk_get_value(chunk.get(), column, 0));
        EXPECT_EQ(IsReadable(value.get()), column == 3) << TypeTextOf(value.get());
        EXPECT_EQ(TextOf(value.get()).has_value(), column == 3) << TypeTextOf(value.get());
    }
}

TEST(ValueGuard, AHarmfulValueInsideAVariantMakesItUnreadable) {
    TestEngine engine;
    StoreHarmfulTime(engine);
    ResultHolder result = engine.Query("SELECT t::VARIANT, {'t': t}::VARIANT, [1, 2]::VARIANT FROM times");
    ChunkHolder chunk(duckdb_fetch_chunk(*result));
    for (idx_t column = 0; column < 3; ++column) {
        ValueHolder value(duckdb_data_chunk_get_value(chunk.get(), column, 0));
        EXPECT_EQ(IsReadable(value.get()), column == 2);
        EXPECT_EQ(TextOf(value.get()).has_value(), column == 2);
        ValueHolder child(duckdb_value_variant_child(value.get()));
        EXPECT_EQ(IsReadable(child.get()), column == 2);
        EXPECT_EQ(TextOf(child.get()).has_value(), column == 2);
    }
}

/** Overwrites bytes of a VARIANT's data, from `place` on. */
void Damage(duckdb_data_chunk chunk, idx_t row, std::size_t place, std::string_view bytes) {
    constexpr idx_t kDataField = 3;
    duckdb_vector data = duckdb_struct_vector_get_child(duckdb_data_chunk_get_vector(chunk, 0), kDataField);
    duckdb_string_t& blob = static_cast<duckdb_string_t*>(duckdb_vector_get_data(data))[row];
    ASSERT_LE(place + bytes.size(), duckdb_string_t_length(blob));
    char* const first = duckdb_string_is_inlined(blob) ? blob.value.inlined.inlined : blob.value.pointer.ptr;
    bytes.copy(first + place, bytes.size());
}

TEST(ValueGuard, AHarmfulVariantOfEachGuardedKindIsFoundInItsColumn) {
    using std::literals::operator""sv;
    struct Harm {
        const char* expression;
        std::size_t place;
        std::string_view bytes;
    };
    const Harm harms[] = {
        {"'12:34:56.789'::TIME", 0, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv},
        {"'12:34:56.789012345'::TIME_NS", 0, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv},
        {"'12:34:56+02'::TIMETZ", 0, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv},
        {"12.50::DECIMAL(4,2)", 1, "\x05"sv},  // the scale
        {"123::BIGNUM", 0, "\x01"sv},          // its length
        {"'0101'::BIT", 1, "\x09"sv},          // the bits that are padding
    };
    TestEngine engine;
    for (const Harm& harm : harms) {
        const std::string value = harm.expression;
        ResultHolder result = engine.Query("SELECT unnest([" + value + "::VARIANT, {'a': " + value +
                                           "}::VARIANT, NULL, " + value + "::VARIANT])");
        ChunkHolder chunk(duckdb_fetch_chunk(*result));
        auto& column = *reinterpret_cast<duckdb::Vector*>(duckdb_data_chunk_get_vector(chunk.get(), 0));
        EXPECT_EQ(FindUnreadableVariants(column, 4), std::vector<bool>()) << value;
        Damage(chunk.get(), 3, harm.place, harm.bytes);
        EXPECT_EQ(FindUnreadableVariants(column, 4), std::vector<bool>({false, false, false, true})) << value;
        Damage(chunk.get(), 0, harm.place, harm.bytes);
        EXPECT_EQ(FindUnreadableVariants(column, 4), std::vector<bool>({true, false, false, true})) << value;
    }
}

TEST(ValueGuard, ValuesThatDuckDBRefusesInAnOrdinaryWayPass) {
    EXPECT_TRUE(IsReadable(ValueHolder(duckdb_create_timestamp({kSmallest})).get()));
    EXPECT_TRUE(IsReadable(ValueHolder(duckdb_create_timestamp_s({kLargest - 1})).get()));
    EXPECT_TRUE(IsReadable(ValueHolder(duckdb_create_date({std::numeric_limits<int32_t>::min()})).get()));
    EXPECT_TRUE(IsReadable(ValueHolder(MakeBit({7, 1})).get()));  // padding bits that are not set
}

}  // namespace
}  // namespace mduckdb
