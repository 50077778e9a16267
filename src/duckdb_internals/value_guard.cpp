#include "duckdb_internals/value_guard.h"

#include <algorithm>
#include <duckdb/common/type_visitor.hpp>
#include <duckdb/common/types/hugeint.hpp>
#include <duckdb/common/types/variant.hpp>
#include <duckdb/common/types/vector.hpp>
#include <duckdb/function/scalar/variant_utils.hpp>
#include <limits>
#include <optional>

#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/version_differences.h"
#include "duckdb_internals/version_vectors.h"

namespace mduckdb {

namespace {

using duckdb::LogicalTypeId;
using duckdb::PhysicalType;
using duckdb::Value;

constexpr int64_t kNanosPerDay = kMicrosPerDay * 1000;
constexpr int32_t kLargestOffset = 16 * 60 * 60 - 1;
constexpr uint8_t kWidestDecimal = 38;
constexpr uint8_t kMostBitPadding = 7;
constexpr idx_t kBignumHeader = 3;

bool IsReadableDecimalPart(const duckdb::VariantDecimalData& decimal) {
    const auto width = static_cast<uint8_t>(decimal.width);
    const auto scale = static_cast<uint8_t>(decimal.scale);
    switch (decimal.GetPhysicalType()) {
        case PhysicalType::INT16:
            return IsReadableDecimal(width, scale, Widen(duckdb::Load<int16_t>(decimal.value_ptr)));
        case PhysicalType::INT32:
            return IsReadableDecimal(width, scale, Widen(duckdb::Load<int32_t>(decimal.value_ptr)));
        case PhysicalType::INT64:
            return IsReadableDecimal(width, scale, Widen(duckdb::Load<int64_t>(decimal.value_ptr)));
        default:
            return IsReadableDecimal(width, scale, Widen(duckdb::Load<duckdb::hugeint_t>(decimal.value_ptr)));
    }
}

/** VARIANTs of rows that are not NULL. Reads the kinds of their parts directly from DuckDB's vector, because
    DuckDB's functions would look up the row again for each part. */
class Variants {
  public:
    Variants(duckdb::Vector& vector, idx_t count)
        : format_(vector, count),
          data_(format_.unified),
          kinds_(duckdb::UnifiedVariantVector::GetValuesTypeId(format_.unified)) {}

    bool IsReadable(idx_t row) const {
        const duckdb::list_entry_t parts = data_.GetValuesListEntry(row);
        for (uint32_t part = 0; part < parts.length; ++part) {
            const idx_t place = kinds_.sel->get_index(parts.offset + part);
            if (!IsReadablePart(row, part, static_cast<Kind>(kinds_.data[place]))) {
                return false;
            }
        }
        return true;
    }

  private:
    using Kind = duckdb::VariantLogicalType;

    bool IsReadablePart(idx_t row, uint32_t part, Kind kind) const;

    struct Format {
        Format(duckdb::Vector& vector, idx_t count) { version::ToUnifiedFormat(vector, count, unified); }
        duckdb::RecursiveUnifiedVectorFormat unified;
    };

