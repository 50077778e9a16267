#pragma once

#include <duckdb.h>

#include <stdexcept>
#include <string>

#include "base/holders.h"

namespace mduckdb {

/** The DuckDB engine of one procedure call and its connection. Move-only; the destructor disconnects, then
    gives the engine up. Failures are std::runtime_error with their fixed texts. */
class PrivateEngine {
  public:
    /** An engine of its own in memory. */
    static PrivateEngine OpenInMemory();
    /** An engine that only reads the database file: it creates, checkpoints and deletes nothing. Refused
        while an engine of this process has the file open for writing. `:memory:` is an empty database. */
    static PrivateEngine OpenFile(const std::string& path);

    PrivateEngine(PrivateEngine&& other) noexcept;
    PrivateEngine(const PrivateEngine&) = delete;
    PrivateEngine& operator=(const PrivateEngine&) = delete;
    ~PrivateEngine();

    /** Runs the text to the end; throws with DuckDB's text when it fails. */
    ResultHolder Query(const std::string& sql);
    duckdb_connection get_Connection() const noexcept { return connection_; }

  private:
    PrivateEngine() = default;
    void Connect(const char* failure_text);
    /** Leaves the engine null when the file cannot be opened. */
    void OpenReading(const std::string& file);

    /** The file that the engine is announced for; empty when it has none. */
    std::string held_file_;
    duckdb_database database_ = nullptr;
    duckdb_connection connection_ = nullptr;
};

/** The error of a failed query, with DuckDB's text if it has one. */
std::runtime_error QueryError(duckdb_result& result);

/** The path of the database file that DuckDB means by the text: without the prefix that names the kind of
    database, without the scheme of a file URL and with the home folder in place of a tilde. Empty for a text
    that names no file. */
std::string DatabaseFilePath(const std::string& uri);

}  // namespace mduckdb
