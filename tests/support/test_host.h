#pragma once

#include <string>
#include <vector>

#include "nbx/exception.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/mrsql/duckdb_extension.h"
#include "nbx/string.h"

/** Does what a host does around the module: installs the extension object, and restores every hook at the
    end. */
class TestHost {
  public:
    TestHost();
    ~TestHost();
    TestHost(const TestHost&) = delete;
    TestHost& operator=(const TestHost&) = delete;

    nbx::mrsql::I_DuckDBExtension& operator*() const { return *extension_; }
    nbx::mrsql::I_DuckDBExtension* operator->() const { return extension_.get(); }
    /** A database object on the path, closed. */
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> Database(const std::string& path) const;
    /** The same, created or opened. */
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> Created(const std::string& path) const;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> Opened(const std::string& path) const;

  private:
    nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> extension_;
    bool (*is_local_call_)();
    nbx::smart_ptr<nbx::I_Location> (*create_backup_)(const nbx::smart_ptr<nbx::I_Location>&);
    nbx::smart_ptr<nbx::I_Location> (*server_backup_)();
};

nbx::String S(const std::string& utf8);
std::string U(const nbx::String& text);
nbx::smart_ptr<nbx::I_Location> Location(const std::string& path);
/** Runs a script; returns the number of changed rows. */
int64_t Execute(nbx::mrsql::I_DuckDBDatabase& database, const std::string& sql);
/** The single cell of a query, as text. */
std::string QueryText(nbx::mrsql::I_DuckDBDatabase& database, const std::string& sql);

/** The exception in full: "xDuckDBError 72501 [path] [message]", "none" when nothing was, "std: text" for
    exceptions that are not the host's. */
template <class F>
std::string Thrown(F&& action);

/** Names the exception that is being handled, as `Thrown` does. */
std::string DescribeCurrentException();

template <class F>
std::string Thrown(F&& action) {
    try {
        action();
    } catch (...) {
        return DescribeCurrentException();
    }
    return "none";
}
