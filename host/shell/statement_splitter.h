#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mduckdb_host {

/** What a character of SQL belongs to. */
enum class TextKind : char { kCode = 'c', kKeyword = 'k', kNumber = 'n', kQuoted = 'q', kComment = '-' };

/** Splits SQL text that arrives in pieces into statements, at the semicolons outside of quotes, dollar quotes
    and comments. */
class StatementSplitter {
  public:
    void Add(std::string_view text) { text_ += text; }
    /** Removes the next complete statement, with its semicolon and without blanks before it. Skips statements
        that consist of blanks and comments. False when there is none yet. */
    bool TakeStatement(std::string& statement);
    /** Removes the rest, although no semicolon ended it; empty when it consists of blanks and comments. */
    std::string TakeRest();
    /** Whether a statement has begun but not ended. */
    bool get_IsInside() const;
    /** Discards the text. The next text begins at this line. */
    void Clear(int64_t first_line = 1);
    /** The line at which the statement that was removed last begins. */
    int64_t get_StatementLine() const noexcept { return statement_line_; }

    /** The `TextKind` of each byte of a text, as if it was added now. */
    std::string Classify(std::string_view text) const;

  private:
    enum class State {
        kCode,
        kSingleQuote,
        kEscapedQuote,
        kDoubleQuote,
        kLineComment,
        kBlockComment,
        kDollarQuote
    };

    static TextKind KindOf(State state);
    /** Continues over the next character or mark. */
    void ScanNext();
    /** Continues; true when it stopped after a semicolon, false when more text is needed. */
    bool Scan();
    void ScanCode();
    void ScanBlockComment();
    void ScanUntil(char end);
    bool StartsWith(std::string_view word) const {
        return std::string_view(text_).substr(position_).starts_with(word);
    }
    std::string TakeFront(std::size_t length);

    std::string text_;
    /** Of the text's first character. */
    int64_t line_ = 1;
    int64_t statement_line_ = 1;
    std::size_t position_ = 0;
    State state_ = State::kCode;
    int comment_depth_ = 0;
    std::string dollar_tag_;
    /** The statement's first character that is neither a blank nor in a comment. */
    std::size_t content_start_ = std::string::npos;
    bool is_at_semicolon_ = false;
};

}  // namespace mduckdb_host
