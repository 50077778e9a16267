#include "objects/duckdb_cursor_imp.h"

#include <new>

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/cell_reader.h"
#include "duckdb_internals/failures.h"
#include "duckdb_internals/plain_functions.h"
#include "duckdb_internals/results.h"

namespace mduckdb {
namespace {

nbx::String ToHostText(const char* text) {
    return text != nullptr ? FromUtf8(text) : nbx::String();
}

nbx::String ReadTypeName(duckdb_result* result, idx_t column) {
    const LogicalTypeHolder type(duckdb_column_logical_type(result, column));
    const TextHolder name(duckdb_logical_type_to_string(type.get()));
    return ToHostText(name.get());
}

template <class Names>
const nbx::String& ItemOrEmpty(const Names& names, uint32_t index) {
    return index < names.size() ? names[index] : nbx::String::sEmpty();
}

}  // namespace

void FetchStatus::KeepErrorOf(duckdb_result* result) {
    if (error_.isEmpty()) {
        error_ = ToHostText(duckdb_result_error(result));
    }
}

nbx::String ExactDecimals::get_DecimalText(uint32_t column_index) {
    cursor_.RequireValid();
    cursor_.RequireColumn(column_index);
    const DuckDBCursor_imp::RecordPlace place = cursor_.FindRecord();
    if (cursor_.get_ColumnType(column_index) != DUCKDB_TYPE_DECIMAL || place.chunk == nullptr) {
        return {};
    }
    const duckdb_vector vector = duckdb_data_chunk_get_vector(place.chunk, column_index);
    if (!duckdb_validity_row_is_valid(duckdb_vector_get_validity(vector), place.row)) {
        return {};
    }
    const ValueHolder value(duckdb_data_chunk_get_value(place.chunk, column_index, place.row));
    return FromUtf8(ValueText(value.get()).get_View());
}

DuckDBCursor_imp::DuckDBCursor_imp(SharedLink link)
    : tie_(std::move(link)), census_(CensusLine::kCursor, tie_.get_Link()->get_Census().get_Number()) {}

DuckDBCursor_imp::DuckDBCursor_imp(SharedLink link, ResultHolder& result)
    : DuckDBCursor_imp(std::move(link)) {
    if (!result) {
        ThrowInvalid();
    }
    ReadDescription(result.get());
    const ResultSize size = MeasureResult(*result);
    census_.put_Size(size.rows, size.bytes);
}

void DuckDBCursor_imp::JoinSiblings() {
    const EngineLockScope lock;
    if (tie_.get_Link()->get_IsOrphaned()) {
        ThrowInvalid();
    }
    tie_.get_Siblings().Add(this);
    census_.Enter();
}

void DuckDBCursor_imp::TakeResult(ResultHolder& result) {
    const EngineLockScope lock;
    JoinSiblings();
    const nbx::MutexLock result_lock(result_mutex_);
    result_ = std::move(result);
    has_result_.store(true);
}

void DuckDBCursor_imp::GiveBackResult(ResultHolder& result) noexcept {
    const nbx::MutexLock lock(result_mutex_);
    has_result_.store(false);
    scan_.Reset();
    result = std::move(result_);
}

DuckDBCursor_imp::~DuckDBCursor_imp() {
    LeaveSiblings();
}

void DuckDBCursor_imp::LeaveSiblings() noexcept {
    try {
        const EngineLockScope lock;
        tie_.get_Siblings().Remove(this);
        ReleaseResult();
    } catch (...) {  // Taking a lock may fail, which a destructor cannot report.
    }
}

uint32_t DuckDBCursor_imp::Release() {
    return ReleaseWith([this]() noexcept {
        LeaveSiblings();
        delete this;
    });
}

void* DuckDBCursor_imp::QueryInterface(uint32_t interface_id) {
    static constexpr nbx::InterfaceItem kTable[] = {
        {nbx::mrsql::kDuckDBCursorInterfaceId,
         nbx::CastToInterface<DuckDBCursor_imp, nbx::mrsql::I_DuckDBCursor>},
        {nbx::mrsql::kFetchStatusInterfaceId,
         [](void* object) -> void* {
             nbx::mrsql::I_FetchStatus* status = &static_cast<DuckDBCursor_imp*>(object)->fetch_status_;
             return status;
         }},
        {nbx::mrsql::kExactDecimalsInterfaceId,
         [](void* object) -> void* {
             nbx::mrsql::I_ExactDecimals* decimals = &static_cast<DuckDBCursor_imp*>(object)->exact_decimals_;
             return decimals;
         }},
        {nbx::mrsql::kDuckDBArrowInterfaceId,
         [](void* object) -> void* {
             nbx::mrsql::I_DuckDBArrow* arrow = &static_cast<DuckDBCursor_imp*>(object)->arrow_export_;
             return arrow;
         }},
        {0, nullptr},
    };
    return nbx::InterfaceTableQueryInterface(this, kTable, interface_id);
}

const nbx::String& DuckDBCursor_imp::get_ColumnName(uint32_t column_index) const {
    return ItemOrEmpty(column_names_, column_index);
}

const nbx::String& DuckDBCursor_imp::get_ColumnTypeName(uint32_t column_index) const {
    return ItemOrEmpty(column_type_names_, column_index);
}

uint32_t DuckDBCursor_imp::get_ColumnType(uint32_t column_index) const {
    return column_index < column_types_.size() ? column_types_[column_index] : 0;
}

void DuckDBCursor_imp::Close() {
    const EngineLockScope lock;
    tie_.Cut();
    ReleaseResult();
}

void DuckDBCursor_imp::Detach() {
    ReleaseResult();
    tie_.get_Siblings().Remove(this);
    tie_.Cut();
}

void DuckDBCursor_imp::ThrowInvalid() {
    ThrowDetachedError("DuckDBCursor is invalid");
}

void DuckDBCursor_imp::ThrowError(const char* message) const {
    tie_.get_Link()->ThrowError(message);
}

ChunkHolder DuckDBCursor_imp::FetchChunkAgain(bool is_from_first_row) {
    if (is_from_first_row) {
        const nbx::MutexLock lock(result_mutex_);
        second_scan_.Reset();
    }
    return FetchChunk(second_scan_);
}

ChunkHolder DuckDBCursor_imp::FetchChunk(ResultScanHolder& scan) {
    const nbx::MutexLock lock(result_mutex_);
    if (!result_) {
        ThrowInvalid();
    }
    return ReadChunk(scan, RowsAre::own);
}

ChunkHolder DuckDBCursor_imp::ReadChunk(ResultScanHolder& scan, RowsAre rows) {
    TextHolder error;
    ChunkHolder chunk = ScanChunk(scan, rows, error);
    if (error) {
        ThrowDuckDBError(tie_.get_Link()->get_ErrorPath(), FailureOf(error.get(), ""));
    }
    return chunk;
}

ChunkHolder DuckDBCursor_imp::ScanChunk(ResultScanHolder& scan, RowsAre rows, TextHolder& error) {
    if (!scan) {
        scan.Reset(duckdb_create_result_scan());
    }
    if (!scan) {
        throw std::bad_alloc();
    }
    ChunkHolder chunk(
        duckdb_scan_result_chunk(*result_, scan.get(), rows == RowsAre::of_result, error.Receive()));
    if (!chunk && !error) {
        fetch_status_.KeepErrorOf(result_.get());
    }
    return chunk;
}

uint64_t DuckDBCursor_imp::CountComputedRows() {
    const nbx::MutexLock lock(result_mutex_);
    return result_ && result_.get()->internal_data != nullptr ? duckdb_row_count(result_.get()) : 0;
}

void DuckDBCursor_imp::ReleaseResult() noexcept {
    census_.Leave();
    has_result_.store(false);
    StopReading();
    const nbx::MutexLock lock(result_mutex_);
    scan_.Reset();
    second_scan_.Reset();
    for (ResultScanHolder& scan : arrow_scans_) {
        scan.Reset();
    }
    result_.Reset();
    ReleaseConnection();
}

void DuckDBCursor_imp::ReadDescription(duckdb_result* result) {
    const idx_t count = duckdb_column_count(result);
    column_names_.reserve(count);
    column_type_names_.reserve(count);
    column_types_.reserve(count);
    for (idx_t column = 0; column < count; ++column) {
        column_names_.push_back(FromUtf8(GetColumnName(*result, column).value_or("")));
        column_types_.push_back(duckdb_column_type(result, column));
        column_type_names_.push_back(ReadTypeName(result, column));
    }
}

}  // namespace mduckdb
