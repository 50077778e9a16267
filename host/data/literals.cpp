#include "data/literals.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <nlohmann/json.hpp>

namespace mduckdb_host {

namespace {

using nlohmann::json;

/** Builds the value while the JSON is parsed, because only the parser still has the digits of a number that
    fits into no 64-bit integer. Refuses objects, nested or not: the callers keep their text. */
class JsonReader final : public nlohmann::json_sax<json> {
  public:
    Datum TakeResult() { return std::move(result_); }

    bool null() override { return Add({Null{}}); }
    bool boolean(bool value) override { return Add({value}); }
    bool number_integer(int64_t value) override { return Add({value}); }
    bool number_unsigned(uint64_t value) override {
        return value <= INT64_MAX ? Add({static_cast<int64_t>(value)}) : Add({value});
    }
    bool number_float(double value, const std::string& digits) override {
        const bool is_whole = digits.find_first_of(".eE") == std::string::npos;
        return is_whole ? Add({digits}) : Add({value});
    }
    bool string(std::string& value) override { return Add({std::move(value)}); }
    bool binary(json::binary_t& /*value*/) override { return false; }

    bool start_object(std::size_t /*count*/) override { return false; }
    bool key(std::string& /*name*/) override { return false; }
    bool end_object() override { return false; }

    bool start_array(std::size_t /*count*/) override {
        if (open_lists_.size() == kMostLevels) {
            throw xNestingError();
        }
        open_lists_.emplace_back();
        return true;
    }
    bool end_array() override {
        List list = std::move(open_lists_.back());
        open_lists_.pop_back();
        return Add({std::move(list)});
    }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const json::exception& /*error*/) override {
        return false;
    }

  private:
    bool Add(Datum datum) {
        if (open_lists_.empty()) {
            result_ = std::move(datum);
        } else {
            open_lists_.back().items.push_back(std::move(datum));
        }
        return true;
    }

    Datum result_;
    std::vector<List> open_lists_;
};

/** The value; nothing if the text is not JSON or contains an object. */
std::optional<Datum> ReadWithoutObjects(const std::string& text) {
    JsonReader reader;
    if (!json::sax_parse(text, &reader)) {
        return std::nullopt;
    }
    return reader.TakeResult();
}

Datum ToDatum(const json& value) {
    if (value.is_object()) {
        return {JsonText{value.dump()}};
    }
    if (!value.is_array()) {
        return ReadWithoutObjects(value.dump()).value_or(Datum{});
    }
    List list;
    for (const json& item : value) {
        list.items.push_back(ToDatum(item));
    }
    return {std::move(list)};
}

bool IsWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

/** Parses the literals from left to right. */
class LiteralReader {
  public:
    explicit LiteralReader(std::string_view text) : text_(text) {}

    std::vector<Datum> ReadArguments() {
        std::vector<Datum> data = ReadItems(')');
        SkipBlanks();
        if (position_ < text_.size() && text_[position_] == ';') {
            ++position_;
        }
        SkipBlanks();
        if (position_ < text_.size()) {
            Fail("unexpected text after the call");
        }
        return data;
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

    std::vector<Datum> ReadItems(char end) {
        std::vector<Datum> items;
        if (Take(end)) {
            return items;
        }
        do {
            items.push_back(ReadLiteral());
        } while (Take(','));
        if (!Take(end)) {
            Fail(std::string("expected a comma or '") + end + "'");
        }
        return items;
    }

    Datum ReadLiteral() {
        if (Take('\'')) {
            return {ReadText()};
        }
        if (Take('[')) {
            return {ReadList()};
        }
        SkipBlanks();
        const std::size_t start = position_;
        while (position_ < text_.size() &&
               (IsWordCharacter(text_[position_]) || text_[position_] == '.' || IsSign(start))) {
            ++position_;
        }
        const std::string_view word = text_.substr(start, position_ - start);
        if (std::optional<Datum> datum = ReadWord(word)) {
            return *std::move(datum);
        }
        position_ = start;
        Fail("expected a literal: 'text', 12, NULL, TRUE, ['a', 'b']");
    }

    List ReadList() {
        if (level_ == kMostLevels) {
            Fail(xNestingError().what());
        }
        ++level_;
        List list{ReadItems(']')};
        --level_;
        return list;
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
        Fail("the closing quote is missing");
    }

    template <class Number>
    static std::optional<Datum> ReadNumber(std::string_view word) {
        Number number{};
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
        if (error != std::errc() || end != word.data() + word.size()) {
            return std::nullopt;
        }
        return Datum{number};
    }

    static std::optional<Datum> ReadWord(std::string_view word) {
        std::string upper(word);
        std::transform(upper.begin(), upper.end(), upper.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        if (upper == "NULL") {
            return Datum{};
        }
        if (upper == "TRUE" || upper == "FALSE") {
            return Datum{upper == "TRUE"};
        }
        if (word.empty() ||
            (IsWordCharacter(word[0]) && std::isdigit(static_cast<unsigned char>(word[0])) == 0)) {
            return std::nullopt;
        }
        if (word.starts_with('+')) {
            word.remove_prefix(1);
        }
        std::optional<Datum> datum = ReadNumber<int64_t>(word);
        datum = datum ? datum : ReadNumber<uint64_t>(word);
        return datum ? datum : ReadNumber<double>(word);
    }

    std::string_view text_;
    std::size_t position_ = 0;
    std::size_t level_ = 0;
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

xNestingError::xNestingError()
    : std::invalid_argument(fmt::format("lists and objects may be nested {} levels deep", kMostLevels)) {}

Datum ParseArgument(const std::string& text) {
    std::optional<Datum> value = ReadWithoutObjects(text);
    if (!value || std::holds_alternative<bool>(value->content)) {
        return {text};
    }
    return *std::move(value);
}

Datum ParseJson(const std::string& text) {
    if (std::optional<Datum> value = ReadWithoutObjects(text)) {
        return *std::move(value);
    }
    const auto check_level = [](int level, json::parse_event_t /*event*/, json& /*parsed*/) {
        if (level > static_cast<int>(kMostLevels)) {
            throw xNestingError();
        }
        return true;
    };
    const json value = json::parse(text, check_level, false);
    if (value.is_discarded()) {
        throw std::invalid_argument(fmt::format("Not a JSON value: {}", text));
    }
    // The original text keeps the digits of every number.
    return value.is_object() ? Datum{JsonText{text}} : ToDatum(value);
}

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

std::vector<Datum> ParseLiterals(std::string_view arguments) {
    return LiteralReader(arguments).ReadArguments();
}

}  // namespace mduckdb_host
