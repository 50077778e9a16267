#pragma once

#include <duckdb.h>

#include <atomic>
#include <stdexcept>
#include <string>

namespace mduckdb {

/** The text was not run. */
class RefusedSelect : public std::runtime_error {
  public:
    explicit RefusedSelect(const std::string& function) : std::runtime_error(function) {}
    /** The function that may not be called, or the empty text when the text is not exactly one SELECT. */
    const char* get_Function() const noexcept { return what(); }
};

/** A SELECT over a text that comes from a user. */
struct SelectText {
    /** The user's part. */
    const std::string& base;
    /** How many bytes of the whole text precede the base. */
    std::size_t base_begin;
    /** A SELECT over the base in parentheses that ends in "LIMIT 0". DuckDB's errors quote from it. */
    const std::string& whole;
    /** The row limit to run it with in decimal digits, or empty for none. */
    const std::string& limit;
    /** Whether another thread wants the query to end: DuckDB forgets an interrupt that comes before it begins
        the query. */
    const std::atomic<bool>& is_cut;
};

/** Runs the text once if it is one SELECT, both alone and with the text around it. The parsed statement is
    checked and then run with a row limit of its own; checking a text and then building another would allow
    the two to differ. The result holds the rows or DuckDB's error; the caller destroys it. DuckDB's buffer
    manager holds its rows, so they count towards the engine's memory limit and are spilled to its temporary
    directory: result and chunks must be destroyed before the engine is closed.

    Throws RefusedSelect, before anything is run, when DuckDB parses the text as something else or as more
   than one statement, and when the text, or a view or macro that it names, calls a function that changes the
    engine or writes files. */
duckdb_result RunOneSelect(duckdb_connection connection, const SelectText& text);

/** Whether the function, named as DuckDB names it, may not be called in a procedure. */
bool IsRefusedFunction(const std::string& name);

}  // namespace mduckdb
