#include "procedures/packed_time.h"

#include <limits>

namespace mduckdb {
namespace {

constexpr std::int32_t kLargestPackedYear = (1 << 22) - 1;
constexpr std::int64_t kDaysPerEra = 146'097;  // 400 years

}  // namespace

PackedDate PackDays(std::int32_t days) noexcept {
    // Years start on 1 March, so that a leap day is the last day of a year; 719,468 days from 0000-03-01 to
    // 1970-01-01.
    const std::int64_t shifted = std::int64_t{days} + 719'468;
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - (kDaysPerEra - 1)) / kDaysPerEra;
    const auto day_of_era = static_cast<std::uint32_t>(shifted - era * kDaysPerEra);
    const std::uint32_t year_of_era =
        (day_of_era - day_of_era / 1'460 + day_of_era / 36'524 - day_of_era / 146'096) / 365;
    const std::uint32_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const std::uint32_t month_from_march = (5 * day_of_year + 2) / 153;
    const std::uint32_t day = day_of_year - (153 * month_from_march + 2) / 5 + 1;
    const std::uint32_t month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
    const auto year = static_cast<std::int32_t>(era * 400 + year_of_era) + (month <= 2 ? 1 : 0);

    // The infinities and the one number below them are in years that do not fit.
    static_assert(std::numeric_limits<std::int32_t>::max() / 366 > kLargestPackedYear);
    const bool is_packable = year <= kLargestPackedYear && year >= -kLargestPackedYear - 1;
    return {static_cast<std::uint32_t>(year) << 9 | month << 5 | day, is_packable};
}

}  // namespace mduckdb
