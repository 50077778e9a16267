#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "nbx/value.h"

namespace mduckdb {

/** The kinds of host value in the order of their codes. */
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

/** "kind 99" for a code that is not known. */
inline std::string KindName(uint32_t code) {
    for (const auto& [kind, name] : kKinds) {
        if (static_cast<uint32_t>(kind) == code) {
            return name;
        }
    }
    return "kind " + std::to_string(code);
}

}  // namespace mduckdb
