#include "duckdb_internals/managed_results.h"

#include <cstring>
#include <duckdb/common/types/column/column_data_collection.hpp>
#include <duckdb/main/capi/capi_internal.hpp>
#include <duckdb/main/materialized_query_result.hpp>
#include <duckdb/main/stream_query_result.hpp>
#include <memory>
#include <new>

#include "duckdb_internals/out_of_memory.h"

namespace {

/** Does what `duckdb_pending_prepared` does, except for the kind of result, which the C API cannot choose. */
duckdb::unique_ptr<duckdb::PendingQueryResult> Start(duckdb::PreparedStatementWrapper& prepared,
                                                     duckdb::QueryParameters kind) {
    duckdb::PreparedStatement& statement = *prepared.statement;
    duckdb::PreparedStatement::VerifyParameters(prepared.values, statement.named_param_map);
    duckdb::PendingQueryParameters parameters;
    parameters.parameters = &prepared.values;
    parameters.query_parameters = kind;
    return statement.context->PendingQuery(statement.query, statement.data, parameters);
}

struct Scan {
    duckdb::ColumnDataScanState state;
    bool is_started = false;
};

duckdb_data_chunk ScanChunk(duckdb::ColumnDataCollection& rows, Scan& scan) {
    if (!scan.is_started) {
        // Copies the rows: a chunk without copies would be valid only until the scan moves its pins.
        rows.InitializeScan(scan.state, duckdb::ColumnDataScanProperties::DISALLOW_ZERO_COPY);
        scan.is_started = true;
    }
    // The collection's own method would take the chunk's memory from the engine. Created before the scan,
    // which moves past the rows even if there is no memory for them.
    auto chunk = std::make_unique<duckdb::DataChunk>();
    chunk->Initialize(duckdb::Allocator::DefaultAllocator(), rows.Types());
    const bool has_rows = rows.Scan(scan.state, *chunk) && chunk->size() > 0;
    return has_rows ? reinterpret_cast<duckdb_data_chunk>(chunk.release()) : nullptr;
}

/** `kind` of a result that streams or does not. */
duckdb_state PendPrepared(duckdb_prepared_statement prepared, duckdb::QueryParameters kind,
                          duckdb_pending_result* out_result) {
    auto* wrapper = reinterpret_cast<duckdb::PreparedStatementWrapper*>(prepared);
    if (wrapper == nullptr || !wrapper->statement || wrapper->statement->HasError()) {
        return duckdb_pending_prepared(prepared, out_result);
    }
    auto pending = std::make_unique<duckdb::PendingStatementWrapper>();
    pending->allow_streaming = kind.output_type == duckdb::QueryResultOutputType::ALLOW_STREAMING;
    try {
        pending->statement = Start(*wrapper, kind);
    } catch (const std::exception& error) {
        mduckdb::ThrowIfOutOfMemory();
        pending->statement = duckdb::make_uniq<duckdb::PendingQueryResult>(duckdb::ErrorData(error));
    }
    const bool has_started = !pending->statement->HasError();
    *out_result = reinterpret_cast<duckdb_pending_result>(pending.release());
    return has_started ? DuckDBSuccess : DuckDBError;
}

}  // namespace

duckdb_state duckdb_pending_prepared_managed(duckdb_prepared_statement prepared,
                                             duckdb_pending_result* out_result) {
    duckdb::QueryParameters kind(duckdb::QueryResultOutputType::FORCE_MATERIALIZED);
    kind.memory_type = duckdb::QueryResultMemoryType::BUFFER_MANAGED;
    return PendPrepared(prepared, kind, out_result);
}

duckdb_state duckdb_pending_prepared_stream(duckdb_prepared_statement prepared,
                                            duckdb_pending_result* out_result) {
    return PendPrepared(prepared, duckdb::QueryResultOutputType::ALLOW_STREAMING, out_result);
}

duckdb_result_scan duckdb_create_result_scan(void) {
    return reinterpret_cast<duckdb_result_scan>(new (std::nothrow) Scan);
}

void duckdb_destroy_result_scan(duckdb_result_scan* scan) {
    delete reinterpret_cast<Scan*>(*scan);
    *scan = nullptr;
}

duckdb_data_chunk duckdb_scan_result_chunk(duckdb_result result, duckdb_result_scan scan, char** out_error) {
    *out_error = nullptr;
    try {
        const auto* data = static_cast<const duckdb::DuckDBResultData*>(result.internal_data);
        if (data == nullptr || !data->result || data->result->HasError()) {
            return nullptr;
        }
        if (data->result->type != duckdb::QueryResultType::MATERIALIZED_RESULT) {
            // A stream that was read to its end is closed, and throws when it is asked again.
            const bool is_open = data->result->type != duckdb::QueryResultType::STREAM_RESULT ||
                                 data->result->Cast<duckdb::StreamQueryResult>().IsOpen();
            auto chunk = is_open ? data->result->Fetch() : nullptr;
            return chunk && chunk->size() > 0 ? reinterpret_cast<duckdb_data_chunk>(chunk.release())
                                              : nullptr;
        }
        return ScanChunk(data->result->Cast<duckdb::MaterializedQueryResult>().Collection(),
                         *reinterpret_cast<Scan*>(scan));
    } catch (const std::exception& error) {
        mduckdb::ThrowIfOutOfMemory();
        *out_error = ::strdup(duckdb::ErrorData(error).Message().c_str());
        if (*out_error == nullptr) {
            throw std::bad_alloc();
        }
        return nullptr;
    }
}
