#include "duckdb_internals/pending_error.h"

#include <duckdb/main/capi/capi_internal.hpp>

namespace mduckdb {

void TakePendingError(duckdb_pending_result pending, duckdb_result* out_result) noexcept {
    *out_result = {};
    try {
        const auto* wrapper = reinterpret_cast<const duckdb::PendingStatementWrapper*>(pending);
        if (wrapper != nullptr && wrapper->statement && wrapper->statement->HasError()) {
            auto result =
                duckdb::make_uniq<duckdb::MaterializedQueryResult>(wrapper->statement->GetErrorObject());
            duckdb::DuckDBTranslateResult(std::move(result), out_result);
        }
    } catch (...) {  // The empty result is a failure without a text.
    }
}

}  // namespace mduckdb
