#include "data/datum.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>

#include "mirona/extension_api.h"

namespace mduckdb_host {

namespace {

// By the index of the alternative in `Datum::Content`.
constexpr std::array<uint32_t, std::variant_size_v<Datum::Content>> kTypes = {
    MIRONA_TYPE_NULL,     MIRONA_TYPE_BOOL,   MIRONA_TYPE_INT64,   MIRONA_TYPE_UINT64, MIRONA_TYPE_DOUBLE,
    MIRONA_TYPE_TEXT,     MIRONA_TYPE_BINARY, MIRONA_TYPE_VARIANT, MIRONA_TYPE_DATE,   MIRONA_TYPE_TIME,
    MIRONA_TYPE_DATETIME, MIRONA_TYPE_ARRAY,  MIRONA_TYPE_DOUBLE};

constexpr std::array<const char*, 14> kTypeNames = {"unknown",  "array",  "bool",   "binary", "date",
                                                    "datetime", "double", "int64",  "money",  "null",
                                                    "text",     "time",   "uint64", "variant"};

void AppendNumber(std::string& out, double number) {
    if (!std::isfinite(number)) {
        out += std::isnan(number) ? "NaN" : number < 0 ? "-Infinity" : "Infinity";
        return;
    }
    char digits[32];
    const char* end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    const std::string_view text(digits, static_cast<std::size_t>(end - digits));
    out += text;
    // A whole number must still look like a double.
    if (text.find_first_of(".e") == std::string_view::npos) {
        out += ".0";
    }
}

void AppendHex(std::string& out, std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    out += "\\x";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        out += kDigits[byte >> 4U];
        out += kDigits[byte & 15U];
    }
}

/** Appends the text of each kind of content. */
class TextAppender {
  public:
    explicit TextAppender(std::string& out) : out_(out) {}

    void operator()(Null /*null*/) const {}
    void operator()(bool value) const { out_ += value ? "true" : "false"; }
    void operator()(int64_t value) const { fmt::format_to(std::back_inserter(out_), "{}", value); }
    void operator()(uint64_t value) const { fmt::format_to(std::back_inserter(out_), "{}", value); }
    void operator()(double value) const { AppendNumber(out_, value); }
    void operator()(const Decimal& value) const {
        if (value.digits.empty()) {
            fmt::format_to(std::back_inserter(out_), "{:.{}f}", value.number, value.scale);
        } else {
            out_ += value.digits;
        }
    }
    void operator()(const std::string& value) const { out_ += value; }
    void operator()(const Bytes& value) const { AppendHex(out_, value.data); }
    void operator()(const JsonText& value) const { out_ += value.text; }
    void operator()(const nbx::DateContent& date) const {
        fmt::format_to(std::back_inserter(out_), "{:04}-{:02}-{:02}", date.year, date.month, date.day);
    }
    void operator()(const nbx::TimeContent& time) const {
        fmt::format_to(std::back_inserter(out_), "{:02}:{:02}:{:02}.{:03}", time.hours, time.minutes,
                       time.seconds, time.milliseconds);
    }
    void operator()(const nbx::DateTimeContent& value) const {
        (*this)(value.date);
        out_ += ' ';
        (*this)(value.time);
    }
    void operator()(const List& list) const {
        out_ += '[';
        const char* separator = "";
        for (const Datum& item : list.items) {
            out_ += separator;
            AppendJson(out_, item);
            separator = ", ";
        }
        out_ += ']';
    }

  private:
    std::string& out_;
};

bool IsPlainJson(const Datum& datum) {
    if (const auto* number = std::get_if<double>(&datum.content)) {
        return std::isfinite(*number);
    }
    if (const auto* json = std::get_if<JsonText>(&datum.content)) {
        return nlohmann::json::accept(json->text);
    }
    return std::holds_alternative<bool>(datum.content) || std::holds_alternative<int64_t>(datum.content) ||
           std::holds_alternative<uint64_t>(datum.content) || std::holds_alternative<List>(datum.content) ||
           std::holds_alternative<Decimal>(datum.content);
}

bool IsPlainAscii(std::string_view text) {
    for (const char c : text) {
        if (c < ' ' || c == '"' || c == '\\' || c == '\x7f') {
            return false;
        }
    }
    return true;
}

}  // namespace

uint32_t get_HostType(const Datum& datum) noexcept {
    return kTypes[datum.content.index()];
}

const char* get_HostTypeName(uint32_t host_type) noexcept {
    return host_type < kTypeNames.size() ? kTypeNames[host_type] : kTypeNames[0];
}

bool IsNumeric(const Column& column) noexcept {
    constexpr uint32_t kHugeInt = 16;
    constexpr uint32_t kUHugeInt = 32;
    constexpr uint32_t kBignum = 35;
    return column.host_type == MIRONA_TYPE_DOUBLE || column.host_type == MIRONA_TYPE_INT64 ||
           column.host_type == MIRONA_TYPE_MONEY || column.host_type == MIRONA_TYPE_UINT64 ||
           column.duckdb_type == kHugeInt || column.duckdb_type == kUHugeInt || column.duckdb_type == kBignum;
}

void AppendText(std::string& out, const Datum& datum) {
    std::visit(TextAppender(out), datum.content);
}

std::string ToText(const Datum& datum) {
    std::string text;
    AppendText(text, datum);
    return text;
}

void AppendJsonString(std::string& out, std::string_view text) {
    if (IsPlainAscii(text)) {
        out += '"';
        out += text;
        out += '"';
        return;
    }
    out += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void AppendJson(std::string& out, const Datum& datum) {
    if (datum.get_IsNull()) {
        out += "null";
    } else if (IsPlainJson(datum)) {
        AppendText(out, datum);
    } else {
        AppendJsonString(out, ToText(datum));
    }
}

}  // namespace mduckdb_host
