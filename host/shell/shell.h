#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "shell/line_reader.h"
#include "shell/session.h"
#include "shell/statement_splitter.h"
#include "text/messages.h"

namespace mduckdb_host {

/** The interactive shell: reads lines, runs dot commands at the start of a statement, procedure calls and SQL
    on the current database. An error ends only the line or statement in which it occurs. The session must
    outlive it. */
class Shell : StatementRunner {
  public:
    Shell(Session& session, bool is_interactive);
    ~Shell() override;
    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    /** Runs the lines of the file, if it exists, as `.read` does. */
    void RunStartUpFile(const std::string& name);
    /** Reads until the end of the input or `.quit`; false when anything failed. */
    bool Run(LineReader& reader);
    /** The `TextKind` of each byte of a line that is being entered. */
    std::string Classify(std::string_view line) const;
    /** Whether a Ctrl-C interrupted a statement. It ends a shell that reads from a pipe. */
    bool get_IsInterrupted() const noexcept { return is_interrupted_; }

  private:
    void RunFile(const std::string& name) override;
    void Repeat(double seconds, uint64_t count) override;
    void Edit() override;
    /** Adds a line to the statement that is being read, and runs the statements that it completes. */
    void Accept(LineReader& reader, const std::string& line);
    void AcceptDotCommand(const std::string& line);
    /** Runs a statement, reports its errors, and shows the time that it took if `.timer` is on. `line` is the
        place of the statement in its script. */
    void RunStatement(const std::string& statement, int64_t line);
    void RunCall(const SqlText& statement);
    void RunSql(const SqlText& statement);
    /** Runs the work and reports what it throws. `sql` is the text that an error's position refers to. */
    void RunReported(const SqlText& sql, const std::function<void()>& work);
    void Report(const std::string& text);
    /** Ends the script after an error in `sql`, if `.bail` is on. */
    void Bail(const SqlText& sql);
    /** Whether lines come from a pipe or a file, not from a person. */
    bool get_IsScript() const noexcept { return !is_interactive_ || file_depth_ > 0; }
    std::string MakePrompt() const;

    Session& session_;
    bool is_interactive_;
    /** While `Run` reads. */
    LineReader* reader_ = nullptr;
    StatementSplitter splitter_;
    /** What `.watch` repeats and `.edit` shows. */
    std::string last_statement_;
    /** Whether the statement that is being read goes into the history; not if it began with a blank. */
    bool is_kept_ = true;
    bool has_failed_ = false;
    bool is_interrupted_ = false;
    int file_depth_ = 0;
    /** The number of the line that was read last, in the current file or pipe. */
    int64_t line_number_ = 0;
    /** Of the file that is being read; empty for a pipe or a terminal. */
    std::string file_name_;
    bool is_paging_ = true;
    /** Whether the files that are being read end: after Ctrl-C, and after an error if `.bail` is on. */
    bool is_leaving_files_ = false;
};

}  // namespace mduckdb_host
