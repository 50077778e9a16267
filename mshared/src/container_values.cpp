#include <string>
#include <utility>
#include <vector>

#include "json_text.h"
#include "unicode.h"
#include "value_core.h"

namespace nbx {
namespace {

/** A value that refers to another: reads and stores go to the inner value. Without one it is null, and the
    first store creates one of the type that was stored. */
class ReferenceValue final : public ValueCore<ReferenceValue>, public I_ReferenceValue {
  public:
    explicit ReferenceValue(smart_ptr<I_Value> inner) noexcept
        : ValueCore(static_cast<uint32_t>(ValueType::Reference), true), inner_(std::move(inner)) {}

    void* QueryInterface(uint32_t interface_id) override;
    bool get_IsNull() const override { return !inner_ || inner_->get_IsNull(); }

    bool get_Boolean() const override { return inner_ && inner_->get_Boolean(); }
    int64_t get_LLong() const override { return inner_ ? inner_->get_LLong() : 0; }
    uint64_t get_ULLong() const override { return inner_ ? inner_->get_ULLong() : 0; }
    double get_Double() const override { return inner_ ? inner_->get_Double() : 0; }
    String get_Text() const override { return inner_ ? inner_->get_Text() : String(); }
    void put_Boolean(bool content) override { Inner(ValueType::Boolean).put_Boolean(content); }
    void put_LLong(int64_t content) override { Inner(ValueType::LLong).put_LLong(content); }
    void put_ULLong(uint64_t content) override { Inner(ValueType::ULLong).put_ULLong(content); }
    void put_Double(double content) override { Inner(ValueType::Double).put_Double(content); }
    void put_Text(String content) override { Inner(ValueType::String).put_Text(std::move(content)); }

    smart_ptr<I_Value> get_Inner() const override { return inner_; }
    void put_Inner(smart_ptr<I_Value> inner) override { inner_ = std::move(inner); }

    void Clear() noexcept { inner_.reset(); }

  private:
    I_Value& Inner(ValueType type);

    smart_ptr<I_Value> inner_;
};

/** An array of values. Its text is a JSON array, which cannot be stored back: JSON does not have the
    elements' types. Numbers are read from that text, so they are 0. */
class ArrayValue final : public TextLikeValue<ArrayValue>, public I_ArrayValue {
  public:
    explicit ArrayValue(uint32_t element_type_code) noexcept
        : TextLikeValue(static_cast<uint32_t>(ValueType::Array), true),
          element_type_code_(element_type_code) {}

    void* QueryInterface(uint32_t interface_id) override;
    String get_Text() const override;
    void put_Text(String content) override { ThrowBadContent(get_TypeCode(), content); }

    uint32_t get_ElementTypeCode() const override { return element_type_code_; }
    uint64_t get_Count() const override { return elements_.size(); }
    smart_ptr<I_Value> get_Element(uint64_t index) const override { return elements_[index]; }
    void Append(smart_ptr<I_Value> element) override {
        elements_.push_back(std::move(element));
        MarkNotNull();
    }

    void Clear() noexcept { elements_.clear(); }

  private:
    std::vector<smart_ptr<I_Value>> elements_;
    uint32_t element_type_code_;
};

void* ReferenceValue::QueryInterface(uint32_t interface_id) {
    return interface_id == kReferenceInterfaceId ? static_cast<I_ReferenceValue*>(this) : nullptr;
}

I_Value& ReferenceValue::Inner(ValueType type) {
    // A store decides the type, since a reference does not declare one.
    if (!inner_) {
        inner_ = smart_ptr<I_Value>::Adopt(CreateValueOfType(static_cast<uint32_t>(type), true));
    }
    return *inner_;
}

void* ArrayValue::QueryInterface(uint32_t interface_id) {
    return interface_id == kArrayInterfaceId ? static_cast<I_ArrayValue*>(this) : nullptr;
}

String ArrayValue::get_Text() const {
    if (get_IsNull()) {
        return {};
    }
    std::string text;
    AppendArrayJson(*this, text);
    return String(Utf8ToUtf16(text));
}

}  // namespace

I_Value* CreateValueReference(smart_ptr<I_Value> inner) {
    return new ReferenceValue(std::move(inner));
}

I_Value* CreateValueArray(uint32_t element_type_code) {
    return new ArrayValue(element_type_code);
}

// The numbers come last: they are the largest group, and their function checks whether the code is one of
// theirs.
I_Value* CreateValueOfType(uint32_t type_code, bool nullable) {
    const auto type = static_cast<ValueType>(type_code);
    switch (type) {
        case ValueType::Date:
            return CreateValueDate(nullable, nullptr, nullptr);
        case ValueType::Time:
            return CreateValueTime(nullable, nullptr, nullptr);
        case ValueType::DateTime:
            return CreateValueDateTime(nullable, nullptr, nullptr);
        case ValueType::FixedBinary:
        case ValueType::VarBinary:
        case ValueType::Blob:
        case ValueType::Picture:
            return CreateBytesOfType(type_code, nullable);
        case ValueType::JSON:
            return CreateValueJSON(nullable, nullptr, nullptr);
        case ValueType::Reference:
            return CreateValueReference(nullptr);
        case ValueType::Array:
            return CreateValueArray(static_cast<uint32_t>(ValueType::String));
        default:
            break;
    }
    I_Value* const number = CreateNumberOfType(type, nullable);
    return number != nullptr ? number : CreateTextOfType(type_code, nullable);
}

}  // namespace nbx
