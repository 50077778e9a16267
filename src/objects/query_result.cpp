#include "objects/query_result.h"

#include "base/engine_lock.h"
#include "base/errors.h"
#include "duckdb_internals/rows_changed.h"
#include "nbx/foreign_plugin.h"
#include "objects/child_lists.h"
#include "objects/cursor.h"
#include "objects/database.h"

namespace mduckdb {
namespace {

/** One link of the chain of a script's outcomes; owns the results of the links that follow until they
    are asked for. Stands in the database's list from construction to destruction, also when it was
    closed in between. */
class DuckDBQueryResult final : public nbx::mrsql::I_DuckDBQueryResult,
                                public nbx::ForeignPlugin_imp,
                                nbx::noncopyable {
  public:
    DuckDBQueryResult(DuckDBDatabase& database, ResultList results, uint32_t cursor_location);
    ~DuckDBQueryResult() override;

    uint32_t AddRef() override { return refs_.Increment(); }
    uint32_t Release() override;
    void* QueryInterface(uint32_t interface_id) override;
    uint32_t get_RefsCount() const override { return refs_.get_Value(); }

    int64_t get_RowsChanged() const override { return rows_changed_; }
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> get_Cursor() const override { return cursor_; }
    uint32_t get_Flags() const override { return flags_; }
    int64_t get_ErrorPosition() const override { return error_.position; }
    nbx::String get_ErrorMessage() const override { return error_.message; }
    nbx::String get_ErrorType() const override { return error_.type; }
    nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> NextResult() override;
    void Close() override;

  private:
    void TakeFirst(ResultList results);
    void ReadOutcome();
    void ReleaseAll() noexcept;

    int64_t rows_changed_ = 0;
    const uint32_t cursor_location_;
    uint32_t flags_ = 0;
    DuckDBErrorInfo error_;
    DuckDBDatabase* database_;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> cursor_;
    ResultHolder result_;
    ResultList remaining_;
    nbx::RefCount refs_;
    std::shared_ptr<ChildLists> siblings_;
};

DuckDBQueryResult::DuckDBQueryResult(DuckDBDatabase& database, ResultList results, uint32_t cursor_location)
    : cursor_location_(cursor_location), database_(&database), siblings_(database.get_Children()) {
    const EngineLockScope lock;
    TakeFirst(std::move(results));
    ReadOutcome();
    // Last, since nothing that fails from here on leaves the object in the list.
    siblings_->Add(this);
}

DuckDBQueryResult::~DuckDBQueryResult() {
    try {
        const EngineLockScope lock;
        siblings_->Remove(this);
        ReleaseAll();
    } catch (...) {
    }
}

void DuckDBQueryResult::TakeFirst(ResultList results) {
    if (results.empty()) {
        return;
    }
    result_ = std::move(results.front());
    results.erase(results.begin());
    remaining_ = std::move(results);
}

void DuckDBQueryResult::ReadOutcome() {
    if (!result_) {
        return;
    }
    const char* error = duckdb_result_error(result_.get());
    if (error != nullptr && *error != '\0') {
        error_ = ReadDuckDBError(error);
        flags_ |= nbx::mrsql::kHasError;
    }
    const duckdb_result_type type = duckdb_result_return_type(*result_);
    if (type == DUCKDB_RESULT_TYPE_CHANGED_ROWS) {
        rows_changed_ = GetRowsChanged(result_.get());
        flags_ |= nbx::mrsql::kHasRowsChanged;
    } else if (type == DUCKDB_RESULT_TYPE_QUERY_RESULT) {
        cursor_ = MakeCursor(*database_, result_.Detach(), cursor_location_);
        flags_ |= nbx::mrsql::kHasCursor;
    }
}

void DuckDBQueryResult::ReleaseAll() noexcept {
    database_ = nullptr;
    cursor_.reset();
    result_.Reset();
    remaining_.clear();
}

uint32_t DuckDBQueryResult::Release() {
    const uint32_t count = refs_.Decrement();
    if (count == 0) {
        delete this;
    }
    return count;
}

void* DuckDBQueryResult::QueryInterface(uint32_t interface_id) {
    static constexpr nbx::InterfaceItem kTable[] = {
        {nbx::mrsql::kDuckDBQueryResultInterfaceId,
         nbx::CastToInterface<DuckDBQueryResult, nbx::mrsql::I_DuckDBQueryResult>},
        {0, nullptr},
    };
    return nbx::InterfaceTableQueryInterface(this, kTable, interface_id);
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> DuckDBQueryResult::NextResult() {
    const EngineLockScope lock;
    if (remaining_.empty() || siblings_->get_IsOrphaned()) {
        return nullptr;
    }
    return MakeQueryResult(*database_, std::exchange(remaining_, {}), cursor_location_);
}

void DuckDBQueryResult::Close() {
    const EngineLockScope lock;
    ReleaseAll();
}

}  // namespace

nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> MakeQueryResult(DuckDBDatabase& database, ResultList results,
                                                                uint32_t cursor_location) {
    return nbx::MakeObject<DuckDBQueryResult>(database, std::move(results), cursor_location);
}

}  // namespace mduckdb
