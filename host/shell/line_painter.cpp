#include "shell/line_painter.h"

#include <fmt/format.h>

#include <cwchar>

#include "shell/statement_splitter.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

constexpr const char* kPlain = "\x1b[m";
constexpr const char* kDim = "\x1b[2m";

const char* FindColour(char kind) {
    switch (TextKind{kind}) {
        case TextKind::kKeyword:
            return "\x1b[36m";
        case TextKind::kQuoted:
            return "\x1b[32m";
        case TextKind::kNumber:
            return "\x1b[33m";
        case TextKind::kComment:
            return kDim;
        case TextKind::kCode:
            break;
    }
    return kPlain;
}

/** Follows the text over the screen as the line editor does. */
class Place {
  public:
    explicit Place(const EditedLine& line) : columns_(line.columns), column_(line.prompt_width) {}

    /** Whether the character begins a new row. */
    bool Begins(int width) {
        if (column_ + width > columns_) {
            NextRow();
            return true;
        }
        return false;
    }
    void Advance(int width) { column_ += width; }
    void NextRow() {
        ++row_;
        column_ = 0;
    }
    /** The cursor is never behind the last column. */
    int get_CursorRow() const noexcept { return row_ + (column_ == columns_ ? 1 : 0); }
    int get_Row() const noexcept { return row_; }
    int get_Room() const noexcept { return columns_ - column_; }

  private:
    int columns_;
    int row_ = 0;
    int column_;
};

void AppendCharacter(std::string& text, wchar_t character) {
    char bytes[16];
    std::mbstate_t state{};
    const std::size_t length = std::wcrtomb(bytes, character, &state);
    if (length <= sizeof bytes) {
        text.append(bytes, length);
    }
}

}  // namespace

int FindRowToRedraw(const EditedLine& line) {
    Place place(line);
    int cursor_row = 0;
    bool has_wide = false;
    for (std::size_t i = 0; i <= line.text.size(); ++i) {
        const bool is_end = i == line.text.size();
        const bool is_break = !is_end && line.text[i] == L'\n';
        const int width = is_end || is_break ? 0 : ::wcwidth(line.text[i]);
        if (width < 0) {
            return -1;
        }
        if (!is_break) {
            place.Begins(width);
        }
        if (i == line.cursor) {
            cursor_row = place.get_CursorRow();
        }
        if (is_break) {
            place.NextRow();
        }
        place.Advance(width);
        has_wide = has_wide || width > 1;
    }
    const int rows = place.get_CursorRow() + 1;
    return has_wide && rows > 1 && rows <= line.lines ? cursor_row : -1;
}

std::string PaintLine(const EditedLine& line, std::string_view kinds, const std::string& hint) {
    Place place(line);
    std::string painted;
    int cursor_row = 0;
    const char* colour = kPlain;
    for (std::size_t i = 0; i < line.text.size(); ++i) {
        const wchar_t character = line.text[i];
        const bool is_break = character == L'\n';
        const int width = is_break ? 0 : ::wcwidth(character);
        if (width < 0) {
            return {};
        }
        if (!is_break && place.Begins(width)) {
            painted += "\r\n";
        }
        if (i == line.cursor) {
            cursor_row = place.get_CursorRow();
        }
        if (is_break) {
            place.NextRow();
            painted += "\r\n";
            continue;
        }
        if (const char* const next = FindColour(kinds[i]); next != colour) {
            painted += colour == kPlain ? "" : kPlain;
            painted += next == kPlain ? "" : next;
            colour = next;
        }
        AppendCharacter(painted, character);
        place.Advance(width);
    }
    if (line.cursor >= line.text.size()) {
        cursor_row = place.get_CursorRow();
    }
    if (place.get_CursorRow() >= line.lines || line.prompt_width < 1 || line.prompt_width >= line.columns) {
        return {};
    }
    painted += kPlain;
    const std::string_view shown_hint = CutToWidth(hint, place.get_Room() - 1);
    if (!shown_hint.empty()) {
        painted += fmt::format("{}{}{}", kDim, shown_hint, kPlain);
    }
    const std::string up = cursor_row > 0 ? fmt::format("\x1b[{}A", cursor_row) : std::string();
    return fmt::format(
        "\x1b"
        "7{}\r\x1b[{}C{}\x1b"
        "8",
        up, line.prompt_width, painted);
}

}  // namespace mduckdb_host
