#include "objects/query_result.h"

#include <algorithm>
#include <utility>

#include "base/engine_lock.h"
#include "base/errors.h"
#include "duckdb_internals/results.h"
#include "nbx/foreign_plugin.h"
#include "nbx/mrsql/duckdb_arrow.h"
#include "objects/cursor.h"
#include "objects/operation.h"

namespace mduckdb {
namespace {

/** One link of the chain of a script's outcomes; owns the results of the links that follow until they are
    requested. It is in the database's list from construction to destruction, even if it was closed in
    between. */
class DuckDBQueryResult final : public nbx::Counted<nbx::mrsql::I_DuckDBQueryResult>,
                                public nbx::ForeignPlugin_imp,
                                public nbx::mrsql::I_DuckDBArrow {
  public:
    DuckDBQueryResult(SharedLink link, uint32_t cursor_location);
    ~DuckDBQueryResult() override;

    void* QueryInterface(uint32_t interface_id) override;

    int64_t get_RowsChanged() const override { return rows_changed_; }
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> get_Cursor() const override {
        const nbx::MutexLock lock(cursor_mutex_);
        return cursor_;
    }
    uint32_t get_Flags() const override { return flags_; }
    int64_t get_ErrorPosition() const override { return error_.position; }
    nbx::String get_ErrorMessage() const override { return error_.message; }
    nbx::String get_ErrorType() const override { return error_.type; }
    nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> NextResult() override;
    void Close() override;
    void ExportStream(ArrowArrayStream& stream) override;

    /** Takes ownership of the list unless it throws. The results are in reverse: the last one is this link's.
        `size` is that of all of them. */
    void Take(ResultList& results, ResultSize size) NBX_REQUIRES(gEngineLock);

  private:
    /** A result of rows becomes the cursor's. */
    void ReadOutcome(ResultHolder& result);
    void ReleaseAll() noexcept;

    int64_t rows_changed_ = 0;
    const uint32_t cursor_location_;
    uint32_t flags_ = 0;
    DuckDBErrorInfo error_;
    DatabaseTie tie_;
    CensusEntry census_;
    /** For `get_Cursor`, which takes no engine lock while the database may be closing on another thread. */
    mutable nbx::Mutex cursor_mutex_;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> cursor_ NBX_GUARDED_BY(cursor_mutex_);
    /** Whether the rows were exported through this object, whose closing then closes the cursor too. */
    bool is_exported_ NBX_GUARDED_BY(gEngineLock) = false;
    ResultHolder result_;
    /** The results of the links that follow, the next one last, so that passing them on moves none. */
    ResultList remaining_;
    ResultSize remaining_size_{0, 0};
};

DuckDBQueryResult::DuckDBQueryResult(SharedLink link, uint32_t cursor_location)
    : cursor_location_(cursor_location),
      tie_(std::move(link)),
      census_(CensusLine::kQueryResult, tie_.get_Link()->get_Census().get_Number()) {
    const EngineLockScope lock;
    // Last, so that a failure in the constructor cannot leave the object in the list.
    tie_.get_Siblings().Add(this);
    census_.Enter();
}

DuckDBQueryResult::~DuckDBQueryResult() {
    try {
        const EngineLockScope lock;
        tie_.get_Siblings().Remove(this);
        ReleaseAll();
    } catch (...) {
    }
}

void DuckDBQueryResult::Take(ResultList& results, ResultSize size) {
    if (results.empty()) {
        return;
    }
    const ResultSize own = MeasureResult(*results.back());
    if (results.back()) {
        ReadOutcome(results.back());
    }
    result_ = std::move(results.back());
    results.pop_back();
    remaining_ = std::move(results);
    results.clear();
    remaining_size_ = {size.rows - own.rows, size.bytes - own.bytes};
    census_.put_Size(remaining_size_.rows, remaining_size_.bytes);
}

void DuckDBQueryResult::ReadOutcome(ResultHolder& result) {
    const char* error = duckdb_result_error(result.get());
    if (error != nullptr && *error != '\0') {
        error_ = ReadDuckDBError(error);
        flags_ |= nbx::mrsql::kHasError;
    }
    const duckdb_result_type type = duckdb_result_return_type(*result);
    if (type == DUCKDB_RESULT_TYPE_CHANGED_ROWS) {
        rows_changed_ = GetRowsChanged(result.get());
        flags_ |= nbx::mrsql::kHasRowsChanged;
    } else if (type == DUCKDB_RESULT_TYPE_QUERY_RESULT) {
        auto cursor = MakeCursor(tie_.get_Link(), result, cursor_location_);
        const nbx::MutexLock lock(cursor_mutex_);
        cursor_.swap(cursor);
        flags_ |= nbx::mrsql::kHasCursor;
    }
}

void DuckDBQueryResult::ReleaseAll() noexcept {
    census_.Leave();
    tie_.Cut();
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> cursor;
    {
        const nbx::MutexLock lock(cursor_mutex_);
        cursor.swap(cursor_);
    }
    cursor.reset();  // without the mutex: a cursor's last release runs code of the host
    result_.Reset();
    remaining_.clear();
}

void* DuckDBQueryResult::QueryInterface(uint32_t interface_id) {
    static constexpr nbx::InterfaceItem kTable[] = {
        {nbx::mrsql::kDuckDBQueryResultInterfaceId,
         nbx::CastToInterface<DuckDBQueryResult, nbx::mrsql::I_DuckDBQueryResult>},
        {nbx::mrsql::kDuckDBArrowInterfaceId,
         nbx::CastToInterface<DuckDBQueryResult, nbx::mrsql::I_DuckDBArrow>},
        {0, nullptr},
    };
    return nbx::InterfaceTableQueryInterface(this, kTable, interface_id);
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> DuckDBQueryResult::NextResult() {
    const EngineLockScope lock;
    if (remaining_.empty() || tie_.get() == nullptr) {
        return nullptr;
    }
    const Operation operation(*tie_.get_Link());
    auto next = nbx::MakeObject<DuckDBQueryResult>(tie_.get_Link(), cursor_location_);
    next->Take(remaining_, remaining_size_);
    remaining_size_ = {0, 0};
    census_.put_Size(0, 0);
    return next;
}

void DuckDBQueryResult::ExportStream(ArrowArrayStream& stream) {
    const EngineLockScope lock;
    const auto cursor = get_Cursor();
    if (!cursor) {
        ThrowDetachedError("The query result has no rows");
    }
    static_cast<nbx::mrsql::I_DuckDBArrow*>(cursor->QueryInterface(nbx::mrsql::kDuckDBArrowInterfaceId))
        ->ExportStream(stream);
    is_exported_ = true;
}

void DuckDBQueryResult::Close() {
    const EngineLockScope lock;
    if (const auto cursor = is_exported_ ? get_Cursor() : nullptr) {
        cursor->Close();
    }
    ReleaseAll();
}

}  // namespace

nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> MakeQueryResult(SharedLink link, uint32_t cursor_location) {
    return nbx::MakeObject<DuckDBQueryResult>(std::move(link), cursor_location);
}

void FillQueryResult(nbx::mrsql::I_DuckDBQueryResult& head, ResultList results) {
    const EngineLockScope lock;
    std::reverse(results.begin(), results.end());
    ResultSize size{0, 0};
    for (const ResultHolder& result : results) {
        const ResultSize each = MeasureResult(*result);
        size = {size.rows + each.rows, size.bytes + each.bytes};
    }
    static_cast<DuckDBQueryResult&>(head).Take(results, size);
}

}  // namespace mduckdb
