#pragma once

#include "nbx/mrsql/duckdb_statement.h"
#include "nbx/value.h"

namespace mduckdb_docs {

using nbx::mrsql::I_DuckDBStatement;

struct KindSample {
    nbx::ValueType kind;
    /** The content of the value; Reference and Array are created separately. */
    const char* text;
    const char* remark;
};

constexpr KindSample kKindSamples[] = {
    {nbx::ValueType::Boolean, "true", ""},
    {nbx::ValueType::Byte, "5", ""},
    {nbx::ValueType::Short, "-5", ""},
    {nbx::ValueType::UShort, "5", ""},
    {nbx::ValueType::Medium, "-5", ""},
    {nbx::ValueType::UMedium, "5", ""},
    {nbx::ValueType::Long, "-5", ""},
    {nbx::ValueType::ULong, "5", ""},
    {nbx::ValueType::LLong, "-5", ""},
    {nbx::ValueType::ULLong, "5", ""},
    {nbx::ValueType::Float, "1.5", ""},
    {nbx::ValueType::Double, "1.5", ""},
    {nbx::ValueType::LDouble, "1.5", "digits beyond a double"},
    {nbx::ValueType::Currency, "1.5", "digits beyond a double"},
    {nbx::ValueType::Date, "2024-01-31", ""},
    {nbx::ValueType::Time, "12:34:56.789", ""},
    {nbx::ValueType::DateTime, "2024-01-31 12:34:56.789", ""},
    {nbx::ValueType::String, "Wien", "a lone surrogate becomes U+FFFD"},
    {nbx::ValueType::FixedBinary, "00ff", ""},
    {nbx::ValueType::VarBinary, "00ff", ""},
    {nbx::ValueType::Blob, "00ff", ""},
    {nbx::ValueType::Picture, "00ff", ""},
    {nbx::ValueType::Enum8, "1", ""},
    {nbx::ValueType::Enum16, "1", ""},
    {nbx::ValueType::JSON, "[1, 2]", "for JSON text that is not an envelope: that it is JSON"},
    {nbx::ValueType::Reference, "", "here to a Long"},
    {nbx::ValueType::Array, "", "here of Longs; the elements' declared kind decides"},
};

/** Kinds of which arrays are tried. */
constexpr nbx::ValueType kElementKinds[] = {
    nbx::ValueType::Boolean,  nbx::ValueType::Byte,     nbx::ValueType::Short, nbx::ValueType::UShort,
    nbx::ValueType::Medium,   nbx::ValueType::UMedium,  nbx::ValueType::Long,  nbx::ValueType::ULong,
    nbx::ValueType::LLong,    nbx::ValueType::ULLong,   nbx::ValueType::Float, nbx::ValueType::Double,
    nbx::ValueType::LDouble,  nbx::ValueType::Currency, nbx::ValueType::Date,  nbx::ValueType::Time,
    nbx::ValueType::DateTime, nbx::ValueType::String,   nbx::ValueType::Blob,  nbx::ValueType::JSON,
    nbx::ValueType::Enum8,
};

struct TypedBind {
    const char* name;
    void (*bind)(I_DuckDBStatement& statement);
};

inline constexpr unsigned char kBits[] = {4, 0xF5};
inline constexpr unsigned char kBytes[] = {0x00, 0xFF};

constexpr TypedBind kTypedBinds[] = {
    {"BindNull", [](auto& s) { s.BindNull(1); }},
    {"BindBoolean", [](auto& s) { s.BindBoolean(1, true); }},
    {"BindTinyInt", [](auto& s) { s.BindTinyInt(1, -5); }},
    {"BindUTinyInt", [](auto& s) { s.BindUTinyInt(1, 5); }},
    {"BindSmallInt", [](auto& s) { s.BindSmallInt(1, -5); }},
    {"BindUSmallInt", [](auto& s) { s.BindUSmallInt(1, 5); }},
    {"BindInteger", [](auto& s) { s.BindInteger(1, -5); }},
    {"BindUInteger", [](auto& s) { s.BindUInteger(1, 5); }},
    {"BindBigInt", [](auto& s) { s.BindBigInt(1, -5); }},
    {"BindUBigInt", [](auto& s) { s.BindUBigInt(1, 5); }},
    {"BindHugeInt", [](auto& s) { s.BindHugeInt(1, 5, 0); }},
    {"BindUHugeInt", [](auto& s) { s.BindUHugeInt(1, 5, 0); }},
    {"BindDecimal", [](auto& s) { s.BindDecimal(1, 4, 2, 1250, 0); }},
    {"BindFloat", [](auto& s) { s.BindFloat(1, 1.5F); }},
    {"BindDouble", [](auto& s) { s.BindDouble(1, 1.5); }},
    {"BindDate", [](auto& s) { s.BindDate(1, 2024, 1, 31); }},
    {"BindTime", [](auto& s) { s.BindTime(1, 45'296'789'012); }},
    {"BindTimeNs", [](auto& s) { s.BindTimeNs(1, 45'296'789'012'345); }},
    {"BindTimeTz", [](auto& s) { s.BindTimeTz(1, 45'296'789'012, 7200); }},
    {"BindTimestamp", [](auto& s) { s.BindTimestamp(1, 1'706'704'496'789'012); }},
    {"BindTimestampTz", [](auto& s) { s.BindTimestampTz(1, 1'706'704'496'789'012); }},
    {"BindTimestampS", [](auto& s) { s.BindTimestampS(1, 1'706'704'496); }},
    {"BindTimestampMs", [](auto& s) { s.BindTimestampMs(1, 1'706'704'496'789); }},
    {"BindTimestampNs", [](auto& s) { s.BindTimestampNs(1, 1'706'704'496'789'012'345); }},
    {"BindInterval", [](auto& s) { s.BindInterval(1, 12, 2, 11'045'678'000); }},
    {"BindVarchar", [](auto& s) { s.BindVarchar(1, nbx::String("Wien")); }},
    {"BindBlob", [](auto& s) { s.BindBlob(1, kBytes, sizeof kBytes); }},
    {"BindBit", [](auto& s) { s.BindBit(1, kBits, sizeof kBits); }},
    {"BindBignum", [](auto& s) { s.BindBignum(1, kBytes + 1, 1, 0); }},
    {"BindUuid", [](auto& s) { s.BindUuid(1, 1, 2); }},
};

}  // namespace mduckdb_docs
