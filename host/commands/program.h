#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "databases/databases.h"
#include "print/output.h"
#include "print/printer.h"
#include "table/function_table.h"

namespace CLI {  // NOLINT(readability-identifier-naming): the library's own
class App;       // its headers take long to read
}

namespace mduckdb_host {

/** Exit statuses. */
constexpr int kWorked = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

/** What all commands share. */
struct Program {
    explicit Program(int output_descriptor) : out(output_descriptor) {}

    Output out;
    PrintOptions print;
    std::string module_name;
    /** What stands behind a `--` on the command line of `call`. */
    std::vector<std::string> words_after_dashes;
    /** Empty until `Load`. */
    ProcedureRegistry registry;
    /** The command that the command line names; gives the exit status. */
    std::function<int()> command;

    /** Loads the module; gives an address inside it. Throws `std::runtime_error`. */
    const void* Load();
    std::unique_ptr<Printer> MakePrinter() { return mduckdb_host::MakePrinter(out, print); }
};

/** Each adds one command with its options and its help. The program must outlive the application. */
void AddCallCommand(CLI::App& app, Program& program);
void AddVersionCommand(CLI::App& app, Program& program);
void AddProbeCommand(CLI::App& app, Program& program);
void AddCreateCommand(CLI::App& app, Program& program);
void AddSqlCommand(CLI::App& app, Program& program);
void AddBackupCommand(CLI::App& app, Program& program);
void AddRestoreCommand(CLI::App& app, Program& program);
void AddShellCommand(CLI::App& app, Program& program);

/** The command line as the parser takes it, without the program's name. The parser takes a word such as
    `[1, 2]` apart, and a `--` inside a command means something else to it: for the arguments of `call`,
    such words are guarded, and what stands behind the `--` goes to the program. */
std::vector<std::string> ReadCommandLine(int argc, const char* const* argv, Program& program);
/** A word of the parser's as it stood on the command line. */
std::string UnguardWord(const std::string& word);

/** Opens a database that a command line names: it must exist, and a Ctrl-C ends the program meanwhile.
    Says on stderr when the file could be opened for reading only. Throws `std::runtime_error` with a text
    for people. */
DatabasePtr OpenForCommand(const std::string& path, bool is_read_only);

}  // namespace mduckdb_host
