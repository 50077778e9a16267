#pragma once

#include <string>

#include "base/holders.h"
#include "nbx/mrsql/duckdb_database.h"

namespace mduckdb {

/** A DuckDB configuration that remembers what was written to it. DuckDB reports a rejected key or value only
    when a database is opened with it. */
class Configuration : nbx::noncopyable {
  public:
    /** Throws `std::runtime_error` "Failed to create DuckDB config". */
    Configuration();

    void Set(const char* key, const std::string& value);
    /** As `Set`, but engines with different values are equal. */
    void SetUnmarked(const char* key, const std::string& value);
    /** READ_WRITE or READ_ONLY; may be changed between two attempts to open. */
    void SetAccessMode(const char* mode) { Set("access_mode", mode); }
    /** Nothing is written without a token. */
    void ApplyCredentials(const nbx::String& token, const nbx::String& user_agent);
    void ApplyOptions(const nbx::mrsql::DuckDBDatabaseOptions& options);

    /** Makes this configuration differ from those with other marks; DuckDB does not see the mark. */
    void Mark(const std::string& mark) { text_.append(mark).append(1, '\0'); }

    /** Describes what is wrong with a value; empty when it is valid. */
    const std::string& get_Error() const noexcept { return error_; }
    duckdb_config get() const noexcept { return config_.get(); }
    /** Keys and values in the order of writing: equal texts mean equal engines. */
    const std::string& get_Text() const noexcept { return text_; }

  private:
    /** An empty text is not written. */
    void SetText(const char* key, const nbx::String& text);

    ConfigHolder config_;
    std::string text_;
    std::string error_;
};

}  // namespace mduckdb
