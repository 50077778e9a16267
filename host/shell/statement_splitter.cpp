#include "shell/statement_splitter.h"

#include <algorithm>
#include <cctype>

#include "text/sql_text.h"

namespace mduckdb_host {

namespace {

bool IsWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool IsBlank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

int64_t CountLines(std::string_view text) {
    return std::count(text.begin(), text.end(), '\n');
}

/** `$tag$` at the start of the text; empty when there is none. */
std::string_view FindDollarTag(std::string_view text) {
    std::size_t length = 1;
    while (length < text.size() && IsWordCharacter(text[length])) {
        ++length;
    }
    const bool is_parameter = length > 1 && std::isdigit(static_cast<unsigned char>(text[1])) != 0;
    return length < text.size() && text[length] == '$' && !is_parameter ? text.substr(0, length + 1)
                                                                        : std::string_view();
}

/** Marks the keywords and numbers of the code. */
void ClassifyWords(std::string_view text, std::string& kinds) {
    constexpr char kCode = static_cast<char>(TextKind::kCode);
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = start;
        while (end < text.size() && kinds[end] == kCode && (IsWordCharacter(text[end]) || text[end] == '.')) {
            ++end;
        }
        const std::string_view word = text.substr(start, end - start);
        if (!word.empty() && std::isdigit(static_cast<unsigned char>(word[0])) != 0) {
            kinds.replace(start, word.size(), word.size(), static_cast<char>(TextKind::kNumber));
        } else if (IsKeyword(word)) {
            kinds.replace(start, word.size(), word.size(), static_cast<char>(TextKind::kKeyword));
        }
        start = std::max(end, start + 1);
    }
}

}  // namespace

bool StatementSplitter::TakeStatement(std::string& statement) {
    while (Scan()) {
        const bool has_content = content_start_ != std::string::npos;
        statement = TakeFront(position_);
        if (has_content) {
            return true;
        }
    }
    return false;
}

std::string StatementSplitter::TakeRest() {
    const bool has_content = content_start_ != std::string::npos;
    std::string rest = TakeFront(text_.size());
    return has_content ? rest : std::string();
}

bool StatementSplitter::get_IsInside() const {
    return content_start_ != std::string::npos || state_ != State::kCode;
}

void StatementSplitter::Clear(int64_t first_line) {
    *this = StatementSplitter();
    line_ = first_line;
}

std::string StatementSplitter::TakeFront(std::size_t length) {
    // Blanks and comments before the statement are not part of it.
    const std::size_t start = content_start_ == std::string::npos ? 0 : content_start_;
    std::string front = text_.substr(start, length - start);
    std::string rest = text_.substr(length);
    const int64_t statement_line = line_ + CountLines(std::string_view(text_).substr(0, start));
    Clear(line_ + CountLines(std::string_view(text_).substr(0, length)));
    statement_line_ = statement_line;
    text_ = std::move(rest);
    return front;
}

bool StatementSplitter::Scan() {
    is_at_semicolon_ = false;
    while (position_ < text_.size() && !is_at_semicolon_) {
        ScanNext();
    }
    return is_at_semicolon_;
}

void StatementSplitter::ScanNext() {
    switch (state_) {
        case State::kCode:
            ScanCode();
            break;
        case State::kSingleQuote:
            ScanUntil('\'');
            break;
        case State::kDoubleQuote:
            ScanUntil('"');
            break;
        case State::kEscapedQuote:
            if (text_[position_] == '\\') {
                position_ += 2;
            } else {
                ScanUntil('\'');
            }
            break;
        case State::kLineComment:
            ScanUntil('\n');
            break;
        case State::kBlockComment:
            ScanBlockComment();
            break;
        case State::kDollarQuote:
            if (StartsWith(dollar_tag_)) {
                position_ += dollar_tag_.size() - 1;
                state_ = State::kCode;
            }
            ++position_;
            break;
    }
}

std::string StatementSplitter::Classify(std::string_view text) const {
    StatementSplitter next;
    next.state_ = state_;
    next.comment_depth_ = comment_depth_;
    next.dollar_tag_ = dollar_tag_;
    next.text_ = text;
    std::string kinds;
    kinds.reserve(text.size());
    while (next.position_ < text.size()) {
        const State before = next.state_;
        next.ScanNext();
        // A mark belongs to what it begins or ends.
        kinds.resize(std::min(next.position_, text.size()),
                     static_cast<char>(KindOf(before == State::kCode ? next.state_ : before)));
    }
    ClassifyWords(text, kinds);
    return kinds;
}

TextKind StatementSplitter::KindOf(State state) {
    switch (state) {
        case State::kSingleQuote:
        case State::kEscapedQuote:
        case State::kDoubleQuote:
        case State::kDollarQuote:
            return TextKind::kQuoted;
        case State::kLineComment:
        case State::kBlockComment:
            return TextKind::kComment;
        case State::kCode:
            break;
    }
    return TextKind::kCode;
}

void StatementSplitter::ScanUntil(char end) {
    if (text_[position_] == end) {
        state_ = State::kCode;
    }
    ++position_;
}

void StatementSplitter::ScanBlockComment() {
    if (StartsWith("/*")) {
        ++comment_depth_;
        ++position_;
    } else if (StartsWith("*/")) {
        --comment_depth_;
        ++position_;
        state_ = comment_depth_ == 0 ? State::kCode : state_;
    }
    ++position_;
}

void StatementSplitter::ScanCode() {
    const char c = text_[position_];
    const bool is_word_before = position_ > 0 && IsWordCharacter(text_[position_ - 1]);
    if (StartsWith("--")) {
        state_ = State::kLineComment;
        position_ += 2;
        return;
    }
    if (StartsWith("/*")) {
        state_ = State::kBlockComment;
        comment_depth_ = 1;
        position_ += 2;
        return;
    }
    if (!IsBlank(c) && c != ';' && content_start_ == std::string::npos) {
        content_start_ = position_;
    }
    if (c == '\'') {
        const bool is_escaped = position_ > 0 &&
                                (text_[position_ - 1] == 'e' || text_[position_ - 1] == 'E') &&
                                (position_ == 1 || !IsWordCharacter(text_[position_ - 2]));
        state_ = is_escaped ? State::kEscapedQuote : State::kSingleQuote;
    } else if (c == '"') {
        state_ = State::kDoubleQuote;
    } else if (c == '$' && !is_word_before) {
        dollar_tag_ = FindDollarTag(std::string_view(text_).substr(position_));
        if (!dollar_tag_.empty()) {
            state_ = State::kDollarQuote;
            position_ += dollar_tag_.size();
            return;
        }
    }
    is_at_semicolon_ = c == ';';
    ++position_;
}

}  // namespace mduckdb_host
