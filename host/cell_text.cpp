#include "cell_text.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>

namespace mduckdb_host {

namespace {

void AppendNumber(std::string& out, double number) {
    if (!std::isfinite(number)) {
        out += std::isnan(number) ? "NaN" : number < 0 ? "-Infinity" : "Infinity";
        return;
    }
    char digits[32];
    const char* end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    const std::string_view text(digits, static_cast<std::size_t>(end - digits));
    out += text;
    // A whole number is still to be seen as a double.
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

/** Appends each kind of content as text. */
class TextAppender {
  public:
    explicit TextAppender(std::string& out) : out_(out) {}

    void operator()(Null /*null*/) const {}
    void operator()(bool value) const { out_ += value ? "true" : "false"; }
    void operator()(int64_t value) const { fmt::format_to(std::back_inserter(out_), "{}", value); }
    void operator()(uint64_t value) const { fmt::format_to(std::back_inserter(out_), "{}", value); }
    void operator()(double value) const { AppendNumber(out_, value); }
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
        for (const Cell& item : list.items) {
            out_ += separator;
            AppendJson(out_, item);
            separator = ", ";
        }
        out_ += ']';
    }

  private:
    std::string& out_;
};

bool IsPlainJson(const Cell& cell) {
    if (const auto* number = std::get_if<double>(&cell.content)) {
        return std::isfinite(*number);
    }
    if (const auto* json = std::get_if<JsonText>(&cell.content)) {
        return nlohmann::json::accept(json->text);
    }
    return std::holds_alternative<bool>(cell.content) || std::holds_alternative<int64_t>(cell.content) ||
           std::holds_alternative<uint64_t>(cell.content) || std::holds_alternative<List>(cell.content);
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

void AppendText(std::string& out, const Cell& cell) {
    std::visit(TextAppender(out), cell.content);
}

std::string ToText(const Cell& cell) {
    std::string text;
    AppendText(text, cell);
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

void AppendJson(std::string& out, const Cell& cell) {
    if (cell.get_IsNull()) {
        out += "null";
    } else if (IsPlainJson(cell)) {
        AppendText(out, cell);
    } else {
        AppendJsonString(out, ToText(cell));
    }
}

}  // namespace mduckdb_host
