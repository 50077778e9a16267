#pragma once

#include <string>
#include <string_view>

namespace mduckdb_host {

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
    void Clear();

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
    std::size_t position_ = 0;
    State state_ = State::kCode;
    int comment_depth_ = 0;
    std::string dollar_tag_;
    /** The statement's first character that is neither a blank nor in a comment. */
    std::size_t content_start_ = std::string::npos;
    bool is_at_semicolon_ = false;
};

}  // namespace mduckdb_host
