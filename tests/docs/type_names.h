#pragma once

#include <utf8.h>

#include <cstdint>
#include <string>
#include <utility>

#include "nbx/value.h"

namespace mduckdb_docs {

/** Host value kinds in the order of their codes. */
constexpr std::pair<nbx::ValueType, const char*> kKinds[] = {
    {nbx::ValueType::Boolean, "Boolean"},
    {nbx::ValueType::Byte, "Byte"},
    {nbx::ValueType::Short, "Short"},
    {nbx::ValueType::UShort, "UShort"},
    {nbx::ValueType::Medium, "Medium"},
    {nbx::ValueType::UMedium, "UMedium"},
    {nbx::ValueType::Long, "Long"},
    {nbx::ValueType::ULong, "ULong"},
    {nbx::ValueType::LLong, "LLong"},
    {nbx::ValueType::ULLong, "ULLong"},
    {nbx::ValueType::Float, "Float"},
    {nbx::ValueType::Double, "Double"},
    {nbx::ValueType::LDouble, "LDouble"},
    {nbx::ValueType::Currency, "Currency"},
    {nbx::ValueType::Date, "Date"},
    {nbx::ValueType::Time, "Time"},
    {nbx::ValueType::DateTime, "DateTime"},
    {nbx::ValueType::String, "String"},
    {nbx::ValueType::FixedBinary, "FixedBinary"},
    {nbx::ValueType::VarBinary, "VarBinary"},
    {nbx::ValueType::Blob, "Blob"},
    {nbx::ValueType::Picture, "Picture"},
    {nbx::ValueType::Enum8, "Enum8"},
    {nbx::ValueType::Enum16, "Enum16"},
    {nbx::ValueType::JSON, "JSON"},
    {nbx::ValueType::Reference, "Reference"},
    {nbx::ValueType::Array, "Array"},
};

inline std::string KindName(uint32_t code) {
    for (const auto& [kind, name] : kKinds) {
        if (static_cast<uint32_t>(kind) == code) {
            return name;
        }
    }
    return "kind " + std::to_string(code);
}

/** A text as code in a cell of a table; one with bytes that no page shows, in hexadecimal. */
inline std::string Code(const std::string& text) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string code;
    std::string bytes;
    bool is_shown = utf8::is_valid(text.begin(), text.end());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        is_shown = is_shown && byte >= 0x20;
        code += character == '|' ? "\\|" : std::string(1, character);
        bytes += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text.empty() ? "(empty)" : is_shown ? "`" + code + "`" : "(bytes " + bytes + ")";
}

}  // namespace mduckdb_docs
