#include "duckdb_internals/cell_reader.h"

#include <chrono>
#include <duckdb/common/operator/cast_operators.hpp>
#include <duckdb/common/operator/string_cast.hpp>
#include <duckdb/common/types/data_chunk.hpp>
#include <duckdb/common/types/vector.hpp>
#include <duckdb/common/vector_operations/vector_operations.hpp>
#include <limits>
#include <type_traits>
#include <vector>

#include "duckdb_internals/decimal_double.h"
#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/value_guard.h"
#include "duckdb_internals/version_differences.h"

namespace mduckdb {

using duckdb::LogicalType;
using duckdb::LogicalTypeId;
using duckdb::PhysicalType;
using duckdb::string_t;

namespace {

/** DuckDB formats texts into its vectors, which only grow; a vector is replaced after this many bytes. */
constexpr idx_t kScratchBytes = idx_t{64} * 1024;

struct Scratch;
struct Column;
using ReadCell = HostValue (*)(const Column&, Scratch&, idx_t row);

/** One column of the chunk, with the function for its type. The pointers are the chunk's. */
struct Column {
    ReadCell read;
    const void* data;
    const uint64_t* validity;  // a bit a row; null: every row is valid
    const LogicalType* type;
    uint8_t scale;
    duckdb_data_chunk chunk;
    idx_t index;  // of the column in the chunk

    bool IsValid(idx_t row) const noexcept {
        return validity == nullptr || (validity[row / 64] >> (row % 64) & 1) != 0;
    }
    template <class T>
    const T& Get(idx_t row) const noexcept {
        return static_cast<const T*>(data)[row];
    }
    ValueHolder TakeValue(idx_t row) const {
        return ValueHolder(duckdb_data_chunk_get_value(chunk, index, row));
    }
};

/** State that the readers of one chunk share. */
struct Scratch {
    VariantConverter convert_variant;

    /** Where DuckDB formats texts, and how many bytes it has formatted there. */
    std::unique_ptr<version::TextHeap> heap{};
    idx_t used = 0;

    /** Columns of nested values as texts, by their index in the chunk, created when first read; null: not
        created. */
    std::vector<std::unique_ptr<duckdb::Vector>> texts{};

