#include "duckdb_internals/results.h"

#include <algorithm>
#include <duckdb/common/types/column/column_data_collection.hpp>
#include <duckdb/common/types/column/column_data_collection_segment.hpp>
#include <optional>
#include <stdexcept>
#include <vector>

#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/version_differences.h"

namespace mduckdb {
namespace {

/** The rows of a computed result. They are read in place, through DuckDB's C++ classes, since its C functions
   copy: each call creates a new chunk with all its texts, which costs more than everything else that happens
   to a cell. */
duckdb::ColumnDataCollection& CollectionOf(const duckdb_result& result) {
    auto* data = static_cast<duckdb::DuckDBResultData*>(result.internal_data);
    auto* rows = data != nullptr ? version::FindRows(*data) : nullptr;
    if (rows == nullptr) {
        throw std::runtime_error("Unable to access DuckDB result chunk.");
    }
    return *rows;
}

/** The address of the single number in a result of changed rows; null when it is not in plain memory. */
const int64_t* FindCount(const duckdb_result& result) {
    const duckdb::ColumnDataCollection& collection = CollectionOf(result);
    if (collection.Count() != 1 || collection.ColumnCount() != 1 ||
        collection.Types()[0].id() != duckdb::LogicalTypeId::BIGINT) {
        return nullptr;
    }
    for (const auto& segment : collection.GetSegments()) {
        if (segment->ChunkCount() > 0 &&
            segment->allocator->GetType() == duckdb::ColumnDataAllocatorType::IN_MEMORY_ALLOCATOR) {
            const auto& place = segment->GetVectorData(segment->chunk_data[0].vector_data[0]);
            duckdb::ChunkManagementState unused;
            return reinterpret_cast<const int64_t*>(
                segment->allocator->GetDataPointer(unused, place.block_id, place.offset));
        }
    }
    return nullptr;
}

}  // namespace

struct ResultChunks::State {
    struct Place {
        duckdb::ColumnDataCollectionSegment* segment;
        idx_t chunk;  // in the segment
    };

    std::vector<Place> places;
    /** One more than there are places. */
    std::vector<idx_t> first_rows;
    /** Pins the memory of the loaded chunk. */
    duckdb::ColumnDataScanState scan;
    duckdb::DataChunk loaded;
    duckdb::ColumnDataCollectionSegment* loaded_segment = nullptr;
    std::optional<ColumnCasts> casts;

    duckdb_vector GetVector(idx_t column) {
        duckdb::Vector* cast = casts ? casts->get_Column(column) : nullptr;
        return reinterpret_cast<duckdb_vector>(cast != nullptr ? cast : &loaded.data[column]);
    }
};

ResultChunks::ResultChunks(const duckdb_result& result) : state_(std::make_unique<State>()) {
    duckdb::ColumnDataCollection& collection = CollectionOf(result);
    // The vectors of `loaded` point into the collection's blocks, which the scan state keeps pinned; so
    // loading the next chunk invalidates the one before.
    collection.InitializeScan(state_->scan, duckdb::ColumnDataScanProperties::ALLOW_ZERO_COPY);
    state_->scan.current_chunk_state.properties = state_->scan.properties;
    collection.InitializeScanChunk(state_->loaded);
    state_->places.reserve(collection.ChunkCount());
    state_->first_rows.reserve(collection.ChunkCount() + 1);
    idx_t first_row = 0;
    for (const auto& segment : collection.GetSegments()) {
        for (idx_t chunk = 0; chunk < segment->ChunkCount(); ++chunk) {
            state_->places.push_back({segment.get(), chunk});
            state_->first_rows.push_back(first_row);
            first_row += segment->chunk_data[chunk].count;
        }
    }
    state_->first_rows.push_back(first_row);
}

ResultChunks::ResultChunks(const duckdb_result& result, ColumnCasts casts) : ResultChunks(result) {
    state_->casts.emplace(std::move(casts));
}

ResultChunks::ResultChunks(ResultChunks&&) noexcept = default;
ResultChunks& ResultChunks::operator=(ResultChunks&&) noexcept = default;
ResultChunks::~ResultChunks() = default;

idx_t ResultChunks::get_Count() const noexcept {
    return state_->places.size();
}

idx_t ResultChunks::get_FirstRow(idx_t chunk) const noexcept {
    return state_->first_rows[chunk];
}

idx_t ResultChunks::FindRow(idx_t row) const noexcept {
    const auto after = std::upper_bound(state_->first_rows.begin(), state_->first_rows.end(), row);
    return static_cast<idx_t>(after - state_->first_rows.begin()) - 1;
}

void ResultChunks::Load(idx_t chunk) {
    const State::Place& place = state_->places[chunk];
    try {
        if (state_->loaded_segment != place.segment) {
            // A pin is found by its block number, which each segment counts separately.
            state_->scan.current_chunk_state.handles.clear();
            state_->loaded_segment = place.segment;
        }
        place.segment->ReadChunk(place.chunk, state_->scan.current_chunk_state, state_->loaded,
                                 state_->scan.column_ids);
        if (state_->casts) {
            state_->casts->Apply(state_->loaded);
        }
    } catch (const std::exception& error) {
        ThrowIfOutOfMemory();
        throw std::runtime_error(duckdb::ErrorData(error).Message());
    }
}

const void* ResultChunks::get_Data(idx_t column) const noexcept {
    return duckdb_vector_get_data(state_->GetVector(column));
}

const uint64_t* ResultChunks::get_Validity(idx_t column) const noexcept {
    return duckdb_vector_get_validity(state_->GetVector(column));
}

int64_t GetRowsChanged(duckdb_result* result) {
    if (duckdb_result_return_type(*result) != DUCKDB_RESULT_TYPE_CHANGED_ROWS) {
        return 0;
    }
    const int64_t* count = FindCount(*result);
    return count != nullptr ? *count : static_cast<int64_t>(duckdb_rows_changed(result));
}

std::optional<std::string_view> GetColumnName(const duckdb_result& result, idx_t column) noexcept {
    const auto* data = static_cast<const duckdb::DuckDBResultData*>(result.internal_data);
    if (data == nullptr || column >= version::ColumnCount(*data)) {
        return std::nullopt;
    }
    return std::string_view(version::ColumnName(*data, column));
}

ResultSize MeasureResult(const duckdb_result& result) noexcept {
    try {
        const duckdb::ColumnDataCollection& rows = CollectionOf(result);
        return {static_cast<int64_t>(rows.Count()), static_cast<int64_t>(rows.AllocationSize())};
    } catch (const std::exception&) {
        return {0, 0};
    }
}

void TakePendingError(duckdb_pending_result pending, duckdb_result* out_result) {
    *out_result = {};
    const auto* wrapper = reinterpret_cast<const duckdb::PendingStatementWrapper*>(pending);
    if (wrapper != nullptr && wrapper->statement && wrapper->statement->HasError()) {
        duckdb::DuckDBTranslateResult(version::MakeFailedResult(wrapper->statement->GetErrorObject()),
                                      out_result);
    }
}

}  // namespace mduckdb
