#include "call_parser.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace mduckdb_host {

namespace {

bool IsWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

/** Walks over the text of the literals. */
class LiteralReader {
  public:
    explicit LiteralReader(std::string_view text) : text_(text) {}

    std::vector<Cell> ReadArguments() {
        std::vector<Cell> cells = ReadItems(')');
        SkipBlanks();
        if (position_ < text_.size() && text_[position_] == ';') {
            ++position_;
        }
        SkipBlanks();
        if (position_ < text_.size()) {
            Fail("nothing may follow the call");
        }
        return cells;
    }

  private:
    [[noreturn]] void Fail(const std::string& text) const { throw xLiteralError(text, position_); }

    void SkipBlanks() {
        while (position_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[position_])) != 0) {
            ++position_;
        }
    }

    bool Take(char c) {
        SkipBlanks();
        if (position_ < text_.size() && text_[position_] == c) {
            ++position_;
            return true;
        }
        return false;
    }

    std::vector<Cell> ReadItems(char end) {
        std::vector<Cell> items;
        if (Take(end)) {
            return items;
        }
        do {
            items.push_back(ReadLiteral());
        } while (Take(','));
        if (!Take(end)) {
            Fail(std::string("a comma or '") + end + "' is missing");
        }
        return items;
    }

    Cell ReadLiteral() {
        if (Take('\'')) {
            return {ReadText()};
        }
        if (Take('[')) {
            return {List{ReadItems(']')}};
        }
        SkipBlanks();
        const std::size_t start = position_;
        while (position_ < text_.size() &&
               (IsWordCharacter(text_[position_]) || text_[position_] == '.' || IsSign(start))) {
            ++position_;
        }
        const std::string_view word = text_.substr(start, position_ - start);
        if (std::optional<Cell> cell = ReadWord(word)) {
            return *std::move(cell);
        }
        position_ = start;
        Fail("only literals can be arguments: 'text', 12, NULL, TRUE, ['a', 'b']");
    }

    bool IsSign(std::size_t start) const {
        const char c = text_[position_];
        const bool is_exponent =
            position_ > start && (text_[position_ - 1] == 'e' || text_[position_ - 1] == 'E');
        return (c == '-' || c == '+') && (position_ == start || is_exponent);
    }

    std::string ReadText() {
        std::string text;
        for (; position_ < text_.size(); ++position_) {
            if (text_[position_] == '\'') {
                ++position_;
                if (position_ == text_.size() || text_[position_] != '\'') {
                    return text;
                }
            }
            text += text_[position_];
        }
        Fail("the quote at the end of the text is missing");
    }

    template <class Number>
    static std::optional<Cell> ReadNumber(std::string_view word) {
        Number number{};
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
        if (error != std::errc() || end != word.data() + word.size()) {
            return std::nullopt;
        }
        return Cell{number};
    }

    static std::optional<Cell> ReadWord(std::string_view word) {
        std::string upper(word);
        std::transform(upper.begin(), upper.end(), upper.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        if (upper == "NULL") {
            return Cell{};
        }
        if (upper == "TRUE" || upper == "FALSE") {
            return Cell{upper == "TRUE"};
        }
        if (word.empty() ||
            (IsWordCharacter(word[0]) && std::isdigit(static_cast<unsigned char>(word[0])) == 0)) {
            return std::nullopt;
        }
        if (word.starts_with('+')) {
            word.remove_prefix(1);
        }
        std::optional<Cell> cell = ReadNumber<int64_t>(word);
        cell = cell ? cell : ReadNumber<uint64_t>(word);
        return cell ? cell : ReadNumber<double>(word);
    }

    std::string_view text_;
    std::size_t position_ = 0;
};

std::size_t SkipBlanks(std::string_view text, std::size_t position) {
    while (position < text.size() && std::isspace(static_cast<unsigned char>(text[position])) != 0) {
        ++position;
    }
    return position;
}

std::size_t SkipWord(std::string_view text, std::size_t position) {
    while (position < text.size() && IsWordCharacter(text[position])) {
        ++position;
    }
    return position;
}

bool IsCallKeyword(std::string_view word) {
    constexpr std::string_view kCall = "call";
    return std::equal(word.begin(), word.end(), kCall.begin(), kCall.end(),
                      [](unsigned char a, char b) { return std::tolower(a) == b; });
}

}  // namespace

std::optional<CallStatement> FindCall(std::string_view statement) {
    const std::size_t keyword = SkipBlanks(statement, 0);
    const std::size_t keyword_end = SkipWord(statement, keyword);
    if (!IsCallKeyword(statement.substr(keyword, keyword_end - keyword))) {
        return std::nullopt;
    }
    const std::size_t name = SkipBlanks(statement, keyword_end);
    const std::size_t name_end = SkipWord(statement, name);
    const std::size_t parenthesis = SkipBlanks(statement, name_end);
    if (parenthesis >= statement.size() || statement[parenthesis] != '(') {
        return std::nullopt;
    }
    return CallStatement{std::string(statement.substr(name, name_end - name)),
                         statement.substr(parenthesis + 1), parenthesis + 1};
}

std::vector<Cell> ParseLiterals(std::string_view arguments) {
    return LiteralReader(arguments).ReadArguments();
}

}  // namespace mduckdb_host