    /** Not inline: creating a heap is rare, and its code would burden each function that reads a cell. */
    [[gnu::noinline]] version::TextHeap& GetHeap() {
        if (!heap || used > kScratchBytes) {
            heap = version::MakeTextHeap();
            used = 0;
        }
        return *heap;
    }
};

HostValue MakeText(const string_t& text) {
    return MakeStringValue({text.GetData(), text.GetSize()});
}

HostValue MakeEmptyText() {
    return MakeStringValue({});
}

HostValue ReadNull(const Column&, Scratch&, idx_t) {
    return MakeNullValue();
}

/** DuckDB creates no value of a cell with a text that is not valid UTF-8. */
HostValue ReadVariant(const Column& column, Scratch& scratch, idx_t row) {
    const ValueHolder value = column.TakeValue(row);
    return value ? scratch.convert_variant(value.get()) : MakeEmptyText();
}

template <class Stored, ValueFactory kFactory, class Content = Stored>
HostValue ReadNumber(const Column& column, Scratch&, idx_t row) {
    return MakeHostValue<kFactory>(static_cast<Content>(column.Get<Stored>(row)));
}

HostValue ReadText(const Column& column, Scratch&, idx_t row) {
    return MakeText(column.Get<string_t>(row));
}

HostValue ReadBlob(const Column& column, Scratch&, idx_t row) {
    const auto& bytes = column.Get<string_t>(row);
    return MakeBinaryValue({bytes.GetData(), bytes.GetSize()});
}

/** The text through a `duckdb_value`, for types that are rare, nested or not stored in a plain form. */
HostValue ReadTextOfValue(const Column& column, Scratch&, idx_t row) {
    const ValueHolder value = column.TakeValue(row);
    if (value && duckdb_is_null_value(value.get())) {
        return MakeNullValue();
    }
    return MakeStringValue(ValueText(value.get()).get_View());
}

/** The column as texts, or a vector of no texts when it must not or cannot be cast as a whole. */
std::unique_ptr<duckdb::Vector> CastToTexts(const Column& column) {
    auto& chunk = *reinterpret_cast<duckdb::DataChunk*>(column.chunk);
    if (IsEveryValueReadable(*column.type)) {
        auto texts = std::make_unique<duckdb::Vector>(LogicalType::VARCHAR, chunk.size());
        std::string error;
        try {
            if (duckdb::VectorOperations::DefaultTryCast(chunk.data[column.index], *texts, chunk.size(),
                                                         &error)) {
                version::Flatten(*texts, chunk.size());
                return texts;
            }
        } catch (...) {  // One row may be the reason, so each row is read separately.
        }
    }
    return std::make_unique<duckdb::Vector>(LogicalType::SQLNULL, idx_t{1});
}

/** A nested value as text. Casting one value costs microseconds, so the column is cast as a whole where that
    is possible. */
HostValue ReadNested(const Column& column, Scratch& scratch, idx_t row) {
    auto& texts = scratch.texts[column.index];
    if (!texts) {
        texts = CastToTexts(column);
    }
    if (texts->GetType().id() != LogicalTypeId::VARCHAR) {
        return ReadTextOfValue(column, scratch, row);
    }
    if (duckdb::FlatVector::IsNull(*texts, row)) {
        return MakeNullValue();
    }
    return MakeText(duckdb::FlatVector::GetData<string_t>(*texts)[row]);
}

bool IsValidTimeOfDay(duckdb::dtime_t time) {
    return IsValidTime(version::UnitsOf(time));
}
bool IsValidTimeOfDay(duckdb::dtime_ns_t time) {
    return IsValidTimeNs(version::UnitsOf(time));
}
bool IsValidTimeOfDay(duckdb::dtime_tz_t time) {
    return IsValidTimeTzBits(time.bits);
}

template <class T>
concept TimeOfDay = std::is_same_v<T, duckdb::dtime_t> || std::is_same_v<T, duckdb::dtime_ns_t> ||
    std::is_same_v<T, duckdb::dtime_tz_t>;

/** The text as DuckDB's cast to VARCHAR formats it. */
template <class T, class Cast>
HostValue ReadFormatted(const Column& column, Scratch& scratch, idx_t row) {
    const T value = column.Get<T>(row);
    if constexpr (TimeOfDay<T>) {
        if (!IsValidTimeOfDay(value)) {
            return MakeEmptyText();
        }
    }
    const string_t text = Cast::template Operation<T>(value, scratch.GetHeap());
    scratch.used += text.GetSize();
    return MakeText(text);
}

void PutDigits(char* place, unsigned count, unsigned number) noexcept {
    for (; count > 0; number /= 10) {
        place[--count] = static_cast<char>('0' + number % 10);
    }
}

/** The same text as DuckDB's, without DuckDB's memory for it. Dates of other years and infinite ones are
    rare. */
HostValue ReadDate(const Column& column, Scratch& scratch, idx_t row) {
    using std::chrono::sys_days;
    constexpr sys_days kFirst = std::chrono::year(1) / 1 / 1;
    constexpr sys_days kLast = std::chrono::year(9999) / 12 / 31;
    const sys_days date{std::chrono::days(column.Get<duckdb::date_t>(row).days)};
    if (date < kFirst || date > kLast) {
        return ReadFormatted<duckdb::date_t, duckdb::StringCast>(column, scratch, row);
    }
    const std::chrono::year_month_day parts(date);
    char text[] = "0000-00-00";
    PutDigits(text, 4, static_cast<unsigned>(static_cast<int>(parts.year())));
    PutDigits(text + 5, 2, static_cast<unsigned>(parts.month()));
    PutDigits(text + 8, 2, static_cast<unsigned>(parts.day()));
    return MakeStringValue({text, sizeof text - 1});
}

template <class T>
HostValue ReadEnum(const Column& column, Scratch&, idx_t row) {
    const T position = column.Get<T>(row);
    return position < duckdb::EnumType::GetSize(*column.type)
               ? MakeText(duckdb::EnumType::GetString(*column.type, position))
               : MakeEmptyText();
}

/** A DECIMAL of up to 18 digits. A file may hold a number with more, which DuckDB reads too. */
template <class T>
HostValue ReadDecimal(const Column& column, Scratch&, idx_t row) {
    return MakeHostValue<nbx::CreateValueDouble>(DecimalToDouble(column.Get<T>(row), column.scale));
}

/** The one number without an opposite is not readable, see `IsReadable`. */
HostValue ReadWideDecimal(const Column& column, Scratch&, idx_t row) {
    const auto number = column.Get<duckdb_hugeint>(row);
    const bool has_opposite = number.upper != std::numeric_limits<int64_t>::min() || number.lower != 0;
    return has_opposite ? MakeHostValue<nbx::CreateValueDouble>(WideDecimalToDouble(number, column.scale))
                        : MakeEmptyText();
}

/** Where a cell is read: in the data of the vector, flattened if necessary, or through the chunk. */
enum class From : bool { data, chunk };

constexpr PhysicalType kAnyStorage = PhysicalType::INVALID;

/** How the cells of a type are read, and which host value they become. */
struct Kind {
    LogicalTypeId type;
    From from;
    ReadCell read;
    PhysicalType storage = kAnyStorage;
};

using From::chunk;
using From::data;

/** The one place that says what a cell of a cursor becomes; a text for every type that is not here. Numbers
    keep their width, but a TINYINT becomes a Short, since the host's Byte has no sign. */
constexpr Kind kKinds[] = {
    {LogicalTypeId::SQLNULL, chunk, ReadNull},
    {LogicalTypeId::BOOLEAN, data, ReadNumber<bool, nbx::CreateValueBoolean>},
    {LogicalTypeId::TINYINT, data, ReadNumber<int8_t, nbx::CreateValueShort, int16_t>},
    {LogicalTypeId::SMALLINT, data, ReadNumber<int16_t, nbx::CreateValueShort>},
    {LogicalTypeId::INTEGER, data, ReadNumber<int32_t, nbx::CreateValueLong>},
    {LogicalTypeId::BIGINT, data, ReadNumber<int64_t, nbx::CreateValueLLong>},
    {LogicalTypeId::UTINYINT, data, ReadNumber<uint8_t, nbx::CreateValueByte>},
    {LogicalTypeId::USMALLINT, data, ReadNumber<uint16_t, nbx::CreateValueUShort>},
    {LogicalTypeId::UINTEGER, data, ReadNumber<uint32_t, nbx::CreateValueULong>},
    {LogicalTypeId::UBIGINT, data, ReadNumber<uint64_t, nbx::CreateValueULLong>},
    {LogicalTypeId::FLOAT, data, ReadNumber<float, nbx::CreateValueFloat>},
    {LogicalTypeId::DOUBLE, data, ReadNumber<double, nbx::CreateValueDouble>},
    {LogicalTypeId::DECIMAL, data, ReadDecimal<int16_t>, PhysicalType::INT16},
    {LogicalTypeId::DECIMAL, data, ReadDecimal<int32_t>, PhysicalType::INT32},
    {LogicalTypeId::DECIMAL, data, ReadDecimal<int64_t>, PhysicalType::INT64},
    {LogicalTypeId::DECIMAL, data, ReadWideDecimal, PhysicalType::INT128},
    {LogicalTypeId::BLOB, data, ReadBlob},
    {LogicalTypeId::VARCHAR, data, ReadText},
    {LogicalTypeId::ENUM, data, ReadEnum<uint8_t>, PhysicalType::UINT8},
    {LogicalTypeId::ENUM, data, ReadEnum<uint16_t>, PhysicalType::UINT16},
    {LogicalTypeId::ENUM, data, ReadEnum<uint32_t>, PhysicalType::UINT32},
    {LogicalTypeId::DATE, data, ReadDate},
    {LogicalTypeId::TIME, data, ReadFormatted<duckdb::dtime_t, duckdb::StringCast>},
    {LogicalTypeId::TIME_NS, data, ReadFormatted<duckdb::dtime_ns_t, duckdb::StringCast>},
    {LogicalTypeId::TIME_TZ, data, ReadFormatted<duckdb::dtime_tz_t, version::StringCastWithZone>},
    {LogicalTypeId::TIMESTAMP, data, ReadFormatted<duckdb::timestamp_t, duckdb::StringCast>},
    {LogicalTypeId::TIMESTAMP_TZ, data,
     ReadFormatted<version::StoredTimestampTz, version::StringCastWithZone>},
    {LogicalTypeId::TIMESTAMP_SEC, data,
     ReadFormatted<version::StoredTimestampS, duckdb::CastFromTimestampSec>},
    {LogicalTypeId::TIMESTAMP_MS, data,
     ReadFormatted<version::StoredTimestampMs, duckdb::CastFromTimestampMS>},
    {LogicalTypeId::TIMESTAMP_NS, data, ReadFormatted<duckdb::timestamp_ns_t, duckdb::CastFromTimestampNS>},
    {LogicalTypeId::INTERVAL, data, ReadFormatted<duckdb::interval_t, duckdb::StringCast>},
    {LogicalTypeId::HUGEINT, data, ReadFormatted<duckdb::hugeint_t, duckdb::StringCast>},
    {LogicalTypeId::UHUGEINT, data, ReadFormatted<duckdb::uhugeint_t, duckdb::StringCast>},
    {LogicalTypeId::UUID, data, ReadFormatted<duckdb::hugeint_t, duckdb::CastFromUUID>},
    {LogicalTypeId::LIST, chunk, ReadNested},
    {LogicalTypeId::ARRAY, chunk, ReadNested},
    {LogicalTypeId::STRUCT, chunk, ReadNested},
    {LogicalTypeId::MAP, chunk, ReadNested},
    {LogicalTypeId::UNION, chunk, ReadNested},
    {LogicalTypeId::VARIANT, chunk, ReadVariant},
};

constexpr Kind kOtherKind = {LogicalTypeId::INVALID, chunk, ReadTextOfValue};

const Kind& FindKind(const LogicalType& type) {
    const LogicalTypeId id = version::IsStruct(type.id()) ? LogicalTypeId::STRUCT : type.id();
    for (const Kind& kind : kKinds) {
        if (kind.type == id && (kind.storage == kAnyStorage || kind.storage == type.InternalType())) {
            return kind;
        }
    }
    return kOtherKind;
}

}  // namespace

struct CellReader::State {
    Scratch scratch;
    std::vector<Column> columns{};
    /** Flattens columns that the chunk holds in a compressed form. */
    std::vector<std::unique_ptr<duckdb::Vector>> spread{};

