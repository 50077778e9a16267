#include "values/parameter_binding.h"

#include "base/errors.h"
#include "duckdb_internals/failures.h"
#include "values/host_value_binding.h"

namespace mduckdb {

BindOutcome BindParameter(duckdb_prepared_statement prepared, idx_t index, const ValueHolder& made) {
    if (!made) {
        return BindOutcome::no_value;
    }
    return duckdb_bind_value(prepared, index, made.get()) == DuckDBSuccess ? BindOutcome::bound
                                                                           : BindOutcome::refused_by_duckdb;
}

ParameterValues::ParameterValues(const nbx::ValueRow* row) {
    const std::size_t count = row != nullptr ? row->get_Count() : 0;
    values_.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        values_.push_back(HostValueToDuckDB(row->get_Item(i).get()));
    }
}

void ParameterValues::Bind(duckdb_prepared_statement prepared, const nbx::String& database_path) const {
    for (std::size_t i = 0; i < values_.size(); ++i) {
        const BindOutcome outcome = BindParameter(prepared, i + 1, values_[i]);
        if (outcome == BindOutcome::refused_by_duckdb) {
            ThrowDuckDBError(database_path, FailureOf(prepared, kBindFailureText));
        }
        if (outcome == BindOutcome::no_value) {
            ThrowDuckDBError(database_path, kBindFailureText);
        }
    }
}

}  // namespace mduckdb
