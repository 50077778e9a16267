
#include "container_values.h"
#include "nbx/value.h"
#include "number_value.h"
#include "text_values.h"
#include "time_values.h"
#include "unicode.h"

namespace nbx {
namespace {

/** The content that `content` points to, or zero. */
template <class T>
T ContentOf(const void* content) noexcept {
    return content == nullptr ? T{} : *static_cast<const T*>(content);
}

template <class T, ValueType kType>
I_Value* MakeNumber(bool nullable, const void* content, const void* /*extra*/) {
    return new NumberValue<T>(static_cast<uint32_t>(kType), nullable, ContentOf<T>(content));
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

I_Value* CreateValueBoolean(bool nullable, const void* content, const void* extra) {
    return MakeNumber<bool, ValueType::Boolean>(nullable, content, extra);
}

I_Value* CreateValueByte(bool nullable, const void* content, const void* extra) {
    return MakeNumber<uint8_t, ValueType::Byte>(nullable, content, extra);
}

I_Value* CreateValueShort(bool nullable, const void* content, const void* extra) {
    return MakeNumber<int16_t, ValueType::Short>(nullable, content, extra);
}

I_Value* CreateValueUShort(bool nullable, const void* content, const void* extra) {
    return MakeNumber<uint16_t, ValueType::UShort>(nullable, content, extra);
}

I_Value* CreateValueLong(bool nullable, const void* content, const void* extra) {
    return MakeNumber<int32_t, ValueType::Long>(nullable, content, extra);
}

I_Value* CreateValueULong(bool nullable, const void* content, const void* extra) {
    return MakeNumber<uint32_t, ValueType::ULong>(nullable, content, extra);
}

I_Value* CreateValueLLong(bool nullable, const void* content, const void* extra) {
    return MakeNumber<int64_t, ValueType::LLong>(nullable, content, extra);
}

I_Value* CreateValueULLong(bool nullable, const void* content, const void* extra) {
    return MakeNumber<uint64_t, ValueType::ULLong>(nullable, content, extra);
}

I_Value* CreateValueFloat(bool nullable, const void* content, const void* extra) {
    return MakeNumber<float, ValueType::Float>(nullable, content, extra);
}

I_Value* CreateValueDouble(bool nullable, const void* content, const void* extra) {
    return MakeNumber<double, ValueType::Double>(nullable, content, extra);
}

I_Value* CreateValueDate(bool nullable, const void* content, const void* /*extra*/) {
    return new DateValue(nullable, ContentOf<DateContent>(content));
}

I_Value* CreateValueTime(bool nullable, const void* content, const void* /*extra*/) {
    return new TimeValue(nullable, ContentOf<TimeContent>(content));
}

I_Value* CreateValueDateTime(bool nullable, const void* content, const void* /*extra*/) {
    return new DateTimeValue(nullable, ContentOf<DateTimeContent>(content));
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

I_Value* CreateValueReference(smart_ptr<I_Value> inner) {
    return new ReferenceValue(std::move(inner));
}

I_Value* CreateValueArray(uint32_t element_type_code) {
    return new ArrayValue(element_type_code);
}

I_Value* CreateValueOfType(uint32_t type_code, bool nullable) {
    switch (static_cast<ValueType>(type_code)) {
        case ValueType::Boolean:
            return CreateValueBoolean(nullable, nullptr, nullptr);
        case ValueType::Byte:
            return CreateValueByte(nullable, nullptr, nullptr);
        case ValueType::Short:
            return CreateValueShort(nullable, nullptr, nullptr);
        case ValueType::UShort:
            return CreateValueUShort(nullable, nullptr, nullptr);
        case ValueType::Medium:
            return MakeNumber<int32_t, ValueType::Medium>(nullable, nullptr, nullptr);
        case ValueType::UMedium:
            return MakeNumber<uint32_t, ValueType::UMedium>(nullable, nullptr, nullptr);
        case ValueType::Long:
            return CreateValueLong(nullable, nullptr, nullptr);
        case ValueType::ULong:
            return CreateValueULong(nullable, nullptr, nullptr);
        case ValueType::LLong:
            return CreateValueLLong(nullable, nullptr, nullptr);
        case ValueType::ULLong:
            return CreateValueULLong(nullable, nullptr, nullptr);
        case ValueType::Float:
            return CreateValueFloat(nullable, nullptr, nullptr);
        case ValueType::Double:
            return CreateValueDouble(nullable, nullptr, nullptr);
        case ValueType::LDouble:
            return MakeNumber<double, ValueType::LDouble>(nullable, nullptr, nullptr);
        case ValueType::Currency:
            return MakeNumber<double, ValueType::Currency>(nullable, nullptr, nullptr);
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
            return MakeBytes(type_code, nullable, nullptr, nullptr);
        case ValueType::Enum8:
            return MakeNumber<uint8_t, ValueType::Enum8>(nullable, nullptr, nullptr);
        case ValueType::Enum16:
            return MakeNumber<uint16_t, ValueType::Enum16>(nullable, nullptr, nullptr);
        case ValueType::JSON:
            return CreateValueJSON(nullable, nullptr, nullptr);
        case ValueType::Reference:
            return CreateValueReference(nullptr);
        case ValueType::Array:
            return CreateValueArray(static_cast<uint32_t>(ValueType::String));
        case ValueType::String:
            break;
    }
    return MakeText(type_code, nullable, nullptr);
}

}  // namespace nbx
