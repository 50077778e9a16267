#include <fmt/format.h>
#include <unistd.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <iostream>
#include <memory>

#include "commands/program.h"
#include "databases/databases.h"
#include "databases/interruption.h"
#include "nbx/exception.h"
#include "shell/completion.h"
#include "shell/shell.h"
#include "shell/user_files.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

constexpr const char* kShellHelp =
    "Without DATABASE the shell opens an empty database in memory; a missing file is created.\n"
    "Statements end with a semicolon; .help lists the commands that begin with a dot. When the input\n"
    "is a pipe, the shell shows no prompt, continues after an error (unless --bail is given), and exits\n"
    "with status 1 if there was one. An interactive shell\n"
    "first runs ${XDG_CONFIG_HOME:-~/.config}/mduckdb/shellrc, if it exists. The history is kept in\n"
    "${XDG_STATE_HOME:-~/.local/state}/mduckdb/history.\n\n"
    "Example:\n"
    "  mduckdb-host shell sales.db\n";

struct ShellArguments {
    std::string path;
    bool bails = false;
    bool has_no_init = false;
};

LineHelp MakeLineHelp(const Session& session, const Shell& shell) {
    return {[&session](const std::string& line, const std::string& word) {
                return Complete(session, line, word);
            },
            [&shell](std::string_view line) { return shell.Classify(line); },
            [&session](const std::string& line) { return DescribeContinuation(session, line); }};
}

int RunShell(Program& program, const ShellArguments& arguments) {
    const std::string& path = arguments.path;
    BlockInterrupts();
    program.Load();
    const bool is_interactive = isatty(STDIN_FILENO) == 1 && program.out.get_IsTerminal();
    PagedOutput terminal(STDOUT_FILENO);
    Session session(is_interactive ? terminal : program.out, program.print, program.registry);
    if (is_interactive) {
        session.put_Pager(&terminal);
    }
    session.put_Bails(arguments.bails);
    try {
        session.Open(path.empty() ? ":memory:" : path, {});
    } catch (const nbx::xException& error) {
        throw std::runtime_error(fmt::format("Cannot open {}: {}", path, DescribeException(error, {})));
    }
    Shell shell(session, is_interactive);
    std::unique_ptr<LineReader> reader;
    if (is_interactive) {
        session.Print(fmt::format("DuckDB {}, module {}. Enter .help for help, .quit to leave.\n",
                                  GetExtension()->get_LibraryVersion(), program.module_name));
        reader = MakeTerminalReader(PrepareHistoryFile(), MakeLineHelp(session, shell));
    } else {
        reader = MakePipeReader(std::cin);
    }
    if (is_interactive && !arguments.has_no_init) {
        shell.RunStartUpFile(FindStartUpFile());
    }
    const bool worked = shell.Run(*reader);
    if (shell.get_IsInterrupted() && !is_interactive) {
        return kEndedByInterrupt;
    }
    return worked || is_interactive ? kWorked : kFailed;
}

}  // namespace

void AddShellCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("shell", "Run SQL interactively");
    command->footer(kShellHelp);
    auto arguments = std::make_shared<ShellArguments>();
    command->add_option("DATABASE", arguments->path, "Database file");
    command->add_flag("--no-init", arguments->has_no_init, "Do not run the start-up file");
    command->add_flag("--bail", arguments->bails, "End a script at its first error");
    command->callback([&program, arguments] {
        program.command = [&program, arguments] { return RunShell(program, *arguments); };
    });
}

}  // namespace mduckdb_host
