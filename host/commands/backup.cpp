#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <memory>

#include "commands/program.h"
#include "databases/backups.h"
#include "databases/interruption.h"
#include "nbx/exception.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

constexpr const char* kBackupHelp =
    "Exports every table as Parquet files into a new folder inside FOLDER, and prints that folder, its\n"
    "size, and the number of rows in the file of each table. Without FOLDER the backup goes into\n"
    "\"Backup\" beside the database.\n\n"
    "Example:\n"
    "  mduckdb-host backup sales.db /var/backups\n";
constexpr const char* kRestoreHelp =
    "Makes the database anew: a file that is there already is deleted first. FOLDER is the folder that\n"
    "backup printed. Prints the rows of each table in the backup and in the database, and says which\n"
    "differ; the exit status is 1 when one does.\n\n"
    "Example:\n"
    "  mduckdb-host restore sales-again.db /var/backups/2024-03-15T12-34-56Z\n";

BackupReport MakeReport(Program& program, Printer& printer) {
    const bool is_for_people =
        program.print.format == Format::kTable || program.print.format == Format::kMarkdown;
    return {program.out, printer, is_for_people};
}

/** Runs the work and reports the host's exceptions like everyone's. */
template <class Work>
int RunReported(Work work) {
    try {
        return work();
    } catch (const nbx::xException& error) {
        PrintError(DescribeException(error, {}));
        return kFailed;
    }
}

int RunBackup(Program& program, const std::string& path, const std::string& folder) {
    BlockInterrupts();
    program.Load();
    const DatabasePtr database = OpenForCommand(path, true);
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    return RunReported([&] {
        BackUp(program.registry, database, folder, MakeReport(program, *printer));
        database->Close();
        return kWorked;
    });
}

int RunRestore(Program& program, const std::string& path, const std::string& folder) {
    BlockInterrupts();
    program.Load();
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    return RunReported([&] {
        if (Restore(program.registry, path, folder, MakeReport(program, *printer))) {
            return kWorked;
        }
        program.out.Flush();
        PrintError("The database is not what was backed up: see the tables that differ.");
        return kFailed;
    });
}

}  // namespace

void AddBackupCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("backup", "Back a database up into a folder");
    command->footer(kBackupHelp);
    auto path = std::make_shared<std::string>();
    auto folder = std::make_shared<std::string>();
    command->add_option("DATABASE", *path, "Database file")->required();
    command->add_option("FOLDER", *folder, "Folder for the backup's folder; it must be there");
    command->callback([&program, path, folder] {
        program.command = [&program, path, folder] { return RunBackup(program, *path, *folder); };
    });
}

void AddRestoreCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("restore", "Make a database anew from a backup");
    command->footer(kRestoreHelp);
    auto path = std::make_shared<std::string>();
    auto folder = std::make_shared<std::string>();
    command->add_option("DATABASE", *path, "Database file to make")->required();
    command->add_option("FOLDER", *folder, "Folder of the backup")->required();
    command->callback([&program, path, folder] {
        program.command = [&program, path, folder] { return RunRestore(program, *path, *folder); };
    });
}

}  // namespace mduckdb_host
