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

/** State that the readers of one chunk share. */
struct CellScratch {
    VariantConverter convert_variant;

    /** Where DuckDB formats texts, and how many bytes it has formatted there. */
    std::unique_ptr<version::TextHeap> heap{};
    idx_t used = 0;

    /** Columns of nested values as texts, by their index in the chunk, created when first read; null: not
        created. */
    std::vector<std::unique_ptr<duckdb::Vector>> texts{};

    /** DuckDB formats texts into its vectors, which only grow; a vector is replaced after this many bytes. */
    static constexpr idx_t kMostBytes = idx_t{64} * 1024;

    /** Not inline: creating a heap is rare, and its code would burden each function that reads a cell. */
    [[gnu::noinline]] version::TextHeap& GetHeap() {
        if (!heap || used > kMostBytes) {
            heap = version::MakeTextHeap();
            used = 0;
        }
        return *heap;
    }
};

namespace {

HostValue MakeText(const string_t& text) {
    return MakeStringValue({text.GetData(), text.GetSize()});
}

HostValue MakeEmptyText() {
    return MakeStringValue({});
}

HostValue ReadNull(const CellColumn&, CellScratch&, idx_t) {
    return MakeNullValue();
}

/** DuckDB creates no value of a cell with a text that is not valid UTF-8. */
HostValue ReadVariant(const CellColumn& column, CellScratch& scratch, idx_t row) {
    const ValueHolder value = column.TakeValue(row);
    return value ? scratch.convert_variant(value.get()) : MakeEmptyText();
}

template <class Stored, ValueFactory kFactory, class Content = Stored>
HostValue ReadNumber(const CellColumn& column, CellScratch&, idx_t row) {
    return MakeHostValue<kFactory>(static_cast<Content>(column.Get<Stored>(row)));
}

HostValue ReadText(const CellColumn& column, CellScratch&, idx_t row) {
    return MakeText(column.Get<string_t>(row));
}

HostValue ReadBlob(const CellColumn& column, CellScratch&, idx_t row) {
    const auto& bytes = column.Get<string_t>(row);
    return MakeBinaryValue({bytes.GetData(), bytes.GetSize()});
}

/** The text through a `duckdb_value`, for types that are rare, nested or not stored in a plain form. */
HostValue ReadTextOfValue(const CellColumn& column, CellScratch&, idx_t row) {
    const ValueHolder value = column.TakeValue(row);
    if (value && duckdb_is_null_value(value.get())) {
        return MakeNullValue();
    }
    return MakeStringValue(ValueText(value.get()).get_View());
}

/** The column as texts, or a vector of no texts when it must not or cannot be cast as a whole. */
std::unique_ptr<duckdb::Vector> CastToTexts(const CellColumn& column) {
    auto& chunk = *reinterpret_cast<duckdb::DataChunk*>(column.chunk);
    duckdb::Vector& vector = chunk.data[column.index];
    if (IsEveryValueReadable(vector.GetType())) {
        auto texts = std::make_unique<duckdb::Vector>(LogicalType::VARCHAR, chunk.size());
        std::string error;
        try {
            if (duckdb::VectorOperations::DefaultTryCast(vector, *texts, chunk.size(), &error)) {
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
HostValue ReadNested(const CellColumn& column, CellScratch& scratch, idx_t row) {
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
HostValue ReadFormatted(const CellColumn& column, CellScratch& scratch, idx_t row) {
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
HostValue ReadDate(const CellColumn& column, CellScratch& scratch, idx_t row) {
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
HostValue ReadEnum(const CellColumn& column, CellScratch&, idx_t row) {
    const T position = column.Get<T>(row);
    const LogicalType& type =
        reinterpret_cast<duckdb::DataChunk*>(column.chunk)->data[column.index].GetType();
    return position < duckdb::EnumType::GetSize(type) ? MakeText(duckdb::EnumType::GetString(type, position))
                                                      : MakeEmptyText();
}

/** A DECIMAL of up to 18 digits. A file may hold a number with more, which DuckDB reads too. */
template <class T>
HostValue ReadDecimal(const CellColumn& column, CellScratch&, idx_t row) {
    return MakeHostValue<nbx::CreateValueDouble>(DecimalToDouble(column.Get<T>(row), column.scale));
}

/** The one number without an opposite is not readable, see `IsReadable`. */
HostValue ReadWideDecimal(const CellColumn& column, CellScratch&, idx_t row) {
    const auto number = column.Get<duckdb_hugeint>(row);
    const bool has_opposite = number.upper != std::numeric_limits<int64_t>::min() || number.lower != 0;
    return has_opposite ? MakeHostValue<nbx::CreateValueDouble>(WideDecimalToDouble(number, column.scale))
                        : MakeEmptyText();
}

/** The reader as the table has it. */
template <HostValue (*kRead)(const CellColumn&, CellScratch&, idx_t)>
nbx::I_Value* Read(const CellColumn& column, CellScratch& scratch, idx_t row) {
    return kRead(column, scratch, row).detach();
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
    {LogicalTypeId::SQLNULL, chunk, Read<ReadNull>},
    {LogicalTypeId::BOOLEAN, data, Read<ReadNumber<bool, nbx::CreateValueBoolean>>},
    {LogicalTypeId::TINYINT, data, Read<ReadNumber<int8_t, nbx::CreateValueShort, int16_t>>},
    {LogicalTypeId::SMALLINT, data, Read<ReadNumber<int16_t, nbx::CreateValueShort>>},
    {LogicalTypeId::INTEGER, data, Read<ReadNumber<int32_t, nbx::CreateValueLong>>},
    {LogicalTypeId::BIGINT, data, Read<ReadNumber<int64_t, nbx::CreateValueLLong>>},
    {LogicalTypeId::UTINYINT, data, Read<ReadNumber<uint8_t, nbx::CreateValueByte>>},
    {LogicalTypeId::USMALLINT, data, Read<ReadNumber<uint16_t, nbx::CreateValueUShort>>},
    {LogicalTypeId::UINTEGER, data, Read<ReadNumber<uint32_t, nbx::CreateValueULong>>},
    {LogicalTypeId::UBIGINT, data, Read<ReadNumber<uint64_t, nbx::CreateValueULLong>>},
    {LogicalTypeId::FLOAT, data, Read<ReadNumber<float, nbx::CreateValueFloat>>},
    {LogicalTypeId::DOUBLE, data, Read<ReadNumber<double, nbx::CreateValueDouble>>},
    {LogicalTypeId::DECIMAL, data, Read<ReadDecimal<int16_t>>, PhysicalType::INT16},
    {LogicalTypeId::DECIMAL, data, Read<ReadDecimal<int32_t>>, PhysicalType::INT32},
    {LogicalTypeId::DECIMAL, data, Read<ReadDecimal<int64_t>>, PhysicalType::INT64},
    {LogicalTypeId::DECIMAL, data, Read<ReadWideDecimal>, PhysicalType::INT128},
    {LogicalTypeId::BLOB, data, Read<ReadBlob>},
    {LogicalTypeId::VARCHAR, data, Read<ReadText>},
    {LogicalTypeId::ENUM, data, Read<ReadEnum<uint8_t>>, PhysicalType::UINT8},
    {LogicalTypeId::ENUM, data, Read<ReadEnum<uint16_t>>, PhysicalType::UINT16},
    {LogicalTypeId::ENUM, data, Read<ReadEnum<uint32_t>>, PhysicalType::UINT32},
    {LogicalTypeId::DATE, data, Read<ReadDate>},
    {LogicalTypeId::TIME, data, Read<ReadFormatted<duckdb::dtime_t, duckdb::StringCast>>},
    {LogicalTypeId::TIME_NS, data, Read<ReadFormatted<duckdb::dtime_ns_t, duckdb::StringCast>>},
    {LogicalTypeId::TIME_TZ, data, Read<ReadFormatted<duckdb::dtime_tz_t, version::StringCastWithZone>>},
    {LogicalTypeId::TIMESTAMP, data, Read<ReadFormatted<duckdb::timestamp_t, duckdb::StringCast>>},
    {LogicalTypeId::TIMESTAMP_TZ, data,
     Read<ReadFormatted<version::StoredTimestampTz, version::StringCastWithZone>>},
    {LogicalTypeId::TIMESTAMP_SEC, data,
     Read<ReadFormatted<version::StoredTimestampS, duckdb::CastFromTimestampSec>>},
    {LogicalTypeId::TIMESTAMP_MS, data,
     Read<ReadFormatted<version::StoredTimestampMs, duckdb::CastFromTimestampMS>>},
    {LogicalTypeId::TIMESTAMP_NS, data,
     Read<ReadFormatted<duckdb::timestamp_ns_t, duckdb::CastFromTimestampNS>>},
    {LogicalTypeId::INTERVAL, data, Read<ReadFormatted<duckdb::interval_t, duckdb::StringCast>>},
    {LogicalTypeId::HUGEINT, data, Read<ReadFormatted<duckdb::hugeint_t, duckdb::StringCast>>},
    {LogicalTypeId::UHUGEINT, data, Read<ReadFormatted<duckdb::uhugeint_t, duckdb::StringCast>>},
    {LogicalTypeId::UUID, data, Read<ReadFormatted<duckdb::hugeint_t, duckdb::CastFromUUID>>},
    {LogicalTypeId::LIST, chunk, Read<ReadNested>},
    {LogicalTypeId::ARRAY, chunk, Read<ReadNested>},
    {LogicalTypeId::STRUCT, chunk, Read<ReadNested>},
    {LogicalTypeId::MAP, chunk, Read<ReadNested>},
    {LogicalTypeId::UNION, chunk, Read<ReadNested>},
    {LogicalTypeId::VARIANT, chunk, Read<ReadVariant>},
};

constexpr Kind kOtherKind = {LogicalTypeId::INVALID, chunk, Read<ReadTextOfValue>};

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
    CellScratch scratch;
    std::vector<CellColumn> columns{};
    /** Flattens columns that the chunk holds in a compressed form. */
    std::vector<std::unique_ptr<duckdb::Vector>> spread{};

    void Add(duckdb_data_chunk chunk, idx_t index) {
        auto& all = *reinterpret_cast<duckdb::DataChunk*>(chunk);
        duckdb::Vector& vector = all.data[index];
        const LogicalType& type = vector.GetType();
        const Kind& kind = FindKind(type);
        CellColumn column{kind.read, nullptr, nullptr, chunk, static_cast<uint32_t>(index), 0};
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
    : state_(std::make_unique<State>(State{CellScratch{convert_variant}})), scratch_(&state_->scratch) {}
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
    columns_ = state_->columns.data();
    column_count_ = column_count;
    row_count_ = duckdb_data_chunk_get_size(chunk);
}

nbx::I_Value* CellReader::MakeNull() {
    return MakeNullValue().detach();
}

HostValue CellReader::MakeRefused() {
    ThrowIfOutOfMemory();
    return MakeEmptyText();
}

}  // namespace mduckdb
