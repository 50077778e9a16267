#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "json_text.h"
#include "text_like_value.h"

namespace nbx {

/** String values, and values of the host's types that travel as text. The text that a value is made with
    stands behind the object in the same piece of memory: a row set is made of these, and most live for one
    read. */
class TextValue final : public TextLikeValue<TextValue> {
  public:
    /** A value with a copy of the text. */
    static TextValue* Make(uint32_t type_code, bool is_nullable, std::u16string_view content);

    void* QueryInterface(uint32_t /*interface_id*/) override { return nullptr; }
    String get_Text() const override;
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

    /** The text in place of the one behind the object; null until somebody stores another. */
    std::unique_ptr<const String> replacement_;
    /** UTF-16 units behind the object: those that belong to its text, and those that there is memory for. */
    uint32_t length_;
    const uint32_t capacity_;
};

/** JSON text. It is taken apart at the first question about its members. */
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
    void Forget() noexcept { delete members_.exchange(nullptr, std::memory_order_acq_rel); }

    String content_;
    /** Owned; null until it is asked for. Atomic, since two readers may ask at once. */
    mutable std::atomic<const JsonMembers*> members_{nullptr};
};

/** Bytes. */
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

}  // namespace nbx
