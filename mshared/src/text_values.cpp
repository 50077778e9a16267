#include "text_values.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "unicode.h"

namespace nbx {
namespace {

I_Value* MakeMember(const JsonMember& member) {
    const std::string_view text = member.text;
    switch (member.kind) {
        case JsonKind::kNested:
            return CreateValueJSON(false, &text, nullptr);
        case JsonKind::kText:
        case JsonKind::kNumber:
            return CreateValueString(false, &text, nullptr);
        case JsonKind::kBoolean: {
            const bool content = text == "true";
            return CreateValueBoolean(false, &content, nullptr);
        }
        case JsonKind::kNull:
            break;
    }
    I_Value* const value = CreateValueBoolean(true, nullptr, nullptr);
    value->put_IsNull(true);
    return value;
}

}  // namespace

TextValue* TextValue::Make(uint32_t type_code, bool is_nullable, std::u16string_view content) {
    const bool is_countable = content.size() <= std::numeric_limits<uint32_t>::max();
    const std::u16string_view own = is_countable ? content : std::u16string_view();
    void* const memory = pool::Allocate(SizeFor(own.size()));
    auto* const value = ::new (memory) TextValue(type_code, is_nullable, own);
    if (!is_countable) {
        smart_ptr<I_Value> holder = smart_ptr<I_Value>::Adopt(value);
        value->put_Text(String(content.data(), content.size()));
        holder.detach();
    }
    return value;
}

TextValue::TextValue(uint32_t type_code, bool is_nullable, std::u16string_view content) noexcept
    : TextLikeValue(type_code, is_nullable),
      length_(static_cast<uint32_t>(content.size())),
      capacity_(length_) {
    std::copy(content.begin(), content.end(), get_Characters());
}

String TextValue::get_Text() const {
    return replacement_ ? *replacement_ : String(get_Characters(), length_);
}

void TextValue::put_Text(String content) {
    replacement_ = std::make_unique<const String>(std::move(content));
    MarkNotNull();
}

void TextValue::Destroy() noexcept {
    const std::size_t size = SizeFor(capacity_);
    this->~TextValue();
    pool::Free(this, size);
}

char16_t* TextValue::get_Characters() const noexcept {
    return reinterpret_cast<char16_t*>(const_cast<TextValue*>(this + 1));
}

void* JSONValue::QueryInterface(uint32_t interface_id) {
    return interface_id == kJSONInterfaceId ? static_cast<I_JSONValue*>(this) : nullptr;
}

void JSONValue::put_Text(String content) {
    Forget();
    content_ = std::move(content);
    MarkNotNull();
}

void JSONValue::Clear() {
    Forget();
    content_ = String();
}

smart_ptr<I_Value> JSONValue::get_Member(const char* key) const {
    const JsonMember* const member = get_Members().Find(key);
    return member == nullptr ? nullptr : smart_ptr<I_Value>::Adopt(MakeMember(*member));
}

const JsonMembers& JSONValue::get_Members() const {
    const JsonMembers* members = members_.load(std::memory_order_acquire);
    if (members == nullptr) {
        auto made = std::make_unique<const JsonMembers>(ReadJsonMembers(Utf16ToUtf8(content_.get_View())));
        if (members_.compare_exchange_strong(members, made.get(), std::memory_order_acq_rel)) {
            members = made.release();
        }
    }
    return *members;
}

void* BytesValue::QueryInterface(uint32_t interface_id) {
    return interface_id == kRawBytesInterfaceId ? static_cast<I_RawBytes*>(this) : nullptr;
}

void BytesValue::put_Text(String content) {
    std::optional<std::string> bytes = ParseBytes(content);
    if (!bytes) {
        ThrowBadContent(get_TypeCode(), content);
    }
    content_ = std::move(*bytes);
    MarkNotNull();
}

void BytesValue::CopyTo(void* buffer, uint64_t count) const {
    const uint64_t length = std::min<uint64_t>(count, content_.size());
    if (length != 0) {
        std::memcpy(buffer, content_.data(), length);
    }
}

void BytesValue::put_Bytes(const void* data, uint64_t length) {
    content_ = length == 0 ? std::string() : std::string(static_cast<const char*>(data), length);
    MarkNotNull();
}

}  // namespace nbx
