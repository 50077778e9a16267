#pragma once

#include <duckdb.h>

#include <cstdint>
#include <optional>

#include "duckdb_internals/value_guard.h"
#include "nbx/value.h"

/* The contents of a host's dates and times as DuckDB's; nothing for one that DuckDB would misread. DuckDB
   throws for dates that do not exist. */
namespace mduckdb {

inline std::optional<duckdb_date> ToDate(const nbx::I_DateValue& date) {
    return duckdb_to_date(duckdb_date_struct{date.get_Year(), static_cast<int8_t>(date.get_Month()),
                                             static_cast<int8_t>(date.get_Day())});
}

inline std::optional<duckdb_time> ToTime(const nbx::I_TimeValue& time) {
    const int64_t seconds = (int64_t{time.get_Hours()} * 60 + time.get_Minutes()) * 60 + time.get_Seconds();
    const int64_t micros = (seconds * 1000 + time.get_Milliseconds()) * 1000;
    return IsValidTime(micros) ? std::optional(duckdb_time{micros}) : std::nullopt;
}

inline std::optional<duckdb_timestamp_ms> ToTimestampMs(const nbx::I_DateTimeValue& moment) {
    // DuckDB would read the excess as further days, or past 127 as earlier ones.
    if (moment.get_Hours() > 23 || moment.get_Minutes() > 59 || moment.get_Seconds() > 59 ||
        moment.get_Milliseconds() > 999) {
        return std::nullopt;
    }
    duckdb_timestamp_struct parts{};
    parts.date.year = moment.get_Year();
    parts.date.month = static_cast<int8_t>(moment.get_Month());
    parts.date.day = static_cast<int8_t>(moment.get_Day());
    parts.time.hour = static_cast<int8_t>(moment.get_Hours());
    parts.time.min = static_cast<int8_t>(moment.get_Minutes());
    parts.time.sec = static_cast<int8_t>(moment.get_Seconds());
    parts.time.micros = int32_t{moment.get_Milliseconds()} * 1000;
    return duckdb_timestamp_ms{duckdb_to_timestamp(parts).micros / 1000};
}

}  // namespace mduckdb
