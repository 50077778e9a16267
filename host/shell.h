#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "databases.h"
#include "line_reader.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "program.h"
#include "statement_splitter.h"

namespace mduckdb_host {

/** A database that is open in the shell. */
struct OpenedDatabase {
    std::string name;
    std::string path;
    DatabasePtr database;
};

/** The interactive shell: reads lines, runs dot commands at the start of a statement, procedure calls and
    SQL on the current database. An error ends the line or statement it is in and nothing else. */
class Shell {
  public:
    Shell(Program& program, bool is_interactive);
    ~Shell();
    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    /** Reads to the end or to `.quit`; false when something failed on the way. */
    bool Run(LineReader& reader);
    /** Runs the lines of a file as if they had been entered. */
    void RunFile(const std::string& name);

    std::vector<std::string> Complete(const std::string& line, const std::string& word) const;

    // What the dot commands work on.

    /** Opens a database and makes it the current one; a file that is not there is made. */
    void Open(const std::string& path, std::string name);
    void Close(const std::string& name);
    void Use(const std::string& name);
    const std::vector<OpenedDatabase>& get_Databases() const noexcept { return databases_; }
    /** Throws `std::runtime_error` when none is open. */
    const OpenedDatabase& get_Current() const;
    bool HasCurrent() const noexcept { return !databases_.empty(); }
    Program& get_Program() noexcept { return program_; }
    Printer& get_Printer();
    void put_Format(Format format);
    void put_IsCut(bool is_cut);
    void put_HasTimer(bool has_timer) noexcept { has_timer_ = has_timer; }
    void put_CursorLocation(uint32_t location) noexcept { cursor_location_ = location; }
    uint32_t get_CursorLocation() const noexcept { return cursor_location_; }
    bool get_HasTimer() const noexcept { return has_timer_; }
    void Quit() noexcept { is_over_ = true; }
    void Print(std::string_view text) { program_.out.Write(text); }

  private:
    /** Takes a line in: runs what it completes. */
    void Accept(LineReader& reader, const std::string& line);
    void AcceptDotCommand(const std::string& line);
    void RunStatement(const std::string& statement);
    void RunCall(const std::string& statement);
    void RunSql(const std::string& statement);
    /** Runs the work, reports what it throws, shows the time it took. */
    void RunReported(const std::string& sql, const std::function<void()>& work);
    void Report(const std::string& text);
    std::string MakePrompt() const;
    std::vector<OpenedDatabase>::const_iterator Find(const std::string& name) const;

    Program& program_;
    bool is_interactive_;
    std::vector<OpenedDatabase> databases_;
    std::size_t current_ = 0;
    std::unique_ptr<Printer> printer_;
    StatementSplitter splitter_;
    /** Whether the history takes the statement that is being read; not when it began with a blank. */
    bool is_kept_ = true;
    uint32_t cursor_location_ = nbx::mrsql::kServerCursor;
    bool has_timer_ = false;
    bool is_over_ = false;
    bool has_failed_ = false;
    int file_depth_ = 0;
};

/** Runs a dot command, given with its dot. Throws `xUsageError` and whatever its work throws. */
void RunDotCommand(Shell& shell, const std::string& line);
/** The dot commands that begin with the word. */
std::vector<std::string> CompleteDotCommand(const std::string& word);

}  // namespace mduckdb_host
