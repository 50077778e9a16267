#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "databases/databases.h"
#include "nbx/exception.h"
#include "nbx/mrsql/duckdb_procedure_limits.h"
#include "nbx/mrsql/registry.h"
#include "print/output.h"
#include "print/printer.h"
#include "table/function_table.h"
#include "text/messages.h"

namespace CLI {  // NOLINT(readability-identifier-naming): the library's own
class App;       // its headers are slow to compile
}

namespace mduckdb_host {

/** Exit statuses. */
constexpr int kWorked = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
/** The status that shells report for a program that Ctrl-C terminated. */
constexpr int kEndedByInterrupt = 130;

/** Limits for each call of a procedure. A number of 0 and an empty text set none. */
struct Limits {
    uint32_t memory_mb = 0;
    uint32_t threads = 0;
    double seconds = 0;
    std::string temp_directory;
    std::vector<std::string> allowed_directories;

    bool get_IsSet() const noexcept;
    /** Hands them to the loaded module. Throws `std::runtime_error` with a text for people. */
    void Apply() const;
};

/** The state that all commands share. */
struct Program {
    explicit Program(int output_descriptor) : out(output_descriptor) {}

    Output out;
    PrintOptions print;
    std::string module_name;
    Limits limits;
    /** The words after a `--` on the command line of `call` and `probe`. */
    std::vector<std::string> words_after_dashes;
    /** Empty until `Load`. */
    ProcedureRegistry registry;
    /** The command that the user chose; returns the exit status. */
    std::function<int()> command;

    /** Loads the module, sets its limits and returns an address inside it. Throws `std::runtime_error`. */
    const void* Load();
    std::unique_ptr<Printer> MakePrinter() { return mduckdb_host::MakePrinter(out, print); }
};

/** Each function adds one command with its options and help. The program must outlive the application. */
void AddLimitOptions(CLI::App& app, Program& program);
void AddCallCommand(CLI::App& app, Program& program);
void AddVersionCommand(CLI::App& app, Program& program);
void AddProbeCommand(CLI::App& app, Program& program);
void AddCreateCommand(CLI::App& app, Program& program);
void AddSqlCommand(CLI::App& app, Program& program);
void AddBackupCommand(CLI::App& app, Program& program);
void AddRestoreCommand(CLI::App& app, Program& program);
void AddSnapshotCommand(CLI::App& app, Program& program);
void AddShellCommand(CLI::App& app, Program& program);
void AddHelpCommand(CLI::App& app, Program& program);

/** The command line for the parser, without the program's name. The parser would split a word such as `[1,
   2]`, and interprets a `--` inside a command differently. For the commands that accept a list of words,
   `call` and `probe`, such words are therefore guarded, and the words after `--` are stored in the
   program. */
std::vector<std::string> ReadCommandLine(int argc, const char* const* argv, Program& program);
/** The command among the words; empty if there is none. */
std::string FindCommandWord(const std::vector<std::string>& words);
/** The list of words as it was on the command line: without guards, and with the words after `--`. */
std::vector<std::string> RestoreWords(const std::vector<std::string>& words, const Program& program);

/** Reports an exception of the host interfaces, or of a result that ended early, thrown while `sql` ran (may
    be empty); returns the exit status. */
int ReportException(Program& program, const std::exception& error, const SqlText& sql);

/** Opens the database that the command line names. It must exist; Ctrl-C terminates the program while it
    opens. Reports on stderr when the file is only open for reading. Throws `std::runtime_error` with a text
    for people. */
DatabasePtr OpenForCommand(const std::string& path, bool is_read_only);

/** Throws `std::runtime_error` when the file exists and the user has not asked to replace it; names the
    process that has it open. The module decides what may be replaced at all. */
void RequireReplaceable(const std::string& path, bool is_forced);

}  // namespace mduckdb_host
