#include "duckdb_internals/cell_reader.h"

#include <duckdb/common/operator/cast_operators.hpp>
#include <duckdb/common/operator/string_cast.hpp>
#include <duckdb/common/type_visitor.hpp>
#include <duckdb/common/types/data_chunk.hpp>
#include <duckdb/common/types/vector.hpp>
#include <duckdb/common/vector_operations/vector_operations.hpp>
#include <type_traits>
#include <vector>

#include "duckdb_internals/decimal_double.h"
#include "duckdb_internals/plain_functions.h"
#include "duckdb_internals/value_guard.h"

namespace mduckdb {

using duckdb::LogicalType;
using duckdb::LogicalTypeId;
using duckdb::PhysicalType;
using duckdb::string_t;

namespace {

/** Texts that DuckDB formats go into its vectors, which only grow; one is renewed after so many bytes. */
constexpr idx_t kScratchBytes = idx_t{64} * 1024;

struct Scratch;
struct Column;
using ReadCell = Cell (*)(const Column&, Scratch&, idx_t row);

/** One column of the chunk, with the function for its type. The pointers are the chunk's. */
struct Column {
    ReadCell read;
    const void* data;
    const uint64_t* validity;  // a bit a row; null: every row is valid
    const LogicalType* type;
    uint8_t width;
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
};

/** Where texts that are made for one cell live until the next. */
struct Scratch {
    std::unique_ptr<duckdb::Vector> vector;
    idx_t used = 0;
    string_t short_text;
    TextHolder owned;

    /** Columns of nested values as texts, by their place in the chunk, made when first read; null: not
        made. */
    std::vector<std::unique_ptr<duckdb::Vector>> texts;

