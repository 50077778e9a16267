#pragma once

#include <duckdb.h>

#include <string>

namespace mduckdb {

/** The DuckDB engine of one procedure call and its connection. Move-only; the destructor disconnects, then
    closes the engine. Failures are std::runtime_error with their fixed texts. */
class PrivateEngine {
  public:
    /** An engine of its own in memory. */
    static PrivateEngine OpenInMemory();
    /** An engine that only reads the database file. */
    static PrivateEngine OpenFile(const std::string& path);
    /** In memory for the empty path. */
    static PrivateEngine Open(const std::string& path);

    PrivateEngine(PrivateEngine&& other) noexcept;
    PrivateEngine& operator=(PrivateEngine&&) = delete;
    ~PrivateEngine();

    /** Runs the text to the end; throws with DuckDB's text when it fails. The result is the caller's. */
    duckdb_result Query(const std::string& sql);

  private:
    PrivateEngine() = default;
    void Connect(const char* failure_text);

    duckdb_database database_ = nullptr;
    duckdb_connection connection_ = nullptr;
};

}  // namespace mduckdb
