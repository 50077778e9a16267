#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <unistd.h>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>

#include "commands/program.h"
#include "commands/suggestions.h"
#include "nbx/mrsql/registry.h"
#include "nbx/standard_descriptors.h"
#include "table/module.h"
#include "text/messages.h"
#include "text/text.h"

namespace mduckdb_host {
namespace {

constexpr const char* kFooter =
    "Exit status: 0 success, 1 a procedure or a statement failed, 2 wrong usage, 130 interrupted.\n"
    "mduckdb-host COMMAND --help describes a command and shows an example.\n";

void AddCommonOptions(CLI::App& app, Program& program) {
    program.module_name = "mduckdb_casts";
    app.add_option("--module", program.module_name,
                   "Module to load: a file, or the name of an installed module")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option_function<std::string>(
           "--format",
           [&program](const std::string& name) {
               const std::optional<Format> format = FindFormat(name);
               if (!format) {
                   throw CLI::ValidationError("--format", DescribeUnknownFormat(name));
               }
               program.print.format = *format;
           },
           "Output format: table, csv, json, jsonl, markdown or line (default: table)")
        ->type_name("NAME");
    app.add_flag_callback(
        "--all", [&program] { program.print.is_cut_to_screen = false; },
        "Print all rows and columns, even if the table is larger than the screen");
}

void AddCommands(CLI::App& app, Program& program) {
    AddCallCommand(app, program);
    AddVersionCommand(app, program);
    AddProbeCommand(app, program);
    AddCreateCommand(app, program);
    AddSqlCommand(app, program);
    AddBackupCommand(app, program);
    AddRestoreCommand(app, program);
    AddSnapshotCommand(app, program);
    AddShellCommand(app, program);
    AddHelpCommand(app, program);
}

int RunCommand(Program& program) {
    try {
        const int status = program.command();
        program.out.Flush();
        return status;
    } catch (const xOutputClosed&) {
        return kWorked;
    } catch (const xModuleRefused&) {
        return kFailed;
    } catch (const xUsageError& error) {
        PrintError(error.what());
        return kWrongUsage;
    } catch (const std::exception& error) {
        // The output before the error must also appear before it.
        try {
            program.out.Flush();
        } catch (const std::exception&) {
            return kFailed;
        }
        PrintError(error.what());
        return kFailed;
    }
}

int Main(int argc, char** argv) {
    // A write to a closed pipe then fails with EPIPE, so that databases are still closed properly.
    std::signal(SIGPIPE, SIG_IGN);
    // All commands then report an interrupt by the same status. Those that watch for Ctrl-C block the signal.
    if (std::signal(SIGINT, [](int /*number*/) { ::_exit(kEndedByInterrupt); }) == SIG_IGN) {
        std::signal(SIGINT, SIG_IGN);
    }
    InitDisplayWidth();
    Program program(STDOUT_FILENO);
    CLI::App app("Use the mduckdb extension module from a terminal.", "mduckdb-host");
    app.footer(kFooter);
    app.set_version_flag("-V,--version", "mduckdb-host " MDUCKDB_HOST_VERSION, "Print the version");
    app.require_subcommand(1);
    app.fallthrough();  // common options may also follow the command
    AddCommonOptions(app, program);
    AddLimitOptions(app, program);
    AddCommands(app, program);
    std::vector<std::string> typed_words;
    try {
        std::vector<std::string> words = ReadCommandLine(argc, argv, program);
        std::reverse(words.begin(), words.end());  // as the parser wants them
        typed_words.assign(words.rbegin(), words.rend());
        app.parse(std::move(words));
    } catch (const CLI::ParseError& error) {
        const std::string unknown = error.get_exit_code() == 0 ? "" : DescribeUnknownWords(app, typed_words);
        if (!unknown.empty()) {
            PrintError(unknown);
            return kWrongUsage;
        }
        return app.exit(error) == 0 ? kWorked : kWrongUsage;
    }
    const int status = RunCommand(program);
    // Release the module's object while everything that it may need still exists.
    nbx::mrsql::SetDuckDBExtension(nullptr);
    return status;
}

}  // namespace
}  // namespace mduckdb_host

int main(int argc, char** argv) {
    // Before anything is opened.
    nbx::OccupyStandardDescriptors();
    try {
        return mduckdb_host::Main(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return mduckdb_host::kFailed;
    }
}
