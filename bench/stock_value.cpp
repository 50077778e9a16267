// The only file here that uses DuckDB's C++ classes: a `duckdb_value` is a heap `duckdb::Value`.
#include "stock_value.h"

#include <duckdb/common/types/data_chunk.hpp>
#include <duckdb/common/types/value.hpp>
#include <duckdb/main/capi/capi_internal.hpp>

namespace bench {
namespace {

duckdb_value Wrap(duckdb::Value value) {
    return reinterpret_cast<duckdb_value>(new duckdb::Value(std::move(value)));
}

}  // namespace

duckdb_value GetStockValue(duckdb_data_chunk chunk, idx_t column, idx_t row) {
    return Wrap(reinterpret_cast<const duckdb::DataChunk*>(chunk)->GetValue(column, row));
}

duckdb_value CastStockText(const std::string& text, duckdb_type type) {
    return Wrap(duckdb::Value(text).DefaultCastAs(duckdb::LogicalType(duckdb::LogicalTypeIdFromC(type))));
}

duckdb_value JsonToStockVariant(const std::string& text) {
    // The C++ function that sets a value's type has another name in each version of DuckDB.
    duckdb::Value json(text);
    duckdb_logical_type_set_alias(duckdb_get_value_type(reinterpret_cast<duckdb_value>(&json)), "JSON");
    return Wrap(json.DefaultCastAs(duckdb::LogicalType::VARIANT()));
}

}  // namespace bench
