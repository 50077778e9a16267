#pragma once

#include <duckdb.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "backup/stop.h"
#include "base/engine_lock.h"
#include "engines/engine_files.h"
#include "engines/session.h"
#include "nbx/foreign_plugin.h"
#include "nbx/mrsql/duckdb_appender.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/mrsql/duckdb_deadlines.h"
#include "nbx/mrsql/duckdb_progress.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "nbx/mrsql/duckdb_streaming.h"
#include "nbx/mrsql/duckdb_written_statements.h"
#include "objects/database_link.h"
#include "objects/export_gate.h"

namespace mduckdb {

class SideConnection;

/** One database object: an engine shared with the other objects on its path, and a connection of its own.

    Ownership: the host holds references; children (statements, cursors, results) hold none and are closed by
    `Close`, which the destructor calls. The link, which they share, has all that children need of the
    database. Threads: the engine lock guards everything but the link, so that `Interrupt` may come while a
    query runs under the engine lock. */
class DuckDBDatabase final : public nbx::mrsql::I_DuckDBDatabase,
                             public nbx::ForeignPlugin_imp,
                             public nbx::mrsql::I_DuckDBSnapshot,
                             public nbx::mrsql::I_DuckDBTransactionState,
                             public nbx::mrsql::I_DuckDBDeadlines,
                             public nbx::mrsql::I_DuckDBProgress,
                             public nbx::mrsql::I_DuckDBStreaming,
                             public nbx::mrsql::I_DuckDBAppenders,
                             nbx::noncopyable {
  public:
    explicit DuckDBDatabase(nbx::smart_ptr<nbx::I_Location> location);
    ~DuckDBDatabase() override;

    uint32_t AddRef() override;
    uint32_t Release() override;
    void* QueryInterface(uint32_t interface_id) override;
    uint32_t get_RefsCount() const override;

    void put_BlockSize(uint32_t block_size) override;
    uint32_t get_ConnectionCount() override;
    bool get_Exists() override;
    bool get_IsOpen() override;
    bool get_IsReadOnly() override;
    nbx::String get_Path() override;
    nbx::String get_Key() override;
    void put_Credentials(nbx::String token, nbx::String user_agent) override;
    void put_StorageVersion(nbx::String version) override;
    void put_Options(const nbx::mrsql::DuckDBDatabaseOptions& options) override;
    void Create() override;
    void Open() override;
    void Close() override;
    void Drop() override;
    void Backup(nbx::smart_ptr<nbx::I_Location> folder) override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> CreateStatement(const nbx::String& sql) override;
    void RemoveStatement(nbx::mrsql::I_DuckDBStatement* statement) override;
    void AddCursor(nbx::mrsql::I_DuckDBCursor* cursor) override;
    void RemoveCursor(nbx::mrsql::I_DuckDBCursor* cursor) override;
    void AddQueryResult(nbx::mrsql::I_DuckDBQueryResult* result) override;
    void RemoveQueryResult(nbx::mrsql::I_DuckDBQueryResult* result) override;
    void Interrupt() override;
    int64_t SqlExecute(const nbx::String& sql, nbx::smart_ptr<nbx::ValueRow> parameters) override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> SqlQuery(
        const nbx::String& sql, uint32_t cursor_location, nbx::smart_ptr<nbx::ValueRow> parameters) override;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> SqlSelect(const nbx::String& sql, uint32_t cursor_location,
                                                         nbx::smart_ptr<nbx::ValueRow> parameters) override;

    void Snapshot(nbx::smart_ptr<nbx::I_Location> file) override;
    /** Implements `I_DuckDBRestore::VerifyBackup`. */
    nbx::String VerifyBackup(const nbx::I_Location& folder);
    nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> OpenStream(const nbx::String& sql,
                                                          nbx::smart_ptr<nbx::ValueRow> parameters) override;
    bool get_IsInTransaction() override;
    uint64_t get_LostTransactionCount() override { return lost_transactions_.load(); }
    uint64_t get_TimeLimit() override { return link_->get_TimeLimit(); }
    void put_TimeLimit(uint64_t milliseconds) override { link_->put_TimeLimit(milliseconds); }
    void put_IsTracked(bool is_tracked) override { link_->put_IsTracked(is_tracked); }
    bool get_IsTracked() override { return link_->get_IsTracked(); }
    nbx::mrsql::DuckDBProgress get_Progress() override { return link_->get_Progress(); }
    nbx::smart_ptr<nbx::mrsql::I_DuckDBAppender> CreateAppender(
        const nbx::mrsql::DuckDBAppenderOptions& options) override;

    /** Shared with this object's statements, cursors and results. */
    const SharedLink& get_Link() const noexcept { return link_; }

    /** Whether the path means the in-memory database. */
    bool IsInMemory() const;
    /** Throws when this process has the file open, under any name. */
    void ThrowIfUsed(const FileTurn& turn) const NBX_REQUIRES(gEngineLock);

  private:
    bool get_ExistsLocked() NBX_REQUIRES(gEngineLock);
    /** The turn on this object's file, or on its name if there is no file. */
    FileTurn TakeTurn(bool is_file) const;

    void CloseLocked() noexcept NBX_REQUIRES(gEngineLock);
    /** As `CloseLocked`, but options that were set since the database was opened apply to the next open. */
    void CloseToReopen() noexcept NBX_REQUIRES(gEngineLock);
    void OpenLocked() NBX_REQUIRES(gEngineLock);
    void DropLocked(FileTurn& turn) NBX_REQUIRES(gEngineLock);
    /** Deletes the file, which nobody in this process has open, and its log. Throws when another process has
       it open, or when it is not a database. */
    void DeleteFile(FileTurn& turn);
    /** `Create` after the preliminary drop; sets the creation error, which is empty on success. */
    void CreateSession(Session& session, FileTurn& turn, std::string& error) NBX_REQUIRES(gEngineLock);
    /** Throws `xException` 0x99000 when the file cannot be opened. */
    SharedEngine OpenEngine(FileTurn& turn) NBX_REQUIRES(gEngineLock);
    /** Null and the error text when the file cannot be created. */
    SharedEngine CreateEngine(FileTurn& turn, std::string& error) NBX_REQUIRES(gEngineLock);
    /** Writes the options into the configuration of a new file. */
    void Configure(Configuration& configuration) const NBX_REQUIRES(gEngineLock);
    bool HasFormat() const NBX_REQUIRES(gEngineLock) {
        return !storage_version_.isEmpty() || block_size_ != 0;
    }
    /** Throws the creation error if the options or the format do not allow any file in the place of this one,
        next to which it makes one and deletes it. */
    void TryCreation(const std::string& file) const NBX_REQUIRES(gEngineLock);
    /** Creates a file with the storage version and block size; false and the error text on failure. */
    bool CreateFormattedFile(const std::string& path, duckdb_config config, std::string& error) const
        NBX_REQUIRES(gEngineLock);
    struct BackupPlace {
        std::string path;
        /** A folder of its own, not the one in which the host keeps all backups. */
        bool is_own = false;
        /** The export into it. */
        std::string statement;
    };
    /** Chooses and marks the place of a backup; returns a connection for the export. */
    std::unique_ptr<SideConnection> PrepareBackup(nbx::smart_ptr<nbx::I_Location> folder, BackupPlace& place)
        NBX_REQUIRES(gEngineLock);
    /** Runs long work on the engine without the engine lock; `Close` waits for it and `Interrupt` ends it.
        `work` is called with the engine's handle and the stop. */
    template <class Work>
    void RunBeside(Work work);
    /** Makes the session this object's own; the object is open from now on. */
    void Adopt(Session& session) NBX_REQUIRES(gEngineLock);
    [[noreturn]] void ThrowError(std::string_view message) const { link_->ThrowError(message); }

    const SharedLink link_;
    const nbx::smart_ptr<nbx::I_Location>& location_;
    const nbx::String path_;

    nbx::String token_ NBX_GUARDED_BY(gEngineLock);
    nbx::String user_agent_ NBX_GUARDED_BY(gEngineLock);
    uint32_t block_size_ NBX_GUARDED_BY(gEngineLock) = 0;
    nbx::String storage_version_ NBX_GUARDED_BY(gEngineLock);
    nbx::mrsql::DuckDBDatabaseOptions options_ NBX_GUARDED_BY(gEngineLock);
    bool are_options_given_ NBX_GUARDED_BY(gEngineLock) = false;
    /** They were set after the last open. */
    bool are_options_new_ NBX_GUARDED_BY(gEngineLock) = false;

    /** Written under the engine lock, read without. */
    std::atomic<bool> is_open_{false};
    std::atomic<bool> is_read_only_{false};
    std::atomic<uint64_t> lost_transactions_{0};
    SharedEngine engine_ NBX_GUARDED_BY(gEngineLock);
    /** The registry key under which this object is a user of its engine. */
    nbx::String open_key_ NBX_GUARDED_BY(gEngineLock);

    ExportGate export_gate_;
    RunningStops running_stops_;
};

}  // namespace mduckdb
