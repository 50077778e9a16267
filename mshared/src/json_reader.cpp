#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

#include "json_text.h"
#include "nbx/json.h"
#include "unicode.h"

namespace nbx {
namespace {

// The parser also converts every number to its float type and rejects numbers that do not fit, so it gets the
// widest type. The digits that are kept are those of the source.
using Parser = nlohmann::basic_json<std::map, std::vector, std::string, bool, int64_t, uint64_t, long double>;

/** Receives the parser's events and collects the members of the outermost object, nested content as JSON
    text. A document would be built for content that nobody reads, and would not keep the digits of
    numbers. */
class MemberCollector {
  public:
    explicit MemberCollector(JsonMembers& result) : result_(result) {}

    // NOLINTBEGIN(readability-identifier-naming): the parser's names
    bool null() { return Scalar(JsonKind::kNull, "null"); }
    bool boolean(bool value) { return Scalar(JsonKind::kBoolean, value ? "true" : "false"); }
    bool number_integer(int64_t value) {
        // Only "-0" arrives here as 0; without the sign it is unsigned.
        return value == 0 ? Scalar(JsonKind::kNumber, "-0") : Integer(value);
    }
    bool number_unsigned(uint64_t value) { return Integer(value); }
    bool number_float(long double /*value*/, const std::string& source) {
        std::string digits = source;
        // The parser writes the decimal point of the process's locale into its copy of the source.
        std::replace_if(
            digits.begin(), digits.end(),
            [](char c) { return (c < '0' || c > '9') && c != '-' && c != '+' && c != 'e' && c != 'E'; }, '.');
        return Scalar(JsonKind::kNumber, digits);
    }
    bool string(const std::string& text) {
        if (depth_ == 1 && is_object_) {
            Member(JsonKind::kText).text = text;
        } else if (Separate()) {
            AppendJsonString(text, target_->text);
        }
        return true;
    }
    bool binary(Parser::binary_t& /*bytes*/) { return false; }
    bool start_object(std::size_t /*count*/) { return Start('{'); }
    bool end_object() { return End('}'); }
    bool start_array(std::size_t /*count*/) { return Start('['); }
    bool end_array() { return End(']'); }
    bool key(const std::string& name) {
        if (depth_ == 1) {
            key_ = name;
        } else if (Separate()) {
            AppendJsonString(name, target_->text);
            target_->text += ':';
            needs_comma_ = false;
        }
        return true;
    }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const nlohmann::detail::exception& /*e*/) {
        return false;
    }

    // NOLINTEND(readability-identifier-naming)

  private:
    JsonMember& Member(JsonKind kind) {
        result_.members.push_back({std::move(key_), kind, {}});
        return result_.members.back();
    }
    /** Prepares for one more value of nested content; false if the content is not inside a member. */
    bool Separate() {
        if (target_ == nullptr) {
            return false;
        }
        if (needs_comma_) {
            target_->text += ',';
        }
        needs_comma_ = true;
        return true;
    }
    bool Scalar(JsonKind kind, std::string_view text) {
        if (depth_ == 1 && is_object_) {
            Member(kind).text = text;
        } else if (Separate()) {
            target_->text += text;
        }
        return true;
    }
    template <class T>
    bool Integer(T value) {
        char digits[24];
        const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        return Scalar(JsonKind::kNumber, std::string_view(digits, static_cast<std::size_t>(end - digits)));
    }
    bool Start(char bracket) {
        if (depth_ == 0) {
            is_object_ = bracket == '{';
            result_.is_object = is_object_;
        } else if (depth_ == 1 && is_object_) {
            target_ = &Member(JsonKind::kNested);
            target_->text += bracket;
        } else if (Separate()) {
            target_->text += bracket;
        }
        needs_comma_ = false;
        ++depth_;
        return true;
    }
    bool End(char bracket) {
        --depth_;
        if (target_ != nullptr) {
            target_->text += bracket;
            needs_comma_ = true;
            if (depth_ == 1) {
                target_ = nullptr;
            }
        }
        return true;
    }

    JsonMembers& result_;
    std::size_t depth_ = 0;
    bool is_object_ = false;
    std::string key_;
    /** The member whose nested content is being written; good until the next member is added. */
    JsonMember* target_ = nullptr;
    bool needs_comma_ = false;
};

bool Parse(std::string_view text, JsonMembers& result) {
    // The parser stops at a NUL as if the text ended there.
    if (text.find('\0') != std::string_view::npos) {
        return false;
    }
    MemberCollector collector(result);
    return Parser::sax_parse(text.begin(), text.end(), &collector);
}

}  // namespace

const JsonMember* JsonMembers::Find(std::string_view key) const noexcept {
    const auto found = std::find_if(members.rbegin(), members.rend(),
                                    [key](const JsonMember& member) { return member.key == key; });
    return found == members.rend() ? nullptr : &*found;
}

JsonMembers ReadJsonMembers(std::string_view text) {
    JsonMembers result;
    if (!Parse(text, result)) {
        return {};
    }
    result.is_valid = true;
    return result;
}

bool IsJson(std::string_view text) {
    // The parser skips a byte order mark, which is not allowed inside other JSON.
    return text.find('\0') == std::string_view::npos && !text.starts_with("\xEF\xBB\xBF") &&
           Parser::accept(text.begin(), text.end());
}

struct Json::Document {
    JsonMembers content;
};

Json::Json(const char* text)
    : document_(new Document{text == nullptr ? JsonMembers() : ReadJsonMembers(text)}) {}

Json::~Json() = default;

bool Json::isValid() const noexcept {
    return document_->content.is_valid;
}

String Json::get_JsonValue(const char* key) const {
    const JsonMember* const member = document_->content.Find(key);
    if (member == nullptr || member->kind == JsonKind::kNull) {
        return {};
    }
    return String(Utf8ToUtf16(member->text));
}

}  // namespace nbx
