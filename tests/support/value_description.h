#pragma once

#include <cstdio>
#include <string>

#include "base/text.h"
#include "nbx/value.h"

namespace mduckdb {

/** The bytes of a binary value in lowercase hexadecimal. */
inline std::string HexOf(nbx::I_Value& value) {
    const auto* bytes = static_cast<nbx::I_RawBytes*>(value.QueryInterface(nbx::kRawBytesInterfaceId));
    if (bytes == nullptr) {
        return "no bytes";
    }
    std::string hex;
    for (uint64_t i = 0; i < bytes->get_Length(); ++i) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02x", static_cast<const uint8_t*>(bytes->get_Data())[i]);
        hex += digits;
    }
    return hex + " of " + std::to_string(bytes->get_DeclaredSize());
}

/** Type, null flag and content of a host value in one line, exact to the last bit, so that a test compares
    whole values: "Long 5", "Boolean NULL?", where a question mark says that the value may be null. */
inline std::string Describe(nbx::I_Value* value) {
    if (value == nullptr) {
        return "no value";
    }
    const auto type = static_cast<nbx::ValueType>(value->get_TypeCode());
    const std::string nullable = value->get_IsNullable() ? "?" : "";
    const auto with = [&](const char* name, const std::string& content) {
        return std::string(name) + " " + (value->get_IsNull() ? "NULL" : content) + nullable;
    };
    char number[64];
    std::snprintf(number, sizeof(number), "%a", value->get_Double());
    switch (type) {
        case nbx::ValueType::Boolean:
            return with("Boolean", value->get_Boolean() ? "true" : "false");
        case nbx::ValueType::Byte:
            return with("Byte", std::to_string(value->get_ULLong()));
        case nbx::ValueType::Short:
            return with("Short", std::to_string(value->get_LLong()));
        case nbx::ValueType::UShort:
            return with("UShort", std::to_string(value->get_ULLong()));
        case nbx::ValueType::Long:
            return with("Long", std::to_string(value->get_LLong()));
        case nbx::ValueType::ULong:
            return with("ULong", std::to_string(value->get_ULLong()));
        case nbx::ValueType::LLong:
            return with("LLong", std::to_string(value->get_LLong()));
        case nbx::ValueType::ULLong:
            return with("ULLong", std::to_string(value->get_ULLong()));
        case nbx::ValueType::Float:
            return with("Float", number);
        case nbx::ValueType::Double:
            return with("Double", number);
        case nbx::ValueType::Date:
            return with("Date", ToUtf8(value->get_Text()));
        case nbx::ValueType::DateTime:
            return with("DateTime", ToUtf8(value->get_Text()));
        case nbx::ValueType::String:
            return with("String", ToUtf8(value->get_Text()));
        case nbx::ValueType::FixedBinary:
            return with("FixedBinary", HexOf(*value));
        case nbx::ValueType::JSON:
            return with("JSON", ToUtf8(value->get_Text()));
        default:
            return with(("type " + std::to_string(value->get_TypeCode())).c_str(), ToUtf8(value->get_Text()));
    }
}

}  // namespace mduckdb
