#include "duckdb_internals/value_guard.h"

#include <duckdb/common/type_visitor.hpp>
#include <duckdb/common/types/hugeint.hpp>
#include <duckdb/common/types/variant.hpp>
#include <duckdb/common/types/vector.hpp>
#include <duckdb/function/scalar/variant_utils.hpp>

#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/version_differences.h"

namespace mduckdb {

namespace {

using duckdb::LogicalTypeId;
using duckdb::Value;

constexpr int64_t kNanosPerDay = kMicrosPerDay * 1000;
constexpr int32_t kLargestOffset = 16 * 60 * 60 - 1;
constexpr uint8_t kWidestDecimal = 38;
constexpr uint8_t kMostBitPadding = 7;
constexpr idx_t kBignumHeader = 3;

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
        case duckdb::PhysicalType::LIST:
            return AreReadable(duckdb::ListValue::GetChildren(value));
        case duckdb::PhysicalType::ARRAY:
            return AreReadable(duckdb::ArrayValue::GetChildren(value));
        case duckdb::PhysicalType::STRUCT:
            return AreReadable(duckdb::StructValue::GetChildren(value));
        default:  // a number or bytes
            return true;
    }
}

/** DuckDB also reads a number with more digits than the width, which files of other programs contain. It
    cannot format one without a place before the point, nor the one that has no opposite. */
bool IsReadableDecimal(const Value& value) {
    const duckdb::hugeint_t number = duckdb::IntegralValue::Get(value);
    const uint8_t width = duckdb::DecimalType::GetWidth(value.type());
    const uint8_t scale = duckdb::DecimalType::GetScale(value.type());
    const bool has_opposite = number != duckdb::NumericLimits<duckdb::hugeint_t>::Minimum();
    return (scale < width && has_opposite) || IsValidDecimal(width, scale, {number.lower, number.upper});
}

bool IsReadableVariant(const Value& value) {
    duckdb::Vector vector = version::MakeVector(value);
    duckdb::RecursiveUnifiedVectorFormat format;
    version::ToUnifiedFormat(vector, 1, format);
    return IsReadable(
        duckdb::VariantUtils::ConvertVariantToValue(duckdb::UnifiedVariantVectorData(format), 0, 0));
}

template <bool (*IsValid)(const uint8_t*, idx_t)>
bool IsReadableBytes(const Value& value) {
    const auto& bytes = duckdb::StringValue::Get(value);
    return IsValid(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
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
            return IsReadableDecimal(value);
        case LogicalTypeId::BIT:
            return IsReadableBytes<IsValidBit>(value);
        case LogicalTypeId::BIGNUM:
            return IsReadableBytes<IsValidStoredBignum>(value);
        case LogicalTypeId::VARIANT:
            // DuckDB would read the missing parts of an incomplete VARIANT type.
            return version::HasTypeInfo(value.type()) && IsReadableVariant(value);
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

bool IsValidBit(const uint8_t* data, idx_t size) noexcept {
    return data != nullptr && size >= 2 && data[0] <= kMostBitPadding;
}

bool IsValidBignum(const uint8_t* data, idx_t size) noexcept {
    return data != nullptr && size > 0;
}

bool IsValidStoredBignum(const uint8_t* data, idx_t size) noexcept {
    return data != nullptr && size > kBignumHeader;
}

bool IsReadable(duckdb_value value) {
    try {
        return value == nullptr || IsReadable(*reinterpret_cast<const Value*>(value));
    } catch (...) {
        ThrowIfOutOfMemory();
        return false;
    }
}

bool IsEveryValueReadable(const duckdb::LogicalType& type) {
    return !duckdb::TypeVisitor::Contains(
        type, [](const duckdb::LogicalType& part) { return !HasReadableValues(part.id()); });
}

}  // namespace mduckdb
