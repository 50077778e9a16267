#pragma once

#include <cstdio>
#include <string>

#include "base/text.h"
#include "nbx/value.h"
#include "support/kind_names.h"

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

/** A number to its last bit, bytes in hexadecimal, everything else as its text. */
inline std::string ContentOf(nbx::I_Value& value) {
    char number[64];
    switch (static_cast<nbx::ValueType>(value.get_TypeCode())) {
        case nbx::ValueType::Boolean:
            return value.get_Boolean() ? "true" : "false";
        case nbx::ValueType::Short:
        case nbx::ValueType::Long:
        case nbx::ValueType::LLong:
            return std::to_string(value.get_LLong());
        case nbx::ValueType::Byte:
        case nbx::ValueType::UShort:
        case nbx::ValueType::ULong:
        case nbx::ValueType::ULLong:
            return std::to_string(value.get_ULLong());
        case nbx::ValueType::Float:
        case nbx::ValueType::Double:
            std::snprintf(number, sizeof(number), "%a", value.get_Double());
            return number;
        case nbx::ValueType::FixedBinary:
            return HexOf(value);
        default:
            return ToUtf8(value.get_Text());
    }
}

/** Type, null flag and content of a host value in one line, exact to the last bit, so that tests can compare
    whole values: "Long 5", "Boolean NULL?", where a question mark says that the value may be null. */
inline std::string Describe(nbx::I_Value* value) {
    if (value == nullptr) {
        return "no value";
    }
    return KindName(value->get_TypeCode()) + " " + (value->get_IsNull() ? "NULL" : ContentOf(*value)) +
           (value->get_IsNullable() ? "?" : "");
}

}  // namespace mduckdb
