#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>

#include "json_text.h"
#include "nbx/content_in_place.h"
#include "unicode.h"
#include "value_core.h"

namespace nbx {
namespace {

/** String values, and values of host types whose values are texts. The initial text is behind the object in
    the same piece of memory: row sets consist of these, most live for one read, and a separate text would
    double the allocations. */
class TextValue final : public TextLikeValue<TextValue> {
  public:
    /** A value with a copy of the text. */
    static TextValue* Make(uint32_t type_code, bool is_nullable, std::u16string_view content);

    void* QueryInterface(uint32_t /*interface_id*/) override { return nullptr; }
    String get_Text() const override;
    std::u16string_view get_View() const noexcept {
        return replacement_ ? replacement_->get_View() : std::u16string_view(get_Characters(), length_);
    }
    void put_Text(String content) override;
    void Clear() noexcept {
        replacement_.reset();
        length_ = 0;
    }

  protected:
    void Destroy() noexcept override;

  private:
    TextValue(uint32_t type_code, bool is_nullable, std::u16string_view content) noexcept;

    static std::size_t SizeFor(std::size_t capacity) noexcept {
        return sizeof(TextValue) + capacity * sizeof(char16_t);
    }
    char16_t* get_Characters() const noexcept;

    /** The text that replaces the one behind the object; null until another one is stored. */
    std::unique_ptr<const String> replacement_;
    /** UTF-16 units behind the object: those that belong to its text, and those that there is memory for. */
    uint32_t length_;
    const uint32_t capacity_;
};

/** JSON text. It is parsed at the first question about its members, since most values are only read as
    text. */
class JSONValue final : public TextLikeValue<JSONValue>, public I_JSONValue {
  public:
    JSONValue(bool is_nullable, std::u16string content) noexcept
        : TextLikeValue(static_cast<uint32_t>(ValueType::JSON), is_nullable), content_(std::move(content)) {}
    ~JSONValue() override { Forget(); }

    void* QueryInterface(uint32_t interface_id) override;
    String get_Text() const override { return content_; }
    void put_Text(String content) override;

    bool get_IsObject() const override { return get_Members().is_object; }
    bool HasMember(const char* key) const override { return get_Members().Find(key) != nullptr; }
    smart_ptr<I_Value> get_Member(const char* key) const override;

    void Clear();

  private:
    const JsonMembers& get_Members() const;
    /** Only a thread that changes or destroys the value calls this, so no reader uses the members. */
    void Forget() noexcept { delete members_.exchange(nullptr, std::memory_order_acq_rel); }

    String content_;
    /** Owned; null until it is first needed. Atomic, since two readers may ask at once. */
    mutable std::atomic<const JsonMembers*> members_{nullptr};
};

/** Bytes; all binary types share the class. The text is hexadecimal in both directions. */
class BytesValue final : public TextLikeValue<BytesValue>, public I_RawBytes {
  public:
    BytesValue(uint32_t type_code, bool is_nullable, std::string_view content, uint64_t declared_size)
        : TextLikeValue(type_code, is_nullable), content_(content), declared_size_(declared_size) {}

    void* QueryInterface(uint32_t interface_id) override;
    String get_Text() const override { return BytesText(content_); }
    void put_Text(String content) override;

    uint64_t get_DeclaredSize() const override { return declared_size_; }
    uint64_t get_Length() const override { return content_.size(); }
    void CopyTo(void* buffer, uint64_t count) const override;
    const void* get_Data() const override { return content_.data(); }
    void put_Bytes(const void* data, uint64_t length) override;

    void Clear() { content_ = std::string(); }

  private:
    std::string content_;
    uint64_t declared_size_;
};

/** A member as a value. A number becomes a text, since no number type of the host holds all JSON numbers
    exactly. */
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

TextValue* TextValue::Make(uint32_t type_code, bool is_nullable, std::u16string_view content) {
    // The lengths are 32 bits wide, to keep the object small. A longer text is stored separately.
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
    // Computed before the destructor runs, which ends the life of the capacity.
    const std::size_t size = SizeFor(capacity_);
    this->~TextValue();
    pool::Free(this, size);
}

char16_t* TextValue::get_Characters() const noexcept {
    // Behind the object, whose size is a multiple of the characters' alignment.
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
        // Readers that parse at the same time keep the members of the first; the others discard theirs.
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
    // Checked before anything changes: a rejected text leaves the value as it was.
    if (!bytes) {
        ThrowBadContent(get_TypeCode(), content);
    }
    content_ = std::move(*bytes);
    MarkNotNull();
}

void BytesValue::CopyTo(void* buffer, uint64_t count) const {
    const uint64_t length = std::min<uint64_t>(count, content_.size());
    // With a length of 0 the caller's buffer may be null, which memcpy does not allow.
    if (length != 0) {
        std::memcpy(buffer, content_.data(), length);
    }
}

void BytesValue::put_Bytes(const void* data, uint64_t length) {
    content_ = length == 0 ? std::string() : std::string(static_cast<const char*>(data), length);
    MarkNotNull();
}

I_Value* MakeText(uint32_t type_code, bool nullable, const void* content) {
    const Utf16Text text(ContentOf<std::string_view>(content));
    return TextValue::Make(type_code, nullable, text.get());
}

I_Value* MakeBytes(uint32_t type_code, bool nullable, const void* content, const void* extra) {
    return new BytesValue(type_code, nullable, ContentOf<std::string_view>(content),
                          ContentOf<uint64_t>(extra));
}

}  // namespace

std::optional<ContentInPlace> GetContentInPlace(const I_Value& value) noexcept {
    // The class is final and known here alone, so that the comparison is one of addresses.
    if (&typeid(value) != &typeid(TextValue)) {
        return GetNumberInPlace(value);
    }
    const auto& text = static_cast<const TextValue&>(value);
    return ContentInPlace{text.get_TypeCode(), text.get_IsNull(), nullptr, text.get_View()};
}

I_Value* CreateValueString(bool nullable, const void* content, const void* /*extra*/) {
    return MakeText(static_cast<uint32_t>(ValueType::String), nullable, content);
}

I_Value* CreateValueFixedBinary(bool nullable, const void* content, const void* extra) {
    return MakeBytes(static_cast<uint32_t>(ValueType::FixedBinary), nullable, content, extra);
}

I_Value* CreateValueJSON(bool nullable, const void* content, const void* /*extra*/) {
    return new JSONValue(nullable, Utf8ToUtf16(ContentOf<std::string_view>(content)));
}

I_Value* CreateBytesOfType(uint32_t type_code, bool nullable) {
    return MakeBytes(type_code, nullable, nullptr, nullptr);
}

I_Value* CreateTextOfType(uint32_t type_code, bool nullable) {
    return MakeText(type_code, nullable, nullptr);
}

}  // namespace nbx
