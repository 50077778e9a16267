#include "objects/statement.h"
#include "objects/operation.h"

#include <string>
#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/failures.h"
#include "duckdb_internals/plain_functions.h"
#include "duckdb_internals/statement_pieces.h"
#include "nbx/hooks.h"

namespace mduckdb {

nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> MakeStatement(SharedLink link, const nbx::String& sql) {
    return nbx::MakeObject<DuckDBStatement>(std::move(link), sql);
}

DuckDBStatement::DuckDBStatement(SharedLink link, const nbx::String& sql)
    : tie_(std::move(link)),
      census_(CensusLine::kStatement, tie_.get_Link()->get_Census().get_Number()),
      sql_text_(sql) {
    census_.Enter();
}

DuckDBStatement::~DuckDBStatement() {
    EngineLockScope lock;
    census_.Leave();
    DestroyPrepared();
    DestroyExtracted();
    tie_.get_Siblings().Remove(this);
}

void* DuckDBStatement::QueryInterface(uint32_t interface_id) {
    static constexpr nbx::InterfaceItem kTable[] = {
        {kStatementInterfaceId, &nbx::CastToInterface<DuckDBStatement, nbx::mrsql::I_DuckDBStatement>},
        {kForeignPluginInterfaceId, &nbx::CastToInterface<DuckDBStatement, nbx::ForeignPlugin_imp>},
        {nbx::mrsql::kDuckDBWrittenStatementsInterfaceId,
         &nbx::CastToInterface<DuckDBStatement, nbx::mrsql::I_DuckDBWrittenStatements>},
        {0, nullptr},
    };
    return nbx::InterfaceTableQueryInterface(this, kTable, interface_id);
}

uint64_t DuckDBStatement::get_PendingCount() {
    EngineLockScope lock;
    return extracted_count_ > next_index_ ? extracted_count_ - next_index_ : 0;
}

void DuckDBStatement::Detach() {
    EngineLockScope lock;
    const nbx::MutexLock detach_lock(detach_mutex_);
    tie_.Cut();
    census_.Leave();
    DestroyPrepared();
    DestroyExtracted();
}

void DuckDBStatement::RefuseInnerCall() const {
    if (reading_.IsHere()) {
        ThrowError({"DuckDBStatement is reading the value that calls it", nullptr});
    }
}

DatabaseLink& DuckDBStatement::RequireDatabase() const {
    DatabaseLink* database = tie_.get();
    if (database == nullptr) {
        ThrowDetachedError("DuckDBDatabase is invalid");
    }
    return *database;
}

void DuckDBStatement::ThrowError(const Failure& failure) const {
    const DatabaseLink* database = tie_.get();
    ThrowDuckDBError(database != nullptr ? database->get_ErrorPath() : nbx::String("unknown"), failure);
}

void DuckDBStatement::ThrowStatementError(const char* fixed_text) const {
    ThrowError(FailureOf(prepared_.get(), fixed_text));
}

void DuckDBStatement::PrepareNext() {
    EngineLockScope lock;
    nbx::MironaInit3();
    const Operation operation(*tie_.get_Link(), &census_);
    Prepare();
}

void DuckDBStatement::Prepare() {
    RefuseInnerCall();
    DatabaseLink& database = RequireDatabase();
    const SharedConnection connection = database.RequireConnection();
    DestroyPrepared();
    ExtractNext(*connection);
    if (next_index_ >= extracted_count_) {
        return;
    }
    if (next_index_ >= pieces_end_) {
        const idx_t count = CountPieces(extracted_.get(), next_index_);
        pieces_begin_ = next_index_;
        pieces_end_ = next_index_ + count;
        may_roll_back_ = count > 1 && !IsInTransaction(*connection);
    }
    try {
        PrepareExtracted(*connection);
        if (parameters_) {
            BindStoredParameters();
        }
    } catch (...) {
        AbandonPieces(pieces_begin_);
        throw;
    }
    is_next_consumed_ = false;
    ++next_index_;
}

void DuckDBStatement::ExtractNext(duckdb_connection connection) {
    if (!extracted_ || is_next_consumed_) {
        Extract(connection);
    }
}

void DuckDBStatement::Extract(duckdb_connection connection) {
    DatabaseLink& database = RequireDatabase();
    const std::string sql = database.ToSql(sql_text_);
    const uint64_t index = next_index_;
    DestroyExtracted();
    extracted_count_ = duckdb_extract_statements(connection, sql.c_str(), extracted_.Receive());
    next_index_ = index;
    if (extracted_count_ == 0) {
        const Failure error = FailureOf(duckdb_extract_statements_error(extracted_.get()), "");
        DestroyExtracted();
        if (!error.text.empty()) {
            database.ThrowFailure(error);
        }
    }
}

void DuckDBStatement::PrepareExtracted(duckdb_connection connection) {
    // Read the text first: preparing removes the statement from the list.
    const TextHolder own_text(duckdb_extracted_statement_sql(extracted_.get(), next_index_));
    if (own_text) {
        current_sql_ = FromUtf8(own_text.get());
        is_current_whole_ = false;
    }
    is_next_consumed_ = true;
    if (RequireDatabase().PrepareExtracted(connection, extracted_.get(), next_index_, prepared_.Receive()) !=
        DuckDBSuccess) {
        const Failure error = FailureOf(prepared_.get(), "Failed to prepare statement");
        DestroyPrepared();
        RequireDatabase().ThrowFailure(error);
    }
}

void DuckDBStatement::AbandonPieces(uint64_t next_index) noexcept {
    if (!may_roll_back_) {
        return;
    }
    may_roll_back_ = false;
    // After some failures DuckDB has rolled back by itself.
    const SharedConnection connection = tie_.get_Link()->get_Connection();
    if (connection && IsInTransaction(*connection)) {
        tie_.get_Link()->Rollback();
    }
    // Statements that were prepared before are no longer in the list; those that follow still are.
    is_next_consumed_ = next_index < next_index_ || is_next_consumed_;
    next_index_ = next_index;
    pieces_end_ = next_index;
}

void DuckDBStatement::DestroyPrepared() noexcept {
    result_.Reset();
    prepared_.Reset();
}

void DuckDBStatement::DestroyExtracted() noexcept {
    extracted_.Reset();
    extracted_count_ = 0;
    next_index_ = 0;
    is_next_consumed_ = false;
    pieces_begin_ = 0;
    pieces_end_ = 0;
    may_roll_back_ = false;
}

void DuckDBStatement::EndRun() noexcept {
    DestroyExtracted();
    is_current_whole_ = true;
}

}  // namespace mduckdb