    duckdb::Vector& GetVector() {
        if (!vector || used > kScratchBytes) {
            vector = std::make_unique<duckdb::Vector>(LogicalType::VARCHAR, idx_t{1});
            used = 0;
        }
        return *vector;
    }
    /** A view of a text in `vector`, or of one so short that it lies in the `string_t` itself. */
    std::string_view Keep(const string_t& text) noexcept {
        used += text.GetSize();
        short_text = text;
        return {short_text.GetData(), short_text.GetSize()};
    }
};

Cell MakeBytes(Cell::Kind kind, std::string_view bytes) noexcept {
    Cell cell;
    cell.kind = kind;
    cell.bytes = bytes;
    return cell;
}

Cell ReadNothing(const Column&, Scratch&, idx_t) {
    return {};
}

Cell ReadVariant(const Column&, Scratch&, idx_t) {
    return MakeBytes(Cell::Kind::variant, {});
}

/** The same for a column whose rows only the value tells to be NULL. */
Cell ReadVariantOfValue(const Column& column, Scratch&, idx_t row) {
    ValueHolder value(duckdb_data_chunk_get_value(column.chunk, column.index, row));
    return value && !duckdb_is_null_value(value.get()) ? MakeBytes(Cell::Kind::variant, {}) : Cell{};
}

template <class T, Cell::Kind kind, auto member>
Cell ReadNumber(const Column& column, Scratch&, idx_t row) {
    Cell cell;
    cell.kind = kind;
    cell.number.*member = column.Get<T>(row);
    return cell;
}

template <Cell::Kind kind>
Cell ReadBytes(const Column& column, Scratch&, idx_t row) {
    const auto& bytes = column.Get<string_t>(row);
    return MakeBytes(kind, {bytes.GetData(), bytes.GetSize()});
}

/** The text by way of a value, for types that are rare, nested or in a form that is not plain. */
Cell ReadTextOfValue(const Column& column, Scratch& scratch, idx_t row) {
    ValueHolder value(duckdb_data_chunk_get_value(column.chunk, column.index, row));
    if (!value || duckdb_is_null_value(value.get())) {
        return {};
    }
    idx_t length = 0;
    scratch.owned.Reset(duckdb_get_varchar_length(value.get(), &length));
    return MakeBytes(Cell::Kind::text, {scratch.owned.get(), length});
}

/** A nested value as text. Casting one value costs microseconds, so the column is cast as a whole. When
    that fails, because of one row maybe, each row is read by itself. */
Cell ReadNested(const Column& column, Scratch& scratch, idx_t row) {
    auto& texts = scratch.texts[column.index];
    if (!texts) {
        auto& chunk = *reinterpret_cast<duckdb::DataChunk*>(column.chunk);
        texts = std::make_unique<duckdb::Vector>(LogicalType::VARCHAR, chunk.size());
        std::string error;
        bool is_cast = false;
        try {
            is_cast = duckdb::VectorOperations::DefaultTryCast(chunk.data[column.index], *texts, chunk.size(),
                                                               &error);
            texts->Flatten(chunk.size());
        } catch (...) {
        }
        if (!is_cast) {
            texts = std::make_unique<duckdb::Vector>(LogicalType::SQLNULL, idx_t{1});
        }
    }
    if (texts->GetType().id() != LogicalTypeId::VARCHAR) {
        return ReadTextOfValue(column, scratch, row);
    }
    if (duckdb::FlatVector::IsNull(*texts, row)) {
        return {};
    }
    const auto& text = duckdb::FlatVector::GetData<string_t>(*texts)[row];
    return MakeBytes(Cell::Kind::text, {text.GetData(), text.GetSize()});
}

/** Whether values of the type can be made into text without looking at each of them first. */
bool NeedsNoGuard(const LogicalType& type) {
    return !duckdb::TypeVisitor::Contains(type, [](const LogicalType& part) {
        switch (part.id()) {
            case LogicalTypeId::TIME:
            case LogicalTypeId::TIME_NS:
            case LogicalTypeId::TIME_TZ:
            case LogicalTypeId::DECIMAL:
            case LogicalTypeId::BIT:
            case LogicalTypeId::BIGNUM:
            case LogicalTypeId::VARIANT:
                return true;
            default:
                return false;
        }
    });
}

bool IsValidTimeOfDay(duckdb::dtime_t time) {
    return IsValidTime(time.micros);
}
bool IsValidTimeOfDay(duckdb::dtime_ns_t time) {
    return IsValidTimeNs(time.micros);
}
bool IsValidTimeOfDay(duckdb::dtime_tz_t time) {
    return IsValidTimeTzBits(time.bits);
}

template <class T>
concept TimeOfDay = std::is_same_v<T, duckdb::dtime_t> || std::is_same_v<T, duckdb::dtime_ns_t> ||
    std::is_same_v<T, duckdb::dtime_tz_t>;

/** The text as DuckDB's cast to VARCHAR formats it. */
template <class T, class Cast>
Cell ReadFormatted(const Column& column, Scratch& scratch, idx_t row) {
    const T value = column.Get<T>(row);
    if constexpr (TimeOfDay<T>) {
        if (!IsValidTimeOfDay(value)) {
            return MakeBytes(Cell::Kind::text, {});
        }
    }
    return MakeBytes(Cell::Kind::text, scratch.Keep(Cast::template Operation<T>(value, scratch.GetVector())));
}

template <class T>
Cell ReadEnum(const Column& column, Scratch& scratch, idx_t row) {
    const T position = column.Get<T>(row);
    if (position >= duckdb::EnumType::GetSize(*column.type)) {
        return MakeBytes(Cell::Kind::text, {});
    }
    return MakeBytes(Cell::Kind::text, scratch.Keep(duckdb::EnumType::GetString(*column.type, position)));
}

Cell MakeDouble(double number) noexcept {
    Cell cell;
    cell.kind = Cell::Kind::real64;
    cell.number.real64 = number;
    return cell;
}

/** A DECIMAL of up to 18 digits. */
template <class T>
Cell ReadDecimal(const Column& column, Scratch&, idx_t row) {
    const int64_t number = column.Get<T>(row);
    if (!IsValidNarrowDecimal(column.width, number)) {
        return MakeBytes(Cell::Kind::text, {});
    }
    return MakeDouble(DecimalToDouble(number, column.scale));
}

Cell ReadWideDecimal(const Column& column, Scratch&, idx_t row) {
    const auto number = column.Get<duckdb_hugeint>(row);
    if (!IsValidDecimal(column.width, column.scale, number)) {
        return MakeBytes(Cell::Kind::text, {});
    }
    return MakeDouble(WideDecimalToDouble(number, column.scale));
}

struct TypeReader {
    LogicalTypeId type;
    ReadCell read;
};

using Kind = Cell::Kind;
using Number = Cell::Number;

/** Types whose cells are read straight from a flat vector. */
constexpr TypeReader kTypeReaders[] = {
    {LogicalTypeId::BOOLEAN, ReadNumber<bool, Kind::boolean, &Number::boolean>},
    {LogicalTypeId::TINYINT, ReadNumber<int8_t, Kind::int16, &Number::int16>},
    {LogicalTypeId::SMALLINT, ReadNumber<int16_t, Kind::int16, &Number::int16>},
    {LogicalTypeId::INTEGER, ReadNumber<int32_t, Kind::int32, &Number::int32>},
    {LogicalTypeId::BIGINT, ReadNumber<int64_t, Kind::int64, &Number::int64>},
    {LogicalTypeId::UTINYINT, ReadNumber<uint8_t, Kind::uint8, &Number::uint8>},
    {LogicalTypeId::USMALLINT, ReadNumber<uint16_t, Kind::uint16, &Number::uint16>},
    {LogicalTypeId::UINTEGER, ReadNumber<uint32_t, Kind::uint32, &Number::uint32>},
    {LogicalTypeId::UBIGINT, ReadNumber<uint64_t, Kind::uint64, &Number::uint64>},
    {LogicalTypeId::FLOAT, ReadNumber<float, Kind::real32, &Number::real32>},
    {LogicalTypeId::DOUBLE, ReadNumber<double, Kind::real64, &Number::real64>},
    {LogicalTypeId::VARCHAR, ReadBytes<Kind::text>},
    {LogicalTypeId::BLOB, ReadBytes<Kind::blob>},
    {LogicalTypeId::DATE, ReadFormatted<duckdb::date_t, duckdb::StringCast>},
    {LogicalTypeId::TIME, ReadFormatted<duckdb::dtime_t, duckdb::StringCast>},
    {LogicalTypeId::TIME_NS, ReadFormatted<duckdb::dtime_ns_t, duckdb::StringCast>},
    {LogicalTypeId::TIME_TZ, ReadFormatted<duckdb::dtime_tz_t, duckdb::StringCastTZ>},
    {LogicalTypeId::TIMESTAMP, ReadFormatted<duckdb::timestamp_t, duckdb::StringCast>},
    {LogicalTypeId::TIMESTAMP_TZ, ReadFormatted<duckdb::timestamp_t, duckdb::StringCastTZ>},
    {LogicalTypeId::TIMESTAMP_SEC, ReadFormatted<duckdb::timestamp_t, duckdb::CastFromTimestampSec>},
    {LogicalTypeId::TIMESTAMP_MS, ReadFormatted<duckdb::timestamp_t, duckdb::CastFromTimestampMS>},
    {LogicalTypeId::TIMESTAMP_NS, ReadFormatted<duckdb::timestamp_ns_t, duckdb::CastFromTimestampNS>},
    {LogicalTypeId::INTERVAL, ReadFormatted<duckdb::interval_t, duckdb::StringCast>},
    {LogicalTypeId::HUGEINT, ReadFormatted<duckdb::hugeint_t, duckdb::StringCast>},
    {LogicalTypeId::UHUGEINT, ReadFormatted<duckdb::uhugeint_t, duckdb::StringCast>},
    {LogicalTypeId::UUID, ReadFormatted<duckdb::hugeint_t, duckdb::CastFromUUID>},
};

/** The same for DECIMAL and ENUM, which come in several widths. */
ReadCell FindReaderByWidth(const LogicalType& type) {
    const bool is_decimal = type.id() == LogicalTypeId::DECIMAL;
    switch (type.InternalType()) {
        case PhysicalType::INT16:
            return ReadDecimal<int16_t>;
        case PhysicalType::INT32:
            return ReadDecimal<int32_t>;
        case PhysicalType::INT64:
            return ReadDecimal<int64_t>;
        case PhysicalType::INT128:
            return ReadWideDecimal;
        case PhysicalType::UINT8:
            return is_decimal ? nullptr : ReadEnum<uint8_t>;
        case PhysicalType::UINT16:
            return is_decimal ? nullptr : ReadEnum<uint16_t>;
        case PhysicalType::UINT32:
            return is_decimal ? nullptr : ReadEnum<uint32_t>;
        default:
            return nullptr;
    }
}

/** Null when a cell of the type takes a value to read. */
ReadCell FindReader(const LogicalType& type) {
    if (type.id() == LogicalTypeId::DECIMAL || type.id() == LogicalTypeId::ENUM) {
        return FindReaderByWidth(type);
    }
    for (const auto& reader : kTypeReaders) {
        if (reader.type == type.id()) {
            return reader.read;
        }
    }
    return nullptr;
}

/** For the other types. */
ReadCell FindValueReader(const LogicalType& type, bool is_flat) {
    switch (type.id()) {
        case LogicalTypeId::SQLNULL:
            return ReadNothing;
        case LogicalTypeId::VARIANT:
            return is_flat ? ReadVariant : ReadVariantOfValue;
        case LogicalTypeId::LIST:
        case LogicalTypeId::ARRAY:
        case LogicalTypeId::STRUCT:
        case LogicalTypeId::MAP:
        case LogicalTypeId::UNION:
            return NeedsNoGuard(type) ? ReadNested : ReadTextOfValue;
        default:
            return ReadTextOfValue;
    }
}

}  // namespace

struct CellReader::State {
    std::vector<Column> columns;
    idx_t row_count = 0;
    duckdb_data_chunk chunk = nullptr;
    Scratch scratch;
    /** Columns that the chunk holds in a compressed form, spread out. */
    std::vector<std::unique_ptr<duckdb::Vector>> spread;