    void Add(duckdb_data_chunk chunk, idx_t index) {
        auto& all = *reinterpret_cast<duckdb::DataChunk*>(chunk);
        duckdb::Vector& vector = all.data[index];
        const LogicalType& type = vector.GetType();
        const Kind& kind = FindKind(type);
        Column column{kind.read, nullptr, nullptr, &type, 0, chunk, index};
        if (kind.from == From::data) {
            duckdb::Vector& flat = Spread(vector, all.size());
            column.data = duckdb::FlatVector::GetData(flat);
            column.validity = duckdb::FlatVector::Validity(flat).GetData();
        } else if (vector.GetVectorType() == duckdb::VectorType::FLAT_VECTOR) {
            column.validity = duckdb::FlatVector::Validity(vector).GetData();
        }
        if (type.id() == LogicalTypeId::DECIMAL) {
            column.scale = duckdb::DecimalType::GetScale(type);
        }
        columns.push_back(column);
    }

    duckdb::Vector& Spread(duckdb::Vector& vector, idx_t row_count) {
        if (vector.GetVectorType() == duckdb::VectorType::FLAT_VECTOR) {
            return vector;
        }
        spread.push_back(std::make_unique<duckdb::Vector>(vector.GetType(), nullptr));
        spread.back()->Reference(vector);
        version::Flatten(*spread.back(), row_count);
        return *spread.back();
    }
};

CellReader::CellReader(VariantConverter convert_variant)
    : state_(std::make_unique<State>(State{Scratch{convert_variant}})) {}
CellReader::~CellReader() = default;

void CellReader::Bind(duckdb_data_chunk chunk) {
    state_->columns.clear();
    state_->spread.clear();
    state_->scratch.texts.clear();
    column_count_ = 0;
    row_count_ = 0;
    if (chunk == nullptr) {
        return;
    }
    const idx_t column_count = duckdb_data_chunk_get_column_count(chunk);
    state_->columns.reserve(column_count);
    state_->scratch.texts.resize(column_count);
    for (idx_t index = 0; index < column_count; ++index) {
        state_->Add(chunk, index);
    }
    column_count_ = column_count;
    row_count_ = duckdb_data_chunk_get_size(chunk);
}

HostValue CellReader::Read(idx_t column, idx_t row) {
    if (column >= column_count_ || row >= row_count_) {
        return MakeNullValue();
    }
    const Column& from = state_->columns[column];
    if (!from.IsValid(row)) {
        return MakeNullValue();
    }
    try {
        return from.read(from, state_->scratch, row);
    } catch (...) {
        ThrowIfOutOfMemory();
        return MakeEmptyText();
    }
}

}  // namespace mduckdb
