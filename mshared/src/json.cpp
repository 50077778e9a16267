#include "nbx/json.h"

#include "json_text.h"
#include "unicode.h"

namespace nbx {

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