    void Add(duckdb::Vector& vector, idx_t index) {
        const LogicalType& type = vector.GetType();
        Column column{FindReader(type), nullptr, nullptr, &type, 0, 0, chunk, index};
        if (column.read == nullptr) {
            const bool is_flat = vector.GetVectorType() == duckdb::VectorType::FLAT_VECTOR;
            column.validity = is_flat ? duckdb::FlatVector::Validity(vector).GetData() : nullptr;
            column.read = FindValueReader(type, is_flat);
            columns.push_back(column);
            return;
        }
        duckdb::Vector& flat = Spread(vector);
        column.data = duckdb::FlatVector::GetData(flat);
        column.validity = duckdb::FlatVector::Validity(flat).GetData();
        if (type.id() == LogicalTypeId::DECIMAL) {
            column.width = duckdb::DecimalType::GetWidth(type);
            column.scale = duckdb::DecimalType::GetScale(type);
        }
        columns.push_back(column);
    }

    duckdb::Vector& Spread(duckdb::Vector& vector) {
        if (vector.GetVectorType() == duckdb::VectorType::FLAT_VECTOR) {
            return vector;
        }
        spread.push_back(std::make_unique<duckdb::Vector>(vector.GetType(), nullptr));
        spread.back()->Reference(vector);
        spread.back()->Flatten(row_count);
        return *spread.back();
    }
};

CellReader::CellReader() noexcept = default;
CellReader::CellReader(CellReader&&) noexcept = default;
CellReader& CellReader::operator=(CellReader&&) noexcept = default;
CellReader::~CellReader() = default;

void CellReader::Bind(duckdb_data_chunk chunk) {
    if (!state_) {
        state_ = std::make_unique<State>();
    }
    state_->columns.clear();
    state_->spread.clear();
    state_->scratch.texts.clear();
    state_->row_count = 0;
    state_->chunk = chunk;
    if (chunk == nullptr) {
        return;
    }
    auto& data = *reinterpret_cast<duckdb::DataChunk*>(chunk);
    state_->row_count = data.size();
    state_->columns.reserve(data.ColumnCount());
    state_->scratch.texts.resize(data.ColumnCount());
    for (idx_t index = 0; index < data.ColumnCount(); ++index) {
        state_->Add(data.data[index], index);
    }
}

idx_t CellReader::get_RowCount() const noexcept {
    return state_ ? state_->row_count : 0;
}

idx_t CellReader::get_ColumnCount() const noexcept {
    return state_ ? state_->columns.size() : 0;
}

Cell CellReader::Read(idx_t column, idx_t row) noexcept {
    if (!state_ || column >= state_->columns.size() || row >= state_->row_count) {
        return {};
    }
    const Column& from = state_->columns[column];
    if (!from.IsValid(row)) {
        return {};
    }
    try {
        return from.read(from, state_->scratch, row);
    } catch (...) {
        return MakeBytes(Cell::Kind::text, {});
    }
}

ValueHolder CellReader::TakeValue(idx_t column, idx_t row) const noexcept {
    return ValueHolder(state_ ? duckdb_data_chunk_get_value(state_->chunk, column, row) : nullptr);
}

}  // namespace mduckdb
