#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "nbx/value.h"

namespace mduckdb_host {

struct Datum;

/** Bytes that are no text. */
struct Bytes {
    std::string data;
};
/** Text that is one JSON value. */
struct JsonText {
    std::string text;
};
struct List {
    std::vector<Datum> items;
};
struct Null {};

/** One value as the program handles it: an argument, a field of a row. Texts are UTF-8, and may be
    malformed where the data are. Owns all that it holds. */
struct Datum {
    using Content = std::variant<Null, bool, int64_t, uint64_t, double, std::string, Bytes, JsonText,
                                 nbx::DateContent, nbx::TimeContent, nbx::DateTimeContent, List>;

    Content content;

    bool get_IsNull() const noexcept { return std::holds_alternative<Null>(content); }
};

/** The type of the content, as the function table numbers types (`mirona_type`). */
uint32_t get_HostType(const Datum& datum) noexcept;
/** Name of a host type code; "unknown" when there is none. */
const char* get_HostTypeName(uint32_t host_type) noexcept;

/** Name and types of one column of a result. */
struct Column {
    std::string name;
    uint32_t duckdb_type = 0; /**< 0 when the result does not tell */
    uint32_t host_type = 0;   /**< `mirona_type` */
};

using Row = std::vector<Datum>;

/** Whether the column holds numbers, also those that are too large for the host and arrive as text. */
bool IsNumeric(const Column& column) noexcept;

/** The datum as a person reads it: numbers in full and with the fewest digits that read back as the
    same number, dates as 2024-03-15, date-times as 2024-03-15 12:34:56.789, bytes as `\x` and
    hexadecimal digits, lists as JSON. Nothing for a null. */
void AppendText(std::string& out, const Datum& datum);
std::string ToText(const Datum& datum);

/** The datum as a JSON value: numbers, booleans, lists and JSON as such, everything else as text, NaN and
    the infinities too. Always valid JSON: what is not UTF-8 becomes U+FFFD. */
void AppendJson(std::string& out, const Datum& datum);

/** A text as a JSON string with its quotes. */
void AppendJsonString(std::string& out, std::string_view text);

}  // namespace mduckdb_host
