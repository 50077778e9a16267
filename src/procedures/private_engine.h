#pragma once

#include <duckdb.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "base/holders.h"
#include "engines/engine_files.h"

namespace mduckdb {

/** The DuckDB engine of one procedure call and its connection. Move-only; the destructor disconnects, then
    gives the engine up. Failures are std::runtime_error with their fixed texts. */
class PrivateEngine {
  public:
    /** An engine of its own in memory. */
    static PrivateEngine OpenInMemory();
    /** Reads a database file. Where this process has it open for writing, through that engine, in a read-only
        transaction that lasts until `FinishReading`; otherwise through an engine that only reads. Either way
       it creates, checkpoints and deletes nothing. `:memory:` is an empty database. */
    static PrivateEngine OpenFile(const std::string& path);

    PrivateEngine(PrivateEngine&& other) noexcept;
    PrivateEngine(const PrivateEngine&) = delete;
    PrivateEngine& operator=(const PrivateEngine&) = delete;
    ~PrivateEngine();

    /** Runs the text to the end; throws with DuckDB's text when it fails. */
    ResultHolder Query(const std::string& sql);
    duckdb_connection get_Connection() const noexcept { return connection_; }
    /** The result that is wanted is complete: ends the transaction, so that it holds back no checkpoint.
     */
    void FinishReading() noexcept;
    /** Has a name that starts with the name of the file's catalog mean the file, also where an engine that is
       shared has it under another one. */
    void QualifyName(std::vector<std::string>& parts);

  private:
    PrivateEngine() = default;
    void Connect(const char* failure_text);
    void UseFile(const std::string& file);
    /** Connects to the writing engine, if there is one that works. */
    bool JoinWriter(FileTurn& turn);
    bool Run(const char* sql) noexcept;

    /** The use of a file's engine, or null. */
    SharedEngine engine_;
    /** The engine in memory, which is this object's own, or null. */
    duckdb_database database_ = nullptr;
    duckdb_connection connection_ = nullptr;
    /** The engine is the one that this process writes with. */
    bool is_shared_ = false;
    /** The catalog's name of a file that is opened under the path. */
    std::string catalog_;
};

/** The error of a failed query, with DuckDB's text if it has one. */
std::runtime_error QueryError(duckdb_result& result);

/** The path of the database file that DuckDB means by the text: without the prefix that names the kind of
    database, without the scheme of a file URL and with the home folder in place of a tilde. Empty for a text
    that names no file. */
std::string DatabaseFilePath(const std::string& uri);

}  // namespace mduckdb
