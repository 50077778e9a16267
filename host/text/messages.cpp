#include "text/messages.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "nbx/exception.h"
#include "nbx/mrsql/duckdb_error.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

/** Columns of the SQL that are shown before and after the place. */
constexpr int kColumnsBefore = 50;
constexpr int kColumnsAfter = 40;

/** Bytes that are read on each side of the place: far more than the columns can hold, and few enough that
    the length of the line does not matter. */
constexpr std::size_t kBytesAround = 1024;

/** A part of a line, as it is shown. */
struct Excerpt {
    std::string text;
    bool is_cut;
};

Excerpt MakeLeftExcerpt(std::string_view line) {
    const std::string near = ToPrintable(line.substr(line.size() - std::min(line.size(), kBytesAround)));
    const std::string_view shown = CutStartToWidth(near, kColumnsBefore);
    return {std::string(shown), line.size() > kBytesAround || shown.size() < near.size()};
}

Excerpt MakeRightExcerpt(std::string_view line) {
    const std::string near = ToPrintable(line.substr(0, kBytesAround));
    const std::string_view shown = CutToWidth(near, kColumnsAfter);
    return {std::string(shown), line.size() > kBytesAround || shown.size() < near.size()};
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

// Errors that have a code but no text.
const char* DescribeCode(uint32_t code) {
    switch (code) {
        case 0x51501:
            return "The database has no location.";
        case 0x66000:
            return "The folder contains no backup.";
        default:
            return nullptr;
    }
}

}  // namespace

DuckDBError ParseDuckDBError(std::string_view text) {
    const std::size_t brace = text.find('{');
    const bool may_be_json =
        brace == 0 || (brace != std::string_view::npos && text.substr(0, brace).ends_with("Error: "));
    const std::string json(may_be_json ? text.substr(brace) : std::string_view());
    const nbx::mrsql::DuckDBErrorInfo info = nbx::mrsql::ReadDuckDBError(json.c_str());
    if (info.type.isEmpty() || info.message.isEmpty()) {
        return {"", std::string(text)};
    }
    return {ToUtf8(info.type), ToUtf8(info.message), info.position};
}

std::string MakeCaret(const SqlText& sql_text, int64_t position) {
    const std::string_view sql = sql_text.text;
    if (position < 0 || static_cast<uint64_t>(position) > sql.size() || sql.empty()) {
        return {};
    }
    const auto place = static_cast<std::size_t>(position);
    const std::size_t before = place == 0 ? std::string_view::npos : sql.rfind('\n', place - 1);
    const std::size_t line_start = before == std::string_view::npos ? 0 : before + 1;
    const std::size_t line_end = std::min(sql.find('\n', place), sql.size());
    const auto line_number =
        std::count(sql.begin(), sql.begin() + static_cast<std::ptrdiff_t>(line_start), '\n') + sql_text.line;

    const Excerpt left = MakeLeftExcerpt(sql.substr(line_start, place - line_start));
    const Excerpt right = MakeRightExcerpt(sql.substr(place, line_end - place));
    const std::string start = fmt::format("LINE {}: {}{}", line_number, left.is_cut ? "…" : "", left.text);
    const std::string blanks(static_cast<std::size_t>(DisplayWidth(start)), ' ');
    return fmt::format("{}{}{}\n{}^", start, right.text, right.is_cut ? "…" : "", blanks);
}

nbx::String ReadSql(const SqlText& sql) {
    const std::size_t wrong = FindInvalidUtf8(sql.text);
    if (wrong < sql.text.size()) {
        throw std::runtime_error("The statement is not valid UTF-8.\n\n" +
                                 MakeCaret(sql, static_cast<int64_t>(wrong)));
    }
    return FromUtf8(sql.text);
}

std::string DescribeError(const DuckDBError& error, const SqlText& sql) {
    std::string text =
        error.type.empty() ? error.message : fmt::format("{} Error: {}", error.type, error.message);
    const std::string caret = MakeCaret(sql, error.position);
    return caret.empty() ? text : text + "\n\n" + caret;
}

namespace {

std::string DescribeWithoutLine(const std::exception& exception, const SqlText& sql) {
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

/** The first line of a statement in a script. */
std::string MakeLine(const SqlText& sql) {
    const Excerpt line = MakeRightExcerpt(sql.text.substr(0, sql.text.find('\n')));
    return fmt::format("LINE {}: {}{}", sql.line, line.text, line.is_cut ? "…" : "");
}

}  // namespace

std::string DescribeException(const std::exception& exception, const SqlText& sql) {
    if (dynamic_cast<const nbx::xInterruptError*>(&exception) != nullptr) {
        return "Interrupted.";
    }
    std::string text = DescribeWithoutLine(exception, sql);
    const bool has_place = text.ends_with('^');
    return sql.is_in_script && !has_place ? text + "\n\n" + MakeLine(sql) : text;
}

void PrintError(std::string_view text) {
    std::fflush(stdout);
    // If stderr is closed, the exit status still reports the failure.
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
}

}  // namespace mduckdb_host
