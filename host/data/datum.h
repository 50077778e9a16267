#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "nbx/value.h"

namespace mduckdb_host {

struct Datum;

/** Bytes that are not text. */
struct Bytes {
    std::string data;
};
/** The text of one JSON value. */
struct JsonText {
    std::string text;
};
/** A DECIMAL of a cursor. */
struct Decimal {
    /** The nearest one. */
    double number = 0;
    /** Digits after the point. */
    int scale = 0;
    /** All digits, if the double has too few of them; else empty. */
    std::string digits;
};
struct List {
    std::vector<Datum> items;
};
struct Null {};

/** One value as the program holds it: an argument, or a value in a row. Texts are UTF-8, but malformed if the
    data are. Owns its content. */
struct Datum {
    using Content = std::variant<Null, bool, int64_t, uint64_t, double, std::string, Bytes, JsonText,
                                 nbx::DateContent, nbx::TimeContent, nbx::DateTimeContent, List, Decimal>;

    Content content;

    bool get_IsNull() const noexcept { return std::holds_alternative<Null>(content); }
};

/** The type of the content, as the function table numbers types (`mirona_type`). */
uint32_t get_HostType(const Datum& datum) noexcept;
/** Name of a host type code; "unknown" when there is no such code. */
const char* get_HostTypeName(uint32_t host_type) noexcept;

/** Name and types of one column of a result. */
struct Column {
    std::string name;
    uint32_t duckdb_type = 0;   /**< 0 when unknown */
    uint32_t host_type = 0;     /**< `mirona_type` */
    std::string type_name = {}; /**< DuckDB's; empty when unknown */
};

using Row = std::vector<Datum>;

/** Whether the column holds numbers, including those that are too large for the host and arrive as text. */
bool IsNumeric(const Column& column) noexcept;

/** Appends the value for people: doubles with the fewest digits that read back as the same number, dates as
    2024-03-15, date-times as 2024-03-15 12:34:56.789, bytes as `\x` and hexadecimal digits, lists as JSON,
    nothing for a null. */
void AppendText(std::string& out, const Datum& datum);
std::string ToText(const Datum& datum);

/** Appends the value as JSON: numbers, booleans, lists and JSON as they are, everything else as a string,
    including NaN and the infinities. Always valid JSON: bytes that are not valid UTF-8 become U+FFFD. */
void AppendJson(std::string& out, const Datum& datum);

/** Appends a text as a JSON string with its quotes. */
void AppendJsonString(std::string& out, std::string_view text);

}  // namespace mduckdb_host
