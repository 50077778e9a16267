#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "databases/databases.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "print/printer.h"
#include "shell/output_redirection.h"
#include "shell/paged_output.h"
#include "table/function_table.h"

namespace mduckdb_host {

/** A database that is open in the shell. */
struct OpenedDatabase {
    std::string name;
    std::string path;
    DatabasePtr database;
};

/** What dot commands need the shell for, which alone can run statements. */
class StatementRunner {
  public:
    virtual ~StatementRunner();
    /** Runs the lines of a file as if they had been entered. */
    virtual void RunFile(const std::string& name) = 0;
    /** Runs the last statement again until it fails or Ctrl-C is pressed; at most `count` times, 0 for no
     * limit. */
    virtual void Repeat(double seconds, uint64_t count) = 0;
    /** Runs the last statement as the user changes it in an editor. */
    virtual void Edit() = 0;
};

/** The state of the shell: the open databases, how rows are printed, which cursor is used. The dot commands
    change it; the shell runs statements with it. The output and the registry must outlive it. The destructor
    closes the databases. */
class Session {
  public:
    Session(Output& out, const PrintOptions& print, const ProcedureRegistry& registry);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /** Opens a database and makes it the current one; a missing file is created. */
    void Open(const std::string& path, std::string name);
    void Close(const std::string& name);
    void Use(const std::string& name);
    const std::vector<OpenedDatabase>& get_Databases() const noexcept { return databases_; }
    /** Throws `std::runtime_error` when none is open. */
    const OpenedDatabase& get_Current() const;
    bool HasCurrent() const noexcept { return !databases_.empty(); }

    const ProcedureRegistry& get_Registry() const noexcept { return registry_; }
    Output& get_Output() noexcept { return redirection_.get_Output(); }
    void Print(std::string_view text) { get_Output().Write(text); }
    Printer& get_Printer();
    /** The next result gets a new printer: an error may leave one in the middle of a result. */
    void DropPrinter() noexcept { printer_.reset(); }

    void put_Format(Format format);
    /** Shows one field per line, or returns to the format before. */
    void ToggleLines();
    /** Changes how the next results are printed. */
    template <class Change>
    void ChangePrintOptions(Change change) {
        change(print_);
        DropPrinter();
    }
    /** Results go into the file, all from now on or only the next one. Throws `xUsageError`. */
    void WriteTo(const std::string& path, bool is_once);
    /** Results go to the program's output again. */
    void ResetOutput();
    /** Where results go that do not fit on the screen; none unless it is called. */
    void put_Pager(PagedOutput* pager) noexcept { pager_ = pager; }
    void put_IsPaged(bool is_paged);
    /** Around everything that prints a result. They may be called without each other. */
    void BeginPage();
    void EndPage();
    /** Whether the user left the pager, which is why the output was closed. */
    bool get_IsInPager() const noexcept { return pager_ != nullptr && pager_->get_IsInPager(); }
    /** Called after each statement. */
    void EndStatement();
    void put_HasTimer(bool has_timer) noexcept { has_timer_ = has_timer; }
    bool get_HasTimer() const noexcept { return has_timer_; }
    /** Whether a script ends at its first error. */
    void put_Bails(bool bails) noexcept { bails_ = bails; }
    bool get_Bails() const noexcept { return bails_; }
    void put_CursorLocation(uint32_t location) noexcept { cursor_location_ = location; }
    uint32_t get_CursorLocation() const noexcept { return cursor_location_; }
    void Quit() noexcept { is_over_ = true; }
    bool get_IsOver() const noexcept { return is_over_; }

    /** Set by the shell for its lifetime. */
    void put_Runner(StatementRunner* runner) noexcept { runner_ = runner; }
    StatementRunner& get_Runner() noexcept { return *runner_; }

  private:
    std::vector<OpenedDatabase>::const_iterator Find(const std::string& name) const;

    OutputRedirection redirection_;
    PagedOutput* pager_ = nullptr;
    PrintOptions print_;
    Format format_before_lines_ = Format::kTable;
    const ProcedureRegistry& registry_;
    std::vector<OpenedDatabase> databases_;
    std::size_t current_ = 0;
    std::unique_ptr<Printer> printer_;
    uint32_t cursor_location_ = nbx::mrsql::kServerCursor;
    bool has_timer_ = false;
    bool bails_ = false;
    bool is_over_ = false;
    StatementRunner* runner_ = nullptr;
};

}  // namespace mduckdb_host
