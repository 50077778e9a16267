#include "procedures/cell_values.h"

#include <cstring>
#include <iterator>
#include <limits>

#include "base/holders.h"
#include "duckdb_internals/value_guard.h"
#include "procedures/packed_time.h"

namespace mduckdb {
namespace {

using Api = mirona_extension_api;

/** The cell as a T. Cells may be narrower or wider than their vector's own type, so this assumes neither an
    alignment nor a valid bool. */
template <class T>
T Load(const void* data, idx_t row) noexcept {
    T cell;
    std::memcpy(&cell, static_cast<const char*>(data) + row * sizeof(T), sizeof(T));
    return cell;
}

mirona_value PackNothing(const Api&, mirona_call, const void*, idx_t) {
    return nullptr;
}

mirona_value PackBool(const Api& api, mirona_call call, const void* data, idx_t row) {
    return api.make_bool_value(call, Load<std::uint8_t>(data, row) != 0 ? 1 : 0);
}

template <class T>
mirona_value PackSigned(const Api& api, mirona_call call, const void* data, idx_t row) {
    return api.make_int_value(call, Load<T>(data, row));
}

template <class T>
mirona_value PackUnsigned(const Api& api, mirona_call call, const void* data, idx_t row) {
    return api.make_uint_value(call, Load<T>(data, row));
}

template <class T>
mirona_value PackFloating(const Api& api, mirona_call call, const void* data, idx_t row) {
    return api.make_double_value(call, static_cast<double>(Load<T>(data, row)));
}

mirona_value PackTimestamp(const Api& api, mirona_call call, const void* data, idx_t row) {
    // The last number is infinity. DuckDB has no midnight for the first ones, which include minus infinity.
    constexpr std::int64_t kInfinity = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t kFirst = -(kInfinity / kMicrosPerDay) * kMicrosPerDay;
    const auto micros = Load<std::int64_t>(data, row);
    if (micros < kFirst || micros == kInfinity) {
        return nullptr;
    }
    std::int64_t days = micros / kMicrosPerDay;
    std::int64_t time = micros % kMicrosPerDay;
    if (time < 0) {
        --days;
        time += kMicrosPerDay;
    }
    const std::uint64_t date = PackDays(static_cast<std::int32_t>(days)).packed;
    return api.make_datetime_value(call, date << 32 | PackMicros(time));
}

mirona_value PackDate(const Api& api, mirona_call call, const void* data, idx_t row) {
    const PackedDate date = PackDays(Load<std::int32_t>(data, row));
    return date.is_packable ? api.make_date_value(call, date.packed) : nullptr;
}

mirona_value PackTime(const Api& api, mirona_call call, const void* data, idx_t row) {
    const auto micros = Load<std::int64_t>(data, row);
    return IsValidTime(micros) ? api.make_time_value(call, PackMicros(micros)) : nullptr;
}

struct Bytes {
    const char* data;
    std::uint32_t length;
};

/** `cell` must outlive the bytes: short ones stand inside it. */
Bytes GetBytes(const duckdb_string_t& cell) noexcept {
    constexpr std::uint32_t kInlined = sizeof(cell.value.inlined.inlined);
    const std::uint32_t length = cell.value.inlined.length;
    return {length <= kInlined ? cell.value.inlined.inlined : cell.value.pointer.ptr, length};
}

mirona_value PackBlob(const Api& api, mirona_call call, const void* data, idx_t row) {
    const Bytes bytes = GetBytes(static_cast<const duckdb_string_t*>(data)[row]);
    return api.make_blob_value(call, bytes.data, bytes.length, 0);
}

mirona_value PackText(const Api& api, mirona_call call, const void* data, idx_t row) {
    const Bytes bytes = GetBytes(static_cast<const duckdb_string_t*>(data)[row]);
    return api.make_text_value(call, bytes.data, bytes.length, 0);
}

/** By normalised type; the codes between them, which are never normalised types, have the packer of
    texts. */
constexpr CellPacker kPackers[] = {
    PackText,
    PackBool,
    PackSigned<std::int8_t>,
    PackSigned<std::int16_t>,
    PackSigned<std::int32_t>,
    PackSigned<std::int64_t>,
    PackUnsigned<std::uint8_t>,
    PackUnsigned<std::uint16_t>,
    PackUnsigned<std::uint32_t>,
    PackUnsigned<std::uint64_t>,
    PackFloating<float>,
    PackFloating<double>,
    PackTimestamp,
    PackDate,
    PackTime,
    PackText,
    PackText,
    PackText,
    PackBlob,
};
constexpr std::int32_t kLastPacker = DUCKDB_TYPE_BLOB;
static_assert(std::size(kPackers) == kLastPacker + 1);

}  // namespace

CellPacker ChooseCellPacker(std::int32_t normalised_type, CellStorage storage) noexcept {
    const bool has_packer = normalised_type >= 0 && normalised_type <= kLastPacker;
    const std::int32_t type = has_packer ? normalised_type : static_cast<std::int32_t>(DUCKDB_TYPE_VARCHAR);
    const CellPacker packer = kPackers[type];
    if (packer == &PackText || packer == &PackBlob) {
        return storage.is_string ? packer : &PackNothing;
    }
    return storage.width >= GetCellStorage(type).width ? packer : &PackNothing;
}

CellStorage GetColumnStorage(duckdb_result& result, idx_t column) {
    const duckdb_type type = duckdb_column_type(&result, column);
    if (type != DUCKDB_TYPE_DECIMAL) {
        return GetCellStorage(static_cast<std::int32_t>(type));
    }
    const LogicalTypeHolder decimal(duckdb_column_logical_type(&result, column));
    return GetCellStorage(static_cast<std::int32_t>(duckdb_decimal_internal_type(decimal.get())));
}

}  // namespace mduckdb