    const Format format_;
    const duckdb::UnifiedVariantVectorData data_;
    const duckdb::UnifiedVectorFormat& kinds_;
};

bool Variants::IsReadablePart(idx_t row, uint32_t part, Kind kind) const {
    const auto bytes = [&] {
        return duckdb::const_data_ptr_cast(data_.GetData(row).GetData()) + data_.GetByteOffset(row, part);
    };
    switch (kind) {
        case Kind::TIME_MICROS:
            return IsValidTime(version::UnitsOf(duckdb::Load<duckdb::dtime_t>(bytes())));
        case Kind::TIME_NANOS:
            return IsValidTimeNs(version::UnitsOf(duckdb::Load<duckdb::dtime_ns_t>(bytes())));
        case Kind::TIME_MICROS_TZ:
            return IsValidTimeTzBits(duckdb::Load<duckdb::dtime_tz_t>(bytes()).bits);
        case Kind::DECIMAL:
            return IsReadableDecimalPart(duckdb::VariantUtils::DecodeDecimalData(data_, row, part));
        case Kind::BITSTRING:
            return IsValidBit(duckdb::VariantUtils::DecodeStringData(data_, row, part));
        case Kind::BIGNUM:
            return IsValidStoredBignum(duckdb::VariantUtils::DecodeStringData(data_, row, part));
        default:  // an object or a list, whose parts are in the same sequence, or a value without a guard
            return true;
    }
}

/** Whether `IsReadablePart` looks at parts of the kind. */
constexpr bool IsGuarded(duckdb::VariantLogicalType kind) {
    using Kind = duckdb::VariantLogicalType;
    switch (kind) {
        case Kind::TIME_MICROS:
        case Kind::TIME_NANOS:
        case Kind::TIME_MICROS_TZ:
        case Kind::DECIMAL:
        case Kind::BITSTRING:
        case Kind::BIGNUM:
            return true;
        default:
            return false;
    }
}

/** Whether the rows have a part that must be looked at. Goes over the kinds of all parts, whichever rows
    they belong to: quicker than a look at each row. */
bool MayBeUnreadable(duckdb::Vector& variants) {
    constexpr idx_t kPartsField = 2;  // of keys, children, parts and data
    constexpr idx_t kKindField = 0;
    duckdb::Vector& parts = version::StructChild(variants, kPartsField);
    duckdb::Vector& all_parts = version::ListChild(parts);
    duckdb::Vector& kinds = version::StructChild(all_parts, kKindField);
    for (const duckdb::Vector* vector : {&variants, &parts, &all_parts, &kinds}) {
        if (vector->GetVectorType() != duckdb::VectorType::FLAT_VECTOR) {
            return true;
        }
    }
    const auto* const first = duckdb::FlatVector::GetData<uint8_t>(kinds);
    return std::any_of(first, first + duckdb::ListVector::GetListSize(parts),
                       [](uint8_t kind) { return IsGuarded(static_cast<duckdb::VariantLogicalType>(kind)); });
}

bool IsReadable(const Value& value);

bool AreReadable(const duckdb::vector<Value>& values) {
    for (const auto& value : values) {
        if (!IsReadable(value)) {
            return false;
        }
    }
    return true;
}

/** By how DuckDB stores the value, so that a nested type which a later version adds is looked into as well.
 */
bool AreReadableChildren(const Value& value) {
    switch (value.type().InternalType()) {
        case PhysicalType::LIST:
            return AreReadable(duckdb::ListValue::GetChildren(value));
        case PhysicalType::ARRAY:
            return AreReadable(duckdb::ArrayValue::GetChildren(value));
        case PhysicalType::STRUCT:
            return AreReadable(duckdb::StructValue::GetChildren(value));
        default:  // a number or bytes
            return true;
    }
}

bool IsReadableDecimalValue(const Value& value) {
    return IsReadableDecimal(duckdb::DecimalType::GetWidth(value.type()),
                             duckdb::DecimalType::GetScale(value.type()),
                             Widen(duckdb::IntegralValue::Get(value)));
}

bool IsReadableVariantValue(const Value& value) {
    duckdb::Vector vector = version::MakeVector(value);
    return Variants(vector, 1).IsReadable(0);
}

bool IsReadable(const Value& value) {
    if (value.IsNull()) {
        return true;
    }
    switch (value.type().id()) {
        case LogicalTypeId::TIME:
            return IsValidTime(version::UnitsOf(value.GetValueUnsafe<duckdb::dtime_t>()));
        case LogicalTypeId::TIME_NS:
            return IsValidTimeNs(version::UnitsOf(value.GetValueUnsafe<duckdb::dtime_ns_t>()));
        case LogicalTypeId::TIME_TZ:
            return IsValidTimeTzBits(value.GetValueUnsafe<duckdb::dtime_tz_t>().bits);
        case LogicalTypeId::DECIMAL:
            return IsReadableDecimalValue(value);
        case LogicalTypeId::BIT:
            return IsValidBit(duckdb::string_t(duckdb::StringValue::Get(value)));
        case LogicalTypeId::BIGNUM:
            return IsValidStoredBignum(duckdb::string_t(duckdb::StringValue::Get(value)));
        case LogicalTypeId::VARIANT:
            // DuckDB would read the missing parts of an incomplete VARIANT type.
            return version::HasTypeInfo(value.type()) && IsReadableVariantValue(value);
        default:
            return AreReadableChildren(value);
    }
}

/** Without the parts of a nested type. False for types that this list does not know, such as those of a later
    DuckDB. */
bool HasReadableValues(LogicalTypeId type) {
    switch (type) {
        case LogicalTypeId::SQLNULL:
        case LogicalTypeId::BOOLEAN:
        case LogicalTypeId::TINYINT:
        case LogicalTypeId::SMALLINT:
        case LogicalTypeId::INTEGER:
        case LogicalTypeId::BIGINT:
        case LogicalTypeId::HUGEINT:
        case LogicalTypeId::UTINYINT:
        case LogicalTypeId::USMALLINT:
        case LogicalTypeId::UINTEGER:
        case LogicalTypeId::UBIGINT:
        case LogicalTypeId::UHUGEINT:
        case LogicalTypeId::FLOAT:
        case LogicalTypeId::DOUBLE:
        case LogicalTypeId::VARCHAR:
        case LogicalTypeId::BLOB:
        case LogicalTypeId::UUID:
        case LogicalTypeId::ENUM:
        case LogicalTypeId::GEOMETRY:
        case LogicalTypeId::DATE:
        case LogicalTypeId::TIMESTAMP:
        case LogicalTypeId::TIMESTAMP_SEC:
        case LogicalTypeId::TIMESTAMP_MS:
        case LogicalTypeId::TIMESTAMP_NS:
        case LogicalTypeId::TIMESTAMP_TZ:
        case LogicalTypeId::INTERVAL:
        case LogicalTypeId::LIST:
        case LogicalTypeId::ARRAY:
        case LogicalTypeId::MAP:
        case LogicalTypeId::UNION:
            return true;
        default:
            return version::IsStruct(type);
    }
}

}  // namespace

bool IsValidTimeNs(int64_t nanos) noexcept {
    return nanos >= 0 && nanos <= kNanosPerDay;
}

bool IsValidTimeTz(int64_t micros, int32_t offset) noexcept {
    return IsValidTime(micros) && offset >= -kLargestOffset && offset <= kLargestOffset;
}

bool IsValidTimeTzBits(uint64_t bits) noexcept {
    const duckdb::dtime_tz_t time(bits);
    return IsValidTimeTz(version::UnitsOf(time.time()), time.offset());
}

bool IsValidDecimal(uint8_t width, uint8_t scale, duckdb_hugeint value) noexcept {
    if (width < 1 || width > kWidestDecimal || scale > width) {
        return false;
    }
    const duckdb::hugeint_t number(value.upper, value.lower);
    const duckdb::hugeint_t& bound = duckdb::Hugeint::POWERS_OF_TEN[width];
    return number < bound && -bound < number;
}

duckdb_hugeint Widen(const duckdb::hugeint_t& number) noexcept {
    return {number.lower, number.upper};
}

bool IsReadableDecimal(uint8_t width, uint8_t scale, duckdb_hugeint value) noexcept {
    const bool has_opposite = value.lower != 0 || value.upper != std::numeric_limits<int64_t>::min();
    return (scale < width && has_opposite) || IsValidDecimal(width, scale, value);
}

bool IsValidBit(const uint8_t* data, idx_t size) noexcept {
    return data != nullptr && size >= 2 && data[0] <= kMostBitPadding;
}

bool IsValidBignum(const uint8_t* data, idx_t size) noexcept {
    return data != nullptr && size > 0;
}

bool IsValidStoredBignum(const uint8_t* data, idx_t size) noexcept {
    return data != nullptr && size > kBignumHeader;
}

bool IsValidBit(const duckdb::string_t& stored) noexcept {
    return IsValidBit(duckdb::const_data_ptr_cast(stored.GetData()), stored.GetSize());
}

bool IsValidStoredBignum(const duckdb::string_t& stored) noexcept {
    return IsValidStoredBignum(duckdb::const_data_ptr_cast(stored.GetData()), stored.GetSize());
}

bool IsReadable(duckdb_value value) {
    try {
        return value == nullptr || IsReadable(*reinterpret_cast<const Value*>(value));
    } catch (...) {
        ThrowIfOutOfMemory();
        return false;
    }
}

std::vector<bool> FindUnreadableVariants(duckdb::Vector& variants, idx_t count) {
    std::vector<bool> found;
    const bool is_complete = version::HasTypeInfo(variants.GetType());
    if (is_complete && !MayBeUnreadable(variants)) {
        return found;
    }
    std::optional<Variants> readable;
    if (is_complete) {
        readable.emplace(variants, count);
    }
    for (idx_t row = 0; row < count; ++row) {
        if (!duckdb::FlatVector::IsNull(variants, row) && !(readable && readable->IsReadable(row))) {
            found.resize(count);
            found[row] = true;
        }
    }
    return found;
}

bool IsEveryValueReadable(const duckdb::LogicalType& type) {
    return !duckdb::TypeVisitor::Contains(
        type, [](const duckdb::LogicalType& part) { return !HasReadableValues(part.id()); });
}

}  // namespace mduckdb
