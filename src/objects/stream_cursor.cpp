#include "objects/stream_cursor.h"

#include <optional>
#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/failures.h"
#include "nbx/hooks.h"
#include "objects/database.h"
#include "objects/operation.h"
#include "values/parameter_binding.h"

namespace mduckdb {

class StreamCursor::Work : nbx::noncopyable {
  public:
    explicit Work(StreamCursor& cursor)
        : cursor_(cursor),
          connection_(cursor.side_->get_Interruptible()),
          limit_(cursor.tie_.get_Link()->get_TimeLimit()) {
        SetDeadline(deadline_, limit_, connection_);
        cursor_.census_.BeginRunning();
    }
    ~Work() { cursor_.census_.EndRunning(); }

    InterruptibleConnection& get_Connection() noexcept { return connection_; }
    bool get_IsCut() const noexcept { return deadline_ && deadline_->get_HasCut(); }
    void ThrowIfInterrupted() {
        if (cursor_.is_stopped_.load()) {
            ThrowInvalid();
        }
        if (connection_.TakeInterrupted()) {
            ThrowInterrupted();
        }
    }
    /** Throws the cause of the failure that DuckDB reports: a closed cursor, an interrupt, the time limit, or
       else the failure itself. */
    [[noreturn]] void ThrowFailure(const Failure& failure) {
        ThrowIfInterrupted();
        DatabaseLink& link = *cursor_.tie_.get_Link();
        if (get_IsCut()) {
            link.ThrowError(DescribeCut(limit_));
        }
        ThrowDuckDBError(link.get_ErrorPath(), failure);
    }

  private:
    StreamCursor& cursor_;
    InterruptibleConnection& connection_;
    const uint64_t limit_;
    std::optional<Deadline> deadline_;
};

namespace {

/** Others change something and have no rows worth a stream. */
bool ReturnsRows(duckdb_prepared_statement prepared) {
    switch (duckdb_prepared_statement_type(prepared)) {
        case DUCKDB_STATEMENT_TYPE_SELECT:
        case DUCKDB_STATEMENT_TYPE_EXPLAIN:
        case DUCKDB_STATEMENT_TYPE_CALL:
            return true;
        default:
            return false;
    }
}

}  // namespace

StreamCursor::StreamCursor(SharedLink link, SharedEngine engine)
    : DuckDBCursor_server(link), side_(std::make_unique<SideConnection>(std::move(link), std::move(engine))) {
    JoinSiblings();
}

void StreamCursor::Start(const std::string& sql, const nbx::ValueRow* parameters) {
    // A value may wait for the engine lock, with which another thread may wait for the mutex of the result.
    const ParameterValues values(parameters);
    StartResult([&] {
        // The database may have been closed since.
        if (!side_ || is_stopped_.load()) {
            ThrowInvalid();
        }
        Work work(*this);
        return Execute(work, sql, values);
    });
}

ResultHolder StreamCursor::Execute(Work& work, const std::string& sql, const ParameterValues& values) {
    PreparedHolder prepared;
    if (work.get_Connection().Prepare(side_->get(), sql, prepared.Receive()) != DuckDBSuccess) {
        work.ThrowFailure(FailureOf(prepared.get(), "Failed to prepare statement"));
    }
    if (!ReturnsRows(prepared.get())) {
        work.ThrowFailure({"Query doesn't return a result", nullptr});
    }
    values.Bind(prepared.get(), tie_.get_Link()->get_ErrorPath());
    ResultHolder result;
    if (work.get_Connection().ExecuteStreaming(prepared.get(), result.Receive()) != DuckDBSuccess ||
        work.get_IsCut()) {
        work.ThrowFailure(FailureOf(*result, "Failed to execute prepared statement"));
    }
    return result;
}

bool StreamCursor::NextRecord() {
    return MoveToNextRow();
}

ChunkHolder StreamCursor::ReadChunk(ResultScanHolder& scan, RowsAre rows) {
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    Work work(*this);
    try {
        // An interrupt between two calls, of which DuckDB's buffer knows nothing.
        work.ThrowIfInterrupted();
        TextHolder error;
        ChunkHolder chunk;
        {
            const ServerWaits::Work call = work.get_Connection().BeginWork();
            chunk = ScanChunk(scan, rows, error);
        }
        const std::string text = error ? error.get() : ToUtf8(get_FetchError());
        // A cut that came too late would meet the next chunk, without its reason.
        if (!text.empty() || (chunk && work.get_IsCut())) {
            work.ThrowFailure(FailureOf(text.c_str(), ""));
        }
        return chunk;
    } catch (const nbx::xException&) {
        failure_ = std::current_exception();
        throw;
    }
}

void StreamCursor::StopReading() noexcept {
    is_stopped_.store(true);
    if (side_) {
        // Unlike a cut, an interrupt also reaches a query that has not begun yet.
        side_->get_Interruptible().Interrupt();
    }
}

void StreamCursor::ReleaseConnection() noexcept {
    side_.reset();
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> DuckDBDatabase::OpenStream(
    const nbx::String& sql, nbx::smart_ptr<nbx::ValueRow> parameters) {
    nbx::MironaInit3();
    // The object itself may be closed and destroyed while the query runs.
    const SharedLink link = link_;
    const std::string text = link->ToSql(sql);
    nbx::smart_ptr<StreamCursor> cursor;
    {
        const EngineLockScope lock;
        link->RequireConnection();
        cursor = nbx::MakeObject<StreamCursor>(link, engine_);
    }
    cursor->Start(text, parameters.get());
    return cursor;
}

}  // namespace mduckdb
