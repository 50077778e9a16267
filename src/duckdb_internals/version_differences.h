#pragma once

#include <duckdb/common/operator/cast_operators.hpp>
#include <duckdb/common/operator/string_cast.hpp>
#include <duckdb/common/types/hugeint.hpp>
#include <duckdb/common/types/vector.hpp>
#include <duckdb/main/capi/capi_internal.hpp>
#include <memory>
#include <string>
#include <utility>
#if MDUCKDB_DUCKDB_MAJOR == 1
#include <duckdb/main/materialized_query_result.hpp>
#include <duckdb/main/stream_query_result.hpp>
#else
#include <duckdb/common/operator/decimal_cast_operators.hpp>
#include <duckdb/common/types/string_heap.hpp>
#include <duckdb/common/vector/array_vector.hpp>
#include <duckdb/common/vector/list_vector.hpp>
#include <duckdb/common/vector/struct_vector.hpp>
#endif

#include "duckdb_internals/powers_of_ten.h"

/* What DuckDB 1.5 and 2.0 name differently in values, vectors and results; version_casts.h,
   version_statements.h and version_vectors.h have the other names, version_settings.h what differs in
   engines. Only these files ask for the version. */
namespace mduckdb::version {

#if MDUCKDB_DUCKDB_MAJOR == 1

/** Whether the type has what some types are incomplete without: the width of a DECIMAL, the parts of a
   STRUCT. Also true for a type with a name of its own, as JSON. */
inline bool HasTypeInfo(const duckdb::LogicalType& type) {
    return type.AuxInfo() != nullptr;
}

/** Also true for a struct whose fields have no names, which is a type of its own in DuckDB 2.0. */
inline bool IsStruct(duckdb::LogicalTypeId type) {
    return type == duckdb::LogicalTypeId::STRUCT;
}

/** A vector that holds the value in its first row. */
inline duckdb::Vector MakeVector(const duckdb::Value& value) {
    return duckdb::Vector(value);
}
inline void ToUnifiedFormat(duckdb::Vector& vector, idx_t count,
                            duckdb::RecursiveUnifiedVectorFormat& format) {
    duckdb::Vector::RecursiveToUnifiedFormat(vector, count, format);
}
inline void Flatten(duckdb::Vector& vector, idx_t count) {
    vector.Flatten(count);
}

/** The elements of lists, arrays and structs. */
inline duckdb::Vector& ListChild(duckdb::Vector& vector) {
    return duckdb::ListVector::GetEntry(vector);
}
inline duckdb::Vector& ArrayChild(duckdb::Vector& vector) {
    return duckdb::ArrayVector::GetEntry(vector);
}
inline duckdb::Vector& StructChild(duckdb::Vector& vector, idx_t field) {
    return *duckdb::StructVector::GetEntries(vector)[field];
}
/** Of a chunk whose vectors have been filled. */
inline void SetRowCount(duckdb::DataChunk& chunk, idx_t count) {
    chunk.SetCardinality(count);
}

/** DuckDB's cast by its default rules; false with the error's text. */
inline bool TryCast(const duckdb::Value& value, const duckdb::LogicalType& type, duckdb::Value& result,
                    std::string& error) {
    return value.DefaultTryCastAs(type, result, &error);
}
/** Changes the type of the value to another one with the same storage. */
inline void Reinterpret(duckdb::Value& value, const duckdb::LogicalType& type) {
    value.Reinterpret(type);
}

/** Microseconds, and nanoseconds of a TIME_NS. */
inline int64_t UnitsOf(duckdb::dtime_t time) {
    return time.micros;
}
inline int64_t UnitsOf(duckdb::dtime_ns_t time) {
    return time.micros;
}

/** Where casts store the texts that they format; replaced to free them. */
using TextHeap = duckdb::Vector;
inline std::unique_ptr<TextHeap> MakeTextHeap() {
    return std::make_unique<duckdb::Vector>(duckdb::LogicalType::VARCHAR, idx_t{1});
}
// The types in which a vector stores these, as the casts take them.
using StoredTimestampTz = duckdb::timestamp_t;
using StoredTimestampS = duckdb::timestamp_t;
using StoredTimestampMs = duckdb::timestamp_t;
using StringCastWithZone = duckdb::StringCastTZ;

/** Null when the result has not failed. */
inline const duckdb::ErrorData* FindError(duckdb::DuckDBResultData& data) {
    return data.result && data.result->HasError() ? &data.result->GetErrorObject() : nullptr;
}
/** The rows of a computed result; null when it failed or is a stream. */
inline duckdb::ColumnDataCollection* FindRows(duckdb::DuckDBResultData& data) {
    if (!data.result || data.result->HasError() ||
        data.result->type != duckdb::QueryResultType::MATERIALIZED_RESULT) {
        return nullptr;
    }
    return &data.result->Cast<duckdb::MaterializedQueryResult>().Collection();
}
/** For a result whose rows have not been read. */
inline void ReplaceRows(duckdb::DuckDBResultData& data,
                        duckdb::unique_ptr<duckdb::ColumnDataCollection> rows) {
    const duckdb::QueryResult& old = *data.result;
    data.result = duckdb::make_uniq<duckdb::MaterializedQueryResult>(
        old.statement_type, old.properties, old.names, std::move(rows), old.client_properties);
}
/** The next rows of a stream; null at its end. */
inline duckdb::unique_ptr<duckdb::DataChunk> FetchFromStream(duckdb::DuckDBResultData& data) {
    // A stream that was read to its end is closed, and throws when it is asked again.
    const bool is_open = data.result && (data.result->type != duckdb::QueryResultType::STREAM_RESULT ||
                                         data.result->Cast<duckdb::StreamQueryResult>().IsOpen());
    return is_open ? data.result->Fetch() : nullptr;
}
inline idx_t ColumnCount(const duckdb::DuckDBResultData& data) {
    return data.result ? data.result->names.size() : 0;
}
inline const std::string& ColumnName(const duckdb::DuckDBResultData& data, idx_t column) {
    return data.result->names[column];
}
inline const duckdb::vector<duckdb::LogicalType>& ColumnTypes(const duckdb::DuckDBResultData& data) {
    return data.result->types;
}
inline duckdb::ClientProperties& ClientPropertiesOf(duckdb::DuckDBResultData& data) {
    return data.result->client_properties;
}
inline duckdb::unique_ptr<duckdb::QueryResult> MakeFailedResult(const duckdb::ErrorData& error) {
    return duckdb::make_uniq<duckdb::MaterializedQueryResult>(error);
}

/** By what a prepared statement knows its parameters' values. */
inline std::string ParameterKey(const std::string& name) {
    return name;
}

/** Up to this scale, DuckDB divides a DECIMAL whose number a double holds exactly once. */
inline constexpr uint8_t kMostDividedScale = 38;
/** Another DECIMAL as DuckDB's cast to DOUBLE rounds it; `power` is 10^`scale`. */
inline double RoundDecimal(int64_t number, uint8_t scale, double power) {
    const int64_t whole = number / kPowersOfTen<int64_t>[scale];
    return static_cast<double>(whole) + static_cast<double>(number % kPowersOfTen<int64_t>[scale]) / power;
}
inline double RoundDecimal(const duckdb::hugeint_t& number, uint8_t scale, double power) {
    if (scale == 0) {
        return duckdb::Hugeint::Cast<double>(number);
    }
    duckdb::hugeint_t rest;
    const duckdb::hugeint_t whole =
        duckdb::Hugeint::DivMod(number, duckdb::Hugeint::POWERS_OF_TEN[scale], rest);
    return duckdb::Hugeint::Cast<double>(whole) + duckdb::Hugeint::Cast<double>(rest) / power;
}

#else

inline bool HasTypeInfo(const duckdb::LogicalType& type) {
    const duckdb::LogicalTypeInfo& info = type.GetTypeInfo();
    return info.type != duckdb::LogicalTypeInfoType::INVALID_TYPE_INFO || !info.alias.empty() ||
           info.extension_info;
}

inline bool IsStruct(duckdb::LogicalTypeId type) {
    return type == duckdb::LogicalTypeId::STRUCT || type == duckdb::LogicalTypeId::TUPLE;
}

inline duckdb::Vector MakeVector(const duckdb::Value& value) {
    return duckdb::Vector(value, duckdb::count_t(1));
}
inline void ToUnifiedFormat(duckdb::Vector& vector, idx_t /*count*/,
                            duckdb::RecursiveUnifiedVectorFormat& format) {
    duckdb::Vector::RecursiveToUnifiedFormat(vector, format);
}
inline void Flatten(duckdb::Vector& vector, idx_t /*count*/) {
    vector.Flatten();
}

inline duckdb::Vector& ListChild(duckdb::Vector& vector) {
    return duckdb::ListVector::GetChildMutable(vector);
}
inline duckdb::Vector& ArrayChild(duckdb::Vector& vector) {
    return duckdb::ArrayVector::GetChildMutable(vector);
}
inline duckdb::Vector& StructChild(duckdb::Vector& vector, idx_t field) {
    return duckdb::StructVector::GetEntries(vector)[field];
}
inline void SetRowCount(duckdb::DataChunk& chunk, idx_t count) {
    chunk.SetChildCardinality(count);
}

inline bool TryCast(const duckdb::Value& value, const duckdb::LogicalType& type, duckdb::Value& result,
                    std::string& error) {
    auto cast = value.DefaultTryCastAs(type, &error);
    if (!cast) {
        return false;
    }
    result = std::move(*cast);
    return true;
}
inline void Reinterpret(duckdb::Value& value, const duckdb::LogicalType& type) {
    value = value.WithType(type);
}

inline int64_t UnitsOf(duckdb::dtime_t time) {
    return time.value;
}
inline int64_t UnitsOf(duckdb::dtime_ns_t time) {
    return time.value;
}

using TextHeap = duckdb::StringHeap;
inline std::unique_ptr<TextHeap> MakeTextHeap() {
    return std::make_unique<duckdb::StringHeap>();
}
using StoredTimestampTz = duckdb::timestamp_tz_t;
using StoredTimestampS = duckdb::timestamp_sec_t;
using StoredTimestampMs = duckdb::timestamp_ms_t;
using StringCastWithZone = duckdb::StringCast;

inline bool IsGiven(const duckdb::DuckDBResultData& data) {
    return data.stream || data.result;
}
inline const duckdb::ErrorData* FindError(duckdb::DuckDBResultData& data) {
    if (!IsGiven(data) || !data.HasError()) {
        return nullptr;
    }
    return data.stream ? &data.stream->GetErrorObject() : &data.result->GetErrorObject();
}
inline duckdb::ColumnDataCollection* FindRows(duckdb::DuckDBResultData& data) {
    if (data.IsStreaming() || !data.result || data.result->HasError()) {
        return nullptr;
    }
    return &data.result->Collection();
}
inline void ReplaceRows(duckdb::DuckDBResultData& data,
                        duckdb::unique_ptr<duckdb::ColumnDataCollection> rows) {
    const duckdb::QueryResult& old = *data.result;
    data.result =
        duckdb::make_uniq<duckdb::QueryResult>(old.GetStatementType(), old.GetStatementProperties(),
                                               old.GetNames(), std::move(rows), old.client_properties);
}
inline duckdb::unique_ptr<duckdb::DataChunk> FetchFromStream(duckdb::DuckDBResultData& data) {
    return data.stream ? data.stream->Fetch() : nullptr;
}
inline idx_t ColumnCount(const duckdb::DuckDBResultData& data) {
    return IsGiven(data) ? data.ColumnCount() : 0;
}
inline const std::string& ColumnName(const duckdb::DuckDBResultData& data, idx_t column) {
    return data.ColumnName(column).GetIdentifierName();
}
inline const duckdb::vector<duckdb::LogicalType>& ColumnTypes(const duckdb::DuckDBResultData& data) {
    return data.GetTypes();
}
inline duckdb::ClientProperties& ClientPropertiesOf(duckdb::DuckDBResultData& data) {
    return data.GetClientProperties();
}
inline duckdb::unique_ptr<duckdb::QueryResult> MakeFailedResult(const duckdb::ErrorData& error) {
    return duckdb::make_uniq<duckdb::QueryResult>(error);
}

inline duckdb::Identifier ParameterKey(const std::string& name) {
    return duckdb::Identifier(name);
}

inline constexpr uint8_t kMostDividedScale = 22;
template <class Number>
double RoundDecimal(const Number& number, uint8_t scale, double /*power*/) {
    duckdb::CastParameters parameters;
    double result = 0;
    duckdb::TryCastFromDecimal::Operation<Number, double>(number, result, parameters,
                                                          duckdb::Decimal::MAX_WIDTH_DECIMAL, scale);
    return result;
}

#endif

}  // namespace mduckdb::version
