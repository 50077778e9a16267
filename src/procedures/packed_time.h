#pragma once

#include <cstdint>

namespace mduckdb {

/* The host's packed forms of DuckDB's dates and times, as extension_api.h describes them. DuckDB's calendar
   functions are not used: they throw for some numbers and cost as much as the rest of a cell. */

/** A date in the host's packed form; `is_packable` is false for a date that has none. */
struct PackedDate {
    std::uint32_t packed;
    bool is_packable;
};

/** Days since 1970-01-01, proleptic Gregorian. Infinities and years that do not fit into the packed form's
    23 bits cannot be packed. */
PackedDate PackDays(std::int32_t days) noexcept;

/** Microseconds since midnight, from 0 to 24:00:00. Cut off to milliseconds. */
constexpr std::uint32_t PackMicros(std::int64_t micros) noexcept {
    const auto millis = static_cast<std::uint32_t>(micros / 1000);
    const std::uint32_t seconds = millis / 1000;
    const std::uint32_t minutes = seconds / 60;
    return (minutes / 60) << 27 | (minutes % 60) << 21 | (seconds % 60) << 15 | millis % 1000;
}

}  // namespace mduckdb
