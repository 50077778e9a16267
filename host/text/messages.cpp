#include "text/messages.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "nbx/exception.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

using nlohmann::json;

/** Columns of the SQL that are shown before and after the place. */
constexpr int kColumnsBefore = 50;
constexpr int kColumnsAfter = 40;

std::string GetMember(const json& object, const char* name) {
    const auto member = object.find(name);
    return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

/** As much of the end of the text as fits into `columns`. */
std::string_view CutStartToWidth(std::string_view text, int columns) {
    while (DisplayWidth(text) > columns) {
        const std::string_view first = CutToWidth(text, 1);
        text.remove_prefix(std::max<std::size_t>(first.size(), 1));
    }
    return text;
}

std::string JoinTexts(const nbx::xException& exception) {
    std::string joined;
    for (std::size_t i = 0; i < nbx::xException::kTextCount; ++i) {
        const std::string text = ToUtf8(exception.get_Text(i));
        if (!text.empty()) {
            joined += joined.empty() ? text : ": " + text;
        }
    }
    return joined;
}

// Errors that carry no text, only a code.
const char* DescribeCode(uint32_t code) {
    switch (code) {
        case 0x51501:
            return "There is no location for the database.";
        case 0x66000:
            return "There is no backup in this folder.";
        default:
            return nullptr;
    }
}

}  // namespace

DuckDBError ParseDuckDBError(std::string_view text) {
    DuckDBError error;
    const std::size_t brace = text.find('{');
    const bool may_be_json =
        brace == 0 || (brace != std::string_view::npos && text.substr(0, brace).ends_with("Error: "));
    const json object = may_be_json ? json::parse(text.substr(brace), nullptr, false) : json();
    if (!object.is_object() || !object.contains("exception_message")) {
        error.message = text;
        return error;
    }
    error.type = GetMember(object, "exception_type");
    error.message = GetMember(object, "exception_message");
    const std::string position = GetMember(object, "position");
    if (!position.empty()) {
        std::from_chars(position.data(), position.data() + position.size(), error.position);
    }
    return error;
}

std::string MakeCaret(std::string_view sql, int64_t position) {
    if (position < 0 || static_cast<uint64_t>(position) > sql.size() || sql.empty()) {
        return {};
    }
    const auto place = static_cast<std::size_t>(position);
    const std::size_t before = place == 0 ? std::string_view::npos : sql.rfind('\n', place - 1);
    const std::size_t line_start = before == std::string_view::npos ? 0 : before + 1;
    const std::size_t line_end = std::min(sql.find('\n', place), sql.size());
    const auto line_number =
        std::count(sql.begin(), sql.begin() + static_cast<std::ptrdiff_t>(line_start), '\n') + 1;

    const std::string left = ToPrintable(sql.substr(line_start, place - line_start));
    const std::string right = ToPrintable(sql.substr(place, line_end - place));
    const std::string_view shown_left = CutStartToWidth(left, kColumnsBefore);
    const std::string_view shown_right = CutToWidth(right, kColumnsAfter);
    const std::string start =
        fmt::format("LINE {}: {}{}", line_number, shown_left.size() < left.size() ? "…" : "", shown_left);
    const std::string blanks(static_cast<std::size_t>(DisplayWidth(start)), ' ');
    return fmt::format("{}{}{}\n{}^", start, shown_right, shown_right.size() < right.size() ? "…" : "",
                       blanks);
}

std::string DescribeError(const DuckDBError& error, std::string_view sql) {
    std::string text =
        error.type.empty() ? error.message : fmt::format("{} Error: {}", error.type, error.message);
    const std::string caret = MakeCaret(sql, error.position);
    return caret.empty() ? text : text + "\n\n" + caret;
}

std::string DescribeException(const std::exception& exception, std::string_view sql) {
    if (dynamic_cast<const nbx::xInterruptError*>(&exception) != nullptr) {
        return "Interrupted.";
    }
    if (const auto* error = dynamic_cast<const nbx::mrsql::xDuckDBError*>(&exception)) {
        return DescribeError(ParseDuckDBError(ToUtf8(error->get_Message())), sql);
    }
    if (const auto* error = dynamic_cast<const nbx::xException*>(&exception)) {
        const std::string texts = JoinTexts(*error);
        const char* const known = DescribeCode(error->get_Code());
        return !texts.empty()     ? DescribeError(ParseDuckDBError(texts), sql)
               : known != nullptr ? known
                                  : error->what();
    }
    return exception.what();
}

void PrintError(std::string_view text) {
    std::fflush(stdout);
    // Nobody may be there to read it; that is no reason to fail differently.
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
}

}  // namespace mduckdb_host
