#include "duckdb_internals/column_array.h"

#include <algorithm>
#include <cstring>
#include <duckdb/common/types/value.hpp>
#include <limits>
#include <string_view>
#include <vector>

#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/powers_of_ten.h"
#include "duckdb_internals/value_guard.h"

namespace mduckdb {
namespace {

using nbx::mrsql::DuckDBBytes;
using nbx::mrsql::DuckDBColumnArray;

constexpr const char* kNotAllowed = "The value is not valid for its type";
constexpr uint8_t kWidestDecimal = 38;

/** Elements of an array that are stored in one go. */
struct Part {
    const DuckDBColumnArray& array;
    uint64_t first;
    idx_t count;

    bool IsNull(idx_t i) const {
        const uint64_t place = first + i;
        return array.validity != nullptr && (array.validity[place / 64] >> (place % 64) & 1U) == 0;
    }
    template <class Element>
    const Element* get_Elements() const {
        return static_cast<const Element*>(array.data) + first;
    }
};

/** Stores the elements in a column of their own type; returns how many are valid and were stored. */
using StoreElements = idx_t (*)(ColumnWriter& column, idx_t row, const Part& part);

template <class Element>
bool IsAnything(const DuckDBColumnArray& /*array*/, const Element& /*element*/) {
    return true;
}

/** Copies all elements at once, after a check of those that are not NULL. */
template <class Element, bool (*IsValid)(const DuckDBColumnArray&, const Element&)>
idx_t CopyElements(ColumnWriter& column, idx_t row, const Part& part) {
    const Element* const elements = part.get_Elements<Element>();
    idx_t valid = part.count;
    if constexpr (IsValid != &IsAnything<Element>) {
        // Most arrays are valid, which a loop without branches finds out.
        bool are_all_valid = true;
        for (idx_t i = 0; i < part.count; ++i) {
            are_all_valid &= IsValid(part.array, elements[i]);
        }
        for (idx_t i = 0; !are_all_valid && i < valid; ++i) {
            if (!IsValid(part.array, elements[i]) && !part.IsNull(i)) {
                valid = i;
            }
        }
    }
    std::memcpy(static_cast<Element*>(column.get_Data()) + row, elements, valid * sizeof(Element));
    return valid;
}

idx_t CopyBooleans(ColumnWriter& column, idx_t row, const Part& part) {
    const auto* const elements = part.get_Elements<uint8_t>();
    auto* const slots = static_cast<uint8_t*>(column.get_Data()) + row;
    for (idx_t i = 0; i < part.count; ++i) {
        slots[i] = elements[i] != 0 ? 1 : 0;
    }
    return part.count;
}

template <bool (*Store)(ColumnWriter& column, idx_t row, const DuckDBBytes& bytes)>
idx_t CopyBytes(ColumnWriter& column, idx_t row, const Part& part) {
    const auto* const elements = part.get_Elements<DuckDBBytes>();
    for (idx_t i = 0; i < part.count; ++i) {
        if (part.IsNull(i)) {
            continue;
        }
        const DuckDBBytes& bytes = elements[i];
        if ((bytes.data == nullptr && bytes.length > 0) ||
            bytes.length > std::numeric_limits<uint32_t>::max() || !Store(column, row + i, bytes)) {
            return i;
        }
    }
    return part.count;
}

bool StoreText(ColumnWriter& column, idx_t row, const DuckDBBytes& bytes) {
    return duckdb::Value::StringIsValid(bytes.data, bytes.length) &&
           column.PutText(row, std::string_view(bytes.data, bytes.length));
}

bool StoreBlob(ColumnWriter& column, idx_t row, const DuckDBBytes& bytes) {
    return column.PutBlob(row, bytes.data, bytes.length);
}

bool StoreBit(ColumnWriter& column, idx_t row, const DuckDBBytes& bytes) {
    const auto* const data = reinterpret_cast<const uint8_t*>(bytes.data);
    if (!IsValidBit(data, bytes.length)) {
        return false;
    }
    const ValueHolder value(duckdb_create_bit(duckdb_bit{const_cast<uint8_t*>(data), bytes.length}));
    std::string ignored;
    return value && column.PutValue(row, value.get(), ignored);
}

bool IsTime(const DuckDBColumnArray& /*array*/, const int64_t& micros) {
    return IsValidTime(micros);
}
bool IsTimeNs(const DuckDBColumnArray& /*array*/, const int64_t& nanos) {
    return IsValidTimeNs(nanos);
}
bool IsTimeTz(const DuckDBColumnArray& /*array*/, const uint64_t& bits) {
    return IsValidTimeTzBits(bits);
}

/** As `IsValidDecimal`, for a width that `FindStore` has checked. */
template <class Number>
bool IsDecimal(const DuckDBColumnArray& array, const Number& number) {
    const int64_t bound = kPowersOfTen<int64_t>[array.width];
    return -bound < number && number < bound;
}
bool IsWideDecimal(const DuckDBColumnArray& array, const duckdb_hugeint& number) {
    return IsValidDecimal(array.width, array.scale, number);
}

template <class Element>
constexpr StoreElements kCopy = CopyElements<Element, IsAnything<Element>>;

/** The types that an array may have. */
constexpr struct {
    duckdb_type type;
    StoreElements store;
} kArrayTypes[] = {
    {DUCKDB_TYPE_BOOLEAN, CopyBooleans},
    {DUCKDB_TYPE_TINYINT, kCopy<int8_t>},
    {DUCKDB_TYPE_SMALLINT, kCopy<int16_t>},
    {DUCKDB_TYPE_INTEGER, kCopy<int32_t>},
    {DUCKDB_TYPE_BIGINT, kCopy<int64_t>},
    {DUCKDB_TYPE_UTINYINT, kCopy<uint8_t>},
    {DUCKDB_TYPE_USMALLINT, kCopy<uint16_t>},
    {DUCKDB_TYPE_UINTEGER, kCopy<uint32_t>},
    {DUCKDB_TYPE_UBIGINT, kCopy<uint64_t>},
    {DUCKDB_TYPE_HUGEINT, kCopy<duckdb_hugeint>},
    {DUCKDB_TYPE_UHUGEINT, kCopy<duckdb_uhugeint>},
    {DUCKDB_TYPE_FLOAT, kCopy<float>},
    {DUCKDB_TYPE_DOUBLE, kCopy<double>},
    {DUCKDB_TYPE_DATE, kCopy<int32_t>},
    {DUCKDB_TYPE_TIME, CopyElements<int64_t, IsTime>},
    {DUCKDB_TYPE_TIME_NS, CopyElements<int64_t, IsTimeNs>},
    {DUCKDB_TYPE_TIME_TZ, CopyElements<uint64_t, IsTimeTz>},
    {DUCKDB_TYPE_TIMESTAMP, kCopy<int64_t>},
    {DUCKDB_TYPE_TIMESTAMP_S, kCopy<int64_t>},
    {DUCKDB_TYPE_TIMESTAMP_MS, kCopy<int64_t>},
    {DUCKDB_TYPE_TIMESTAMP_NS, kCopy<int64_t>},
    {DUCKDB_TYPE_TIMESTAMP_TZ, kCopy<int64_t>},
    {DUCKDB_TYPE_INTERVAL, kCopy<duckdb_interval>},
    {DUCKDB_TYPE_UUID, kCopy<duckdb_hugeint>},
    {DUCKDB_TYPE_VARCHAR, CopyBytes<StoreText>},
    {DUCKDB_TYPE_BLOB, CopyBytes<StoreBlob>},
    {DUCKDB_TYPE_BIT, CopyBytes<StoreBit>},
};

StoreElements FindDecimalStore(uint8_t width) {
    constexpr uint8_t kWidest16 = 4;
    constexpr uint8_t kWidest32 = 9;
    constexpr uint8_t kWidest64 = 18;
    if (width <= kWidest16) {
        return CopyElements<int16_t, IsDecimal<int16_t>>;
    }
    if (width <= kWidest32) {
        return CopyElements<int32_t, IsDecimal<int32_t>>;
    }
    return width <= kWidest64 ? CopyElements<int64_t, IsDecimal<int64_t>>
                              : CopyElements<duckdb_hugeint, IsWideDecimal>;
}

/** Null for a type that an array cannot have. */
StoreElements FindStore(const DuckDBColumnArray& array) {
    if (array.type == DUCKDB_TYPE_DECIMAL) {
        const bool is_decimal =
            array.width >= 1 && array.width <= kWidestDecimal && array.scale <= array.width;
        return is_decimal ? FindDecimalStore(array.width) : nullptr;
    }
    for (const auto& row : kArrayTypes) {
        if (row.type == static_cast<duckdb_type>(array.type)) {
            return row.store;
        }
    }
    return nullptr;
}

bool IsOfBytes(const DuckDBColumnArray& array) {
    return array.type == DUCKDB_TYPE_VARCHAR || array.type == DUCKDB_TYPE_BLOB ||
           array.type == DUCKDB_TYPE_BIT;
}

bool HasTypeOf(const ColumnWriter& column, const DuckDBColumnArray& array) {
    if (static_cast<uint32_t>(column.get_Plain()) != array.type) {
        return false;
    }
    return array.type != DUCKDB_TYPE_DECIMAL || (duckdb_decimal_width(column.get_Type()) == array.width &&
                                                 duckdb_decimal_scale(column.get_Type()) == array.scale);
}

/** The bytes of the texts, or more: a NULL has a length too, which means nothing. Exact enough for limits
   below 4 GiB, to which each length is cut, so that the sum stays in range. */
uint64_t SumOfLengths(const std::vector<Part>& parts) {
    constexpr uint64_t kLongest = uint64_t{1} << 32U;
    uint64_t sum = 0;
    for (const Part& part : parts) {
        const auto* const elements = part.get_Elements<DuckDBBytes>();
        for (idx_t i = 0; i < part.count; ++i) {
            sum += std::min(elements[i].length, kLongest);
        }
    }
    return sum;
}

LogicalTypeHolder TypeOf(const DuckDBColumnArray& array) {
    return array.type == DUCKDB_TYPE_DECIMAL
               ? LogicalTypeHolder(duckdb_create_decimal_type(array.width, array.scale))
               : MakeType(static_cast<duckdb_type>(array.type));
}

idx_t StoreInOwnType(ColumnWriter& column, idx_t row, const Part& part, std::string& error) {
    const idx_t stored = FindStore(part.array)(column, row, part);
    for (idx_t i = 0; part.array.validity != nullptr && i < stored; ++i) {
        if (part.IsNull(i)) {
            column.PutNull(row + i);
        }
    }
    if (stored < part.count) {
        error = part.array.type == DUCKDB_TYPE_VARCHAR ? "The text is not valid UTF-8" : kNotAllowed;
    }
    return stored;
}

}  // namespace

std::string RefuseArray(const DuckDBColumnArray& array) {
    if (FindStore(array) == nullptr) {
        return "An array cannot have the type " + std::to_string(array.type);
    }
    return array.data == nullptr ? "The array has no elements" : "";
}

idx_t CountRowsOf(const DuckDBColumnArray* columns, std::size_t column_count, uint64_t first, idx_t count,
                  uint64_t bytes) {
    std::vector<Part> parts;
    for (std::size_t i = 0; i < column_count; ++i) {
        if (IsOfBytes(columns[i])) {
            parts.push_back({columns[i], first, count});
        }
    }
    if (SumOfLengths(parts) <= bytes) {
        return count;
    }
    uint64_t sum = 0;
    for (idx_t row = 0; row < count; ++row) {
        for (const Part& part : parts) {
            sum += part.IsNull(row) ? 0 : part.get_Elements<DuckDBBytes>()[row].length;
        }
        if (sum > bytes) {
            return std::max<idx_t>(row, 1);
        }
    }
    return count;
}

idx_t StoreArray(ColumnWriter& column, idx_t row, const DuckDBColumnArray& array, uint64_t first, idx_t count,
                 std::string& error) {
    const Part part{array, first, count};
    if (HasTypeOf(column, array)) {
        return StoreInOwnType(column, row, part, error);
    }
    ColumnWriter::Source source(column, TypeOf(array), count);
    const idx_t valid = StoreInOwnType(source.get_Writer(), 0, part, error);
    std::string cast_error;
    const idx_t cast = column.PutVector(row, source.get_Writer().get_Vector(), valid, cast_error);
    if (cast < valid) {
        error = cast_error;
    }
    return cast;
}

}  // namespace mduckdb
