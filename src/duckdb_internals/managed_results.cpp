#include "duckdb_internals/managed_results.h"

#include <cstring>
#include <duckdb/common/types/column/column_data_collection.hpp>
#include <memory>
#include <new>

#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/version_differences.h"
#include "duckdb_internals/version_statements.h"

namespace {

namespace version = mduckdb::version;

struct Scan {
    duckdb::ColumnDataScanState state;
    bool is_started = false;
};

duckdb_data_chunk ScanChunk(duckdb::ColumnDataCollection& rows, Scan& scan, bool in_place) {
    using duckdb::ColumnDataScanProperties;
    if (!scan.is_started) {
        rows.InitializeScan(scan.state);
        scan.is_started = true;
    }
    // Without copies a chunk is valid only until the scan moves its pins.
    scan.state.properties =
        in_place ? ColumnDataScanProperties::ALLOW_ZERO_COPY : ColumnDataScanProperties::DISALLOW_ZERO_COPY;
    // The collection's own method would take the chunk's memory from the engine. Created before the scan,
    // which moves past the rows even if there is no memory for them.
    auto chunk = std::make_unique<duckdb::DataChunk>();
    chunk->Initialize(duckdb::Allocator::DefaultAllocator(), rows.Types());
    const bool has_rows = rows.Scan(scan.state, *chunk) && chunk->size() > 0;
    return has_rows ? reinterpret_cast<duckdb_data_chunk>(chunk.release()) : nullptr;
}

duckdb_state PendPrepared(duckdb_prepared_statement prepared, version::RowsIn rows,
                          duckdb_pending_result* out_result) {
    auto* wrapper = reinterpret_cast<duckdb::PreparedStatementWrapper*>(prepared);
    if (wrapper == nullptr || !wrapper->statement || wrapper->statement->HasError()) {
        return duckdb_pending_prepared(prepared, out_result);
    }
    auto pending = std::make_unique<duckdb::PendingStatementWrapper>();
    try {
        version::Begin(*wrapper, rows, *pending);
    } catch (const std::exception& error) {
        mduckdb::ThrowIfOutOfMemory();
        pending->statement = version::MakeFailedPending(duckdb::ErrorData(error));
    }
    const bool has_begun = !pending->statement->HasError();
    *out_result = reinterpret_cast<duckdb_pending_result>(pending.release());
    return has_begun ? DuckDBSuccess : DuckDBError;
}

/** The most that a small result may hold. A block of the buffer manager is four times as large. */
constexpr idx_t kSmallResultBytes = 64 * 1024;

bool IsSmallInBlocks(const duckdb::ColumnDataCollection& rows) {
    return rows.Count() > 0 && rows.SizeInBytes() <= kSmallResultBytes &&
           rows.AllocationSize() > kSmallResultBytes;
}

duckdb::unique_ptr<duckdb::ColumnDataCollection> CopyToPlainMemory(duckdb::ColumnDataCollection& rows) {
    auto copy =
        duckdb::make_uniq<duckdb::ColumnDataCollection>(duckdb::Allocator::DefaultAllocator(), rows.Types());
    for (duckdb::DataChunk& chunk : rows.Chunks()) {
        copy->Append(chunk);
    }
    return copy;
}

}  // namespace

duckdb_state duckdb_await_stream(duckdb_result* result) {
    auto* data = static_cast<duckdb::DuckDBResultData*>(result->internal_data);
    try {
        return data == nullptr || version::AwaitRows(*data) ? DuckDBSuccess : DuckDBError;
    } catch (const std::exception&) {
        mduckdb::ThrowIfOutOfMemory();
        return DuckDBError;
    }
}

void duckdb_compact_result(duckdb_result* result) {
    auto* data = static_cast<duckdb::DuckDBResultData*>(result->internal_data);
    if (data == nullptr) {
        return;
    }
    try {
        duckdb::ColumnDataCollection* const rows = version::FindRows(*data);
        if (rows != nullptr && IsSmallInBlocks(*rows)) {
            version::ReplaceRows(*data, CopyToPlainMemory(*rows));
        }
    } catch (const std::exception&) {
        // The rows stay where they are, which takes more memory and is as right.
    }
}

duckdb_state duckdb_pending_prepared_managed(duckdb_prepared_statement prepared,
                                             duckdb_pending_result* out_result) {
    return PendPrepared(prepared, version::RowsIn::kBufferManager, out_result);
}

duckdb_state duckdb_pending_prepared_stream(duckdb_prepared_statement prepared,
                                            duckdb_pending_result* out_result) {
    return PendPrepared(prepared, version::RowsIn::kStream, out_result);
}

duckdb_result_scan duckdb_create_result_scan(void) {
    return reinterpret_cast<duckdb_result_scan>(new (std::nothrow) Scan);
}

void duckdb_destroy_result_scan(duckdb_result_scan* scan) {
    delete reinterpret_cast<Scan*>(*scan);
    *scan = nullptr;
}

duckdb_data_chunk duckdb_scan_result_chunk(duckdb_result result, duckdb_result_scan scan, bool in_place,
                                           char** out_error) {
    *out_error = nullptr;
    try {
        auto* data = static_cast<duckdb::DuckDBResultData*>(result.internal_data);
        if (data == nullptr || version::FindError(*data) != nullptr) {
            return nullptr;
        }
        if (duckdb::ColumnDataCollection* const rows = version::FindRows(*data)) {
            return ScanChunk(*rows, *reinterpret_cast<Scan*>(scan), in_place);
        }
        auto chunk = version::FetchFromStream(*data);
        return chunk && chunk->size() > 0 ? reinterpret_cast<duckdb_data_chunk>(chunk.release()) : nullptr;
    } catch (const std::exception& error) {
        mduckdb::ThrowIfOutOfMemory();
        *out_error = ::strdup(duckdb::ErrorData(error).Message().c_str());
        if (*out_error == nullptr) {
            throw std::bad_alloc();
        }
        return nullptr;
    }
}
