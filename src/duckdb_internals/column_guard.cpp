#include "duckdb_internals/column_guard.h"

#include <duckdb/common/type_visitor.hpp>
#include <duckdb/common/types/vector.hpp>
#include <duckdb/common/vector_operations/vector_operations.hpp>
#include <vector>

#include "duckdb_internals/value_guard.h"
#include "duckdb_internals/version_differences.h"
#include "duckdb_internals/version_vectors.h"

namespace mduckdb {
namespace {

using duckdb::FlatVector;
using duckdb::LogicalType;
using duckdb::LogicalTypeId;
using duckdb::PhysicalType;
using duckdb::Vector;

/** Finds the rows of a column that hold a value which DuckDB must not convert to text. */
class Finder {
  public:
    /** A bit for each row; none when no row is found. */
    using Rows = std::vector<bool>;

    explicit Finder(TextParts parts) : parts_(parts) {}

    Rows Find(Vector& vector, idx_t count);
    /** Whether a value was found, also one that belongs to no row, such as an element of a list that is
        NULL. */
    bool get_IsFound() const noexcept { return is_found_; }

  private:
    bool IsSafe(const LogicalType& type) const {
        return parts_ == TextParts::all ? IsEveryValueReadable(type)
                                        : !duckdb::TypeVisitor::Contains(type, LogicalTypeId::VARIANT);
    }
    template <class IsReadableRow>
    Rows FindRows(Vector& vector, idx_t count, IsReadableRow is_readable) {
        const auto& validity = FlatVector::Validity(vector);
        Rows found;
        for (idx_t row = 0; row < count; ++row) {
            if (validity.RowIsValid(row) && !is_readable(row)) {
                found.resize(count);
                found[row] = true;
                is_found_ = true;
            }
        }
        return found;
    }
    template <class T, class IsReadableCell>
    Rows FindCells(Vector& vector, idx_t count, IsReadableCell is_readable) {
        const T* const cells = FlatVector::GetData<T>(vector);
        return FindRows(vector, count, [&](idx_t row) { return is_readable(cells[row]); });
    }
    template <class T>
    Rows FindDecimals(Vector& vector, idx_t count);
    Rows FindVariants(Vector& vector, idx_t count);
    Rows FindLists(Vector& vector, idx_t count);
    Rows FindArrays(Vector& vector, idx_t count);
    Rows FindStructs(Vector& vector, idx_t count);
    Rows FindNested(Vector& vector, idx_t count);

    TextParts parts_;
    bool is_found_ = false;
};

template <class T>
Finder::Rows Finder::FindDecimals(Vector& vector, idx_t count) {
    const uint8_t width = duckdb::DecimalType::GetWidth(vector.GetType());
    const uint8_t scale = duckdb::DecimalType::GetScale(vector.GetType());
    return FindCells<T>(vector, count,
                        [&](const T& number) { return IsReadableDecimal(width, scale, Widen(number)); });
}

Finder::Rows Finder::FindVariants(Vector& vector, idx_t count) {
    Rows found = FindUnreadableVariants(vector, count);
    is_found_ = is_found_ || !found.empty();
    return found;
}

Finder::Rows Finder::FindLists(Vector& vector, idx_t count) {
    const Rows elements = Find(version::ListChild(vector), duckdb::ListVector::GetListSize(vector));
    if (elements.empty()) {
        return {};
    }
    return FindCells<duckdb::list_entry_t>(vector, count, [&](const duckdb::list_entry_t& list) {
        for (idx_t i = 0; i < list.length; ++i) {
            if (elements[list.offset + i]) {
                return false;
            }
        }
        return true;
    });
}

Finder::Rows Finder::FindArrays(Vector& vector, idx_t count) {
    const idx_t size = duckdb::ArrayType::GetSize(vector.GetType());
    const Rows elements = Find(version::ArrayChild(vector), count * size);
    Rows found;
    for (idx_t i = 0; i < elements.size(); ++i) {
        found.resize(count);
        found[i / size] = found[i / size] || elements[i];
    }
    return found;
}

/** Rows that are NULL too, since DuckDB copies and casts their fields like any other. */
Finder::Rows Finder::FindStructs(Vector& vector, idx_t count) {
    Rows found;
    for (idx_t field = 0; field < duckdb::StructType::GetChildCount(vector.GetType()); ++field) {
        const Rows fields = Find(version::StructChild(vector, field), count);
        for (idx_t row = 0; row < fields.size(); ++row) {
            found.resize(count);
            found[row] = found[row] || fields[row];
        }
    }
    return found;
}

/** By how DuckDB stores the values, as `IsReadable` does. */
Finder::Rows Finder::FindNested(Vector& vector, idx_t count) {
    switch (vector.GetType().InternalType()) {
        case PhysicalType::LIST:
            return FindLists(vector, count);
        case PhysicalType::ARRAY:
            return FindArrays(vector, count);
        case PhysicalType::STRUCT:
            return FindStructs(vector, count);
        default:
            return {};
    }
}

Finder::Rows Finder::Find(Vector& vector, idx_t count) {
    if (IsSafe(vector.GetType())) {
        return {};
    }
    version::Flatten(vector, count);
    switch (vector.GetType().id()) {
        case LogicalTypeId::TIME:
            return FindCells<duckdb::dtime_t>(
                vector, count, [](duckdb::dtime_t time) { return IsValidTime(version::UnitsOf(time)); });
        case LogicalTypeId::TIME_NS:
            return FindCells<duckdb::dtime_ns_t>(
                vector, count, [](duckdb::dtime_ns_t time) { return IsValidTimeNs(version::UnitsOf(time)); });
        case LogicalTypeId::TIME_TZ:
            return FindCells<duckdb::dtime_tz_t>(
                vector, count, [](duckdb::dtime_tz_t time) { return IsValidTimeTzBits(time.bits); });
        case LogicalTypeId::BIT:
            return FindCells<duckdb::string_t>(
                vector, count, [](const duckdb::string_t& stored) { return IsValidBit(stored); });
        case LogicalTypeId::BIGNUM:
            return FindCells<duckdb::string_t>(
                vector, count, [](const duckdb::string_t& stored) { return IsValidStoredBignum(stored); });
        case LogicalTypeId::VARIANT:
            return FindVariants(vector, count);
        case LogicalTypeId::DECIMAL:
            break;
        default:
            return FindNested(vector, count);
    }
    switch (vector.GetType().InternalType()) {
        case PhysicalType::INT16:
            return FindDecimals<int16_t>(vector, count);
        case PhysicalType::INT32:
            return FindDecimals<int32_t>(vector, count);
        case PhysicalType::INT64:
            return FindDecimals<int64_t>(vector, count);
        default:
            return FindDecimals<duckdb::hugeint_t>(vector, count);
    }
}

}  // namespace

std::unique_ptr<Vector> HideUnreadable(Vector& column, idx_t count, TextParts parts) {
    Finder finder(parts);
    Finder::Rows hidden = finder.Find(column, count);
    if (!finder.get_IsFound()) {
        return nullptr;
    }
    hidden.resize(count);
    // A copy leaves out elements that belong to no row.
    auto kept = std::make_unique<Vector>(column.GetType(), count);
    const Vector null = version::MakeVector(duckdb::Value(column.GetType()));
    for (idx_t row = 0; row < count; ++row) {
        if (hidden[row]) {
            duckdb::VectorOperations::Copy(null, *kept, 1, 0, row);
        } else {
            duckdb::VectorOperations::Copy(column, *kept, row + 1, row, row);
        }
    }
    version::SetVectorSize(*kept, count);
    return kept;
}

}  // namespace mduckdb
