#include <new>
#include <utility>

#include "base/errors.h"
#include "duckdb_internals/failures.h"
#include "duckdb_internals/results.h"
#include "duckdb_internals/statement_pieces.h"
#include "nbx/exception.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/registry.h"
#include "objects/cursor.h"
#include "objects/operation.h"
#include "objects/query_result.h"
#include "objects/statement.h"

namespace mduckdb {

namespace {

constexpr uint32_t kFeatureErrorCode = 0xA000;

/** For a report that must not fail: if there is no memory for the text, it has the code alone. */
template <class MakeText>
void SetText(nbx::String& text, MakeText make_text) noexcept {
    try {
        text = make_text();
    } catch (...) {
        text.clear();
    }
}

}  // namespace

bool DuckDBStatement::ExecuteNext(int64_t& rows_changed) {
    EngineLockScope lock;
    nbx::MironaInit3();
    const Operation operation(*tie_.get_Link(), &census_);
    rows_changed = RunNext();
    return next_index_ < extracted_count_;
}

bool DuckDBStatement::ExecuteNext() {
    int64_t rows_changed = 0;
    return ExecuteNext(rows_changed);
}

void DuckDBStatement::ExecuteAll() {
    EngineLockScope lock;
    nbx::MironaInit3();
    const Operation operation(*tie_.get_Link(), &census_);
    do {
        RunNext();
    } while (next_index_ < extracted_count_);
    EndRun();
}

bool DuckDBStatement::RunOne(Operation::Part part) {
    EngineLockScope lock;
    nbx::MironaInit3();
    const Operation operation(*tie_.get_Link(), &census_, part);
    RunNext();
    return next_index_ < extracted_count_;
}

nbx::mrsql::DuckDBExecutionResult DuckDBStatement::TryExecuteAll() {
    nbx::mrsql::DuckDBExecutionResult outcome;
    {
        EngineLockScope lock;
        if (tie_.get() == nullptr) {
            return outcome;
        }
    }
    try {
        auto part = Operation::Part::begins;
        bool has_more = true;
        while (has_more) {
            // Each pass locks the engine lock again, so that other threads can run between two passes.
            has_more = RunOne(part);
            part = Operation::Part::goes_on;
            ++outcome.statements_executed;
        }
    } catch (const nbx::mrsql::xDuckDBError& error) {
        outcome.error_code = error.get_Code();
        SetText(outcome.error_message, [&error] { return error.get_Message(); });
    } catch (...) {
        outcome.error_code = kUnexpectedErrorCode;
        SetText(outcome.error_message, [] { return nbx::String("Unexpected DuckDB error"); });
    }
    EngineLockScope lock;
    EndRun();
    return outcome;
}

int64_t DuckDBStatement::Execute() {
    EngineLockScope lock;
    nbx::MironaInit3();
    const Operation operation(*tie_.get_Link(), &census_);
    return RunPrepared();
}

int64_t DuckDBStatement::RunNext() {
    Prepare();
    if (!prepared_) {
        return RunPrepared();
    }
    const uint64_t begin = may_roll_back_ ? pieces_begin_ : next_index_ - 1;
    try {
        return RunPrepared();
    } catch (const std::bad_alloc&) {
        // A caller that tries again must not skip the statement.
        next_index_ = begin;
        pieces_end_ = begin;
        is_next_consumed_ = true;
        throw;
    }
}

int64_t DuckDBStatement::RunPrepared() {
    RequireDatabase();
    try {
        return RunBound();
    } catch (...) {
        AbandonPieces(pieces_end_);
        throw;
    }
}

int64_t DuckDBStatement::RunBound() {
    if (parameter_rows_) {
        return RunRows();
    }
    if (!prepared_) {
        return 0;
    }
    if (parameters_) {
        BindStoredParameters();
    }
    RunOnce();
    return GetRowsChanged(result_.get());
}

int64_t DuckDBStatement::RunRows() {
    // A reference of its own: another thread may store other rows meanwhile and release these.
    const nbx::smart_ptr<nbx::ValueRows> rows = parameter_rows_;
    bool has_run = false;
    for (std::size_t i = 0; i < rows->get_Count(); ++i) {
        ApplyParameters(rows->get_Item(i));
        if (prepared_) {
            RunOnce();
            has_run = true;
        }
    }
    // Read once, after the loop: only the last run counts, and reading it costs as much as several binds.
    return has_run ? GetRowsChanged(result_.get()) : 0;
}

void DuckDBStatement::RunOnce() {
    DatabaseLink& database = *tie_.get_Link();
    if (database.ExecutePrepared(prepared_.get(), result_.Receive()) != DuckDBSuccess) {
        database.ThrowFailure(FailureOf(*result_, "Unknown execute error"));
    }
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> DuckDBStatement::OpenCursor(uint32_t cursor_location) {
    EngineLockScope lock;
    nbx::MironaInit3();
    const Operation operation(*tie_.get_Link(), &census_);
    RequireDatabase();
    if (parameter_rows_) {
        // The host counts rows in 32 bits.
        const auto row_count = static_cast<uint32_t>(parameter_rows_->get_Count());
        if (row_count > 1) {
            throw nbx::xFeatureError(kFeatureErrorCode, "mDuckDB - multi-row binding for SqlSelect");
        }
        if (row_count == 0) {
            return {};
        }
    }
    RunPrepared();
    if (!prepared_ || !result_) {
        return {};
    }
    return MakeCursor(tie_.get_Link(), result_, cursor_location);
}

uint64_t DuckDBStatement::get_PieceCount() {
    EngineLockScope lock;
    nbx::MironaInit3();
    const SharedConnection connection = RequireDatabase().RequireConnection();
    ExtractNext(*connection);
    if (next_index_ >= extracted_count_) {
        return 0;
    }
    return next_index_ < pieces_end_ ? pieces_end_ - next_index_ : CountPieces(extracted_.get(), next_index_);
}

bool DuckDBStatement::ExecuteNextWritten(int64_t& rows_changed) {
    EngineLockScope lock;
    nbx::MironaInit3();
    const Operation operation(*tie_.get_Link(), &census_);
    rows_changed = 0;
    do {
        rows_changed += RunNext();
    } while (next_index_ < pieces_end_);
    return next_index_ < extracted_count_;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> DuckDBStatement::OpenNextWritten(uint32_t cursor_location) {
    EngineLockScope lock;
    nbx::MironaInit3();
    const Operation operation(*tie_.get_Link(), &census_);
    Prepare();
    while (next_index_ < pieces_end_) {
        RunPrepared();
        Prepare();
    }
    return OpenCursor(cursor_location);
}

nbx::String DuckDBStatement::ExecuteToJSON() {
    return nbx::mrsql::CursorToJSON(OpenCursor(nbx::mrsql::kServerCursor));
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> DuckDBStatement::ExecuteToQueryResult(
    uint32_t cursor_location) {
    EngineLockScope lock;
    nbx::MironaInit3();
    const Operation operation(*tie_.get_Link(), &census_);
    // Before anything is committed.
    ResultList results;
    results.reserve(1);
    auto head = MakeQueryResult(tie_.get_Link(), cursor_location);
    RunPrepared();
    if (result_) {
        results.push_back(std::move(result_));
    }
    FillQueryResult(*head, std::move(results));
    return head;
}

}  // namespace mduckdb
