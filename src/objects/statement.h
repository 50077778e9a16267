#pragma once

#include <duckdb.h>

#include "base/engine_lock.h"
#include "base/holders.h"
#include "duckdb_internals/bindable_statement.h"
#include "nbx/foreign_plugin.h"
#include "nbx/mrsql/duckdb_statement.h"
#include "nbx/mrsql/duckdb_written_statements.h"
#include "objects/operation.h"
#include "values/host_value_reading.h"
#include "values/parameter_binding.h"

namespace mduckdb {

/** `I_DuckDBStatement` on one database's connection.

    A statement holds no reference to its database, which detaches its statements before it is destroyed.
    Callers are serialised by the engine lock, which every operation takes except `get_SqlText`,
    `get_CurrentSql`, `put_Parameters` and `put_ParameterRows`. */
class DuckDBStatement final : public nbx::Counted<nbx::mrsql::I_DuckDBStatement>,
                              public nbx::ForeignPlugin_imp,
                              public nbx::mrsql::I_DuckDBWrittenStatements {
  public:
    /** Numbers of the interfaces that `QueryInterface` knows. */
    static constexpr uint32_t kStatementInterfaceId = 407;
    static constexpr uint32_t kForeignPluginInterfaceId = 608;

    DuckDBStatement(SharedLink link, const nbx::String& sql);
    ~DuckDBStatement() override;

    void* QueryInterface(uint32_t interface_id) override;

    const nbx::String& get_SqlText() const override { return sql_text_; }
    const nbx::String& get_CurrentSql() const override {
        return is_current_whole_ ? sql_text_ : current_sql_;
    }
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> get_Database() override { return tie_.get_Database(); }
    uint64_t get_PendingCount() override;
    void Detach() override;

    void PrepareNext() override;
    bool ExecuteNext(int64_t& rows_changed) override;
    bool ExecuteNext() override;
    void ExecuteAll() override;
    nbx::mrsql::DuckDBExecutionResult TryExecuteAll() override;
    void ClearBindings() override;

    void BindNull(uint32_t index) override;
    void BindBoolean(uint32_t index, bool value) override;
    void BindTinyInt(uint32_t index, int8_t value) override;
    void BindUTinyInt(uint32_t index, uint8_t value) override;
    void BindSmallInt(uint32_t index, int16_t value) override;
    void BindUSmallInt(uint32_t index, uint16_t value) override;
    void BindInteger(uint32_t index, int32_t value) override;
    void BindUInteger(uint32_t index, uint32_t value) override;
    void BindBigInt(uint32_t index, int64_t value) override;
    void BindUBigInt(uint32_t index, uint64_t value) override;
    void BindHugeInt(uint32_t index, uint64_t lower, int64_t upper) override;
    void BindUHugeInt(uint32_t index, uint64_t lower, uint64_t upper) override;
    void BindDecimal(uint32_t index, uint8_t width, uint8_t scale, uint64_t lower, int64_t upper) override;
    void BindFloat(uint32_t index, float value) override;
    void BindDouble(uint32_t index, double value) override;
    void BindDate(uint32_t index, int32_t year, int8_t month, int8_t day) override;
    void BindTime(uint32_t index, int64_t micros) override;
    void BindTimeNs(uint32_t index, int64_t nanos) override;
    void BindTimeTz(uint32_t index, int64_t micros, int32_t offset) override;
    void BindTimestamp(uint32_t index, int64_t micros) override;
    void BindTimestampTz(uint32_t index, int64_t micros) override;
    void BindTimestampS(uint32_t index, int64_t seconds) override;
    void BindTimestampMs(uint32_t index, int64_t millis) override;
    void BindTimestampNs(uint32_t index, int64_t nanos) override;
    void BindInterval(uint32_t index, int32_t months, int32_t days, int64_t micros) override;
    void BindVarchar(uint32_t index, const nbx::String& value) override;
    void BindBlob(uint32_t index, const void* data, uint64_t length) override;
    void BindBit(uint32_t index, const void* data, uint64_t length) override;
    void BindBignum(uint32_t index, const void* data, uint64_t length, uint8_t is_negative) override;
    void BindUuid(uint32_t index, uint64_t lower, uint64_t upper) override;
    void BindValue(uint32_t index, nbx::smart_ptr<nbx::I_Value> value) override;

    void put_Parameters(nbx::smart_ptr<nbx::ValueRow> values) override;
    void put_ParameterRows(nbx::smart_ptr<nbx::ValueRows> rows) override;
    int64_t Execute() override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> OpenCursor(uint32_t cursor_location) override;
    nbx::String ExecuteToJSON() override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> ExecuteToQueryResult(uint32_t cursor_location) override;

    // The pieces of a written statement as one.
    uint64_t get_PieceCount() override;
    bool ExecuteNextWritten(int64_t& rows_changed) override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> OpenNextWritten(uint32_t cursor_location) override;

  private:
    /** Returns the database, or throws "DuckDBDatabase is invalid". */
    DatabaseLink& RequireDatabase() const;
    /** Throws DuckDB's text of the failed call on the prepared statement, or else the fixed text. DuckDB
        never clears this text, so call it only right after a failure that DuckDB reported. */
    [[noreturn]] void ThrowStatementError(const char* fixed_text) const;
    /** Throws the failure with the database's path. */
    [[noreturn]] void ThrowError(const Failure& failure) const;

    // Preparing.
    void Prepare() NBX_REQUIRES(gEngineLock);
    /** Splits the whole text again. An empty text has no statements. */
    void Extract(duckdb_connection connection) NBX_REQUIRES(gEngineLock);
    /** Makes sure that the next statement is in the extracted list, unless there is none. */
    void ExtractNext(duckdb_connection connection) NBX_REQUIRES(gEngineLock);
    void PrepareExtracted(duckdb_connection connection) NBX_REQUIRES(gEngineLock);
    void DestroyPrepared() noexcept;
    void DestroyExtracted() noexcept;
    /** Returns to the state before the first preparation; the prepared statement stays. */
    void EndRun() noexcept NBX_REQUIRES(gEngineLock);
    /** After one of several pieces of a written statement failed: rolls back the transaction that DuckDB
       opened for them, and continues with the given statement. Does nothing in a transaction of the user. */
    void AbandonPieces(uint64_t next_index) noexcept NBX_REQUIRES(gEngineLock);
    /** One pass of `TryExecuteAll`; returns whether statements remain. */
    bool RunOne(Operation::Part part);

    // Binding.
    /** This removes the bindings of the prepared statement, if there is one. */
    void ClearPreparedBindings();
    /** Begins a bind of one value: removes the bindings of stored values, which then are dropped, unless the
       bind finds no memory. Returns whether a statement is prepared. */
    bool BeginTypedBind();
    bool HasStoredValues() const noexcept { return parameters_ || parameter_rows_; }
    void DropStoredValues() noexcept;
    /** Ends a bind by the exception that is being handled. */
    [[noreturn]] void EndFailedBind();
    /** Makes the row the stored parameter set and binds it to what is prepared. */
    void ApplyParameters(nbx::smart_ptr<nbx::ValueRow> values);
    /** Replaces all bindings with the stored parameter set. */
    void BindStoredParameters();
    /** Uses nothing of the statement but the mark that it reads: the values may run anything else. */
    ParameterValues ReadValues(const nbx::ValueRow* row);
    /** Clears the bindings of what is prepared; whether it takes the stored parameter set. */
    bool BeginStoredBind();
    /** Throws if the database has been closed while the values were read. */
    void BindOnly(const ParameterValues& values);
    template <class Bind>
    void BindTyped(const char* type_word, Bind&& bind);
    template <auto kBind, class... Arguments>
    void BindDirect(const char* type_word, uint32_t index, Arguments... arguments);
    template <class MakeValue>
    void BindMadeValue(const char* type_word, uint32_t index, MakeValue&& make_value);

    // Executing.
    /** Prepares the next statement and executes it. If memory runs out, it is the next one again. */
    int64_t RunNext() NBX_REQUIRES(gEngineLock);
    /** All executions come here. Returns the number of changed rows from the last pass that reports any, or
        0. */
    int64_t RunPrepared() NBX_REQUIRES(gEngineLock);
    int64_t RunBound() NBX_REQUIRES(gEngineLock);
    int64_t RunRows() NBX_REQUIRES(gEngineLock);
    void RunOnce() NBX_REQUIRES(gEngineLock);

    /** Throws when a host value that this statement reads calls it on the same thread. */
    void RefuseInnerCall() const;

    DatabaseTie tie_;
    CensusEntry census_;
    HostValueReading reading_;
    const nbx::String sql_text_;
    /** Of the statement prepared last. */
    nbx::String current_sql_;
    /** No statement was prepared in this run. */
    bool is_current_whole_ = true;
    nbx::smart_ptr<nbx::ValueRows> parameter_rows_;
    nbx::smart_ptr<nbx::ValueRow> parameters_;
    ExtractedHolder extracted_;
    uint64_t extracted_count_ = 0;
    /** 0-based, of the statement to prepare next. */
    uint64_t next_index_ = 0;
    /** The statement at `next_index_` was taken out of the extracted list by a preparation that failed. */
    bool is_next_consumed_ = false;
    /** The pieces of the written statement that was begun last. */
    uint64_t pieces_begin_ = 0;
    uint64_t pieces_end_ = 0;
    /** They are several, and no transaction was open before the first of them. */
    bool may_roll_back_ = false;
    /** Guards what `put_Parameters` and `put_ParameterRows`, which take no engine lock, share with
        `Detach`, which holds it. Not held while host values are read. */
    nbx::Mutex detach_mutex_;
    BindableStatement prepared_;
    ResultHolder result_;
};

/** Creates a statement on a database; the caller adds it to the database's list. */
nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> MakeStatement(SharedLink link, const nbx::String& sql);

}  // namespace mduckdb
