#include "duckdb_internals/quick_casts.h"

#include <cmath>
#include <duckdb/common/types/date.hpp>
#include <duckdb/common/types/string_type.hpp>
#include <duckdb/function/cast/cast_function_set.hpp>
#include <duckdb/function/cast/default_casts.hpp>

#include "duckdb_internals/powers_of_ten.h"
#include "duckdb_internals/version_casts.h"

namespace mduckdb {
namespace {

/** For widths up to 18. DuckDB multiplies and rounds, halves away from 0. */
template <class Slot>
bool DoubleToDecimal(const void* element, void* slot, uint8_t width, uint8_t scale) {
    const double product = *static_cast<const double*>(element) * kPowersOfTen<double>[scale];
    // DuckDB casts numbers that may be too large, infinities and NaN.
    if (!(std::abs(product) < kPowersOfTen<double>[width] - 1)) {
        return false;
    }
    *static_cast<Slot*>(slot) = static_cast<Slot>(std::round(product));
    return true;
}

/** The number in decimal digits; negative if there is anything else. */
int NumberOf(const char* digits, int count) {
    int number = 0;
    for (int i = 0; i < count; ++i) {
        const int digit = digits[i] - '0';
        if (digit < 0 || digit > 9) {
            return -1;
        }
        number = number * 10 + digit;
    }
    return number;
}

/** A date as 2024-01-31, the form in which cells of dates become texts. */
bool TextToDate(const void* element, void* slot, uint8_t /*width*/, uint8_t /*scale*/) {
    constexpr duckdb::idx_t kLength = 10;
    const auto& string = *static_cast<const duckdb::string_t*>(element);
    const char* const text = string.GetData();
    if (string.GetSize() != kLength || text[4] != '-' || text[7] != '-') {
        return false;
    }
    const int year = NumberOf(text, 4);
    const int month = NumberOf(text + 5, 2);
    const int day = NumberOf(text + 8, 2);
    return year >= 0 && month >= 0 && day >= 0 &&
           duckdb::Date::TryFromDate(year, month, day, *static_cast<duckdb::date_t*>(slot));
}

QuickCast ChooseCast(const duckdb::LogicalType& source, const duckdb::LogicalType& target) {
    if (source.id() == duckdb::LogicalTypeId::VARCHAR && target.id() == duckdb::LogicalTypeId::DATE) {
        return TextToDate;
    }
    if (source.id() != duckdb::LogicalTypeId::DOUBLE || target.id() != duckdb::LogicalTypeId::DECIMAL) {
        return nullptr;
    }
    switch (target.InternalType()) {
        case duckdb::PhysicalType::INT16:
            return DoubleToDecimal<int16_t>;
        case duckdb::PhysicalType::INT32:
            return DoubleToDecimal<int32_t>;
        case duckdb::PhysicalType::INT64:
            return DoubleToDecimal<int64_t>;
        default:
            return nullptr;
    }
}

}  // namespace

QuickCast FindQuickCast(duckdb::ClientContext& context, const duckdb::BoundCastInfo& cast,
                        const duckdb::LogicalType& source, const duckdb::LogicalType& target) {
    const QuickCast quick = ChooseCast(source, target);
    if (quick == nullptr) {
        return nullptr;
    }
    duckdb::BindCastInput input(duckdb::CastFunctionSet::Get(context), nullptr, &context);
    const duckdb::BoundCastInfo own = duckdb::DefaultCasts::GetDefaultCastFunction(input, source, target);
    return version::IsSameCast(cast, own) ? quick : nullptr;
}

}  // namespace mduckdb
