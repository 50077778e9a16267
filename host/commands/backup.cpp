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
    "Exports every table as a Parquet file into a new folder inside FOLDER, and prints that folder,\n"
    "its size, and the number of rows of each table. Without FOLDER the new folder is created in\n"
    "\"Backup\" next to the database.\n\n"
    "Example:\n"
    "  mduckdb-host backup sales.db /var/backups\n";
constexpr const char* kRestoreHelp =
    "Recreates the database; an existing file is deleted first. FOLDER is the folder that backup\n"
    "printed. Prints how many rows each table has in the backup and in the database. The exit status\n"
    "is 1 if a table differs.\n\n"
    "Example:\n"
    "  mduckdb-host restore sales-again.db /var/backups/2024-03-15T12-34-56Z\n";

BackupReport MakeReport(Program& program, Printer& printer) {
    const bool is_for_people =
        program.print.format == Format::kTable || program.print.format == Format::kMarkdown;
    return {program.out, printer, is_for_people};
}

/** Runs the work and reports the exceptions of the host interfaces. */
template <class Work>
int RunReported(Program& program, Work work) {
    try {
        return work();
    } catch (const nbx::xException& error) {
        return ReportException(program, error, {});
    }
}

int RunBackup(Program& program, const std::string& path, const std::string& folder) {
    BlockInterrupts();
    program.Load();
    const DatabasePtr database = OpenForCommand(path, true);
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    return RunReported(program, [&] {
        BackUp(program.registry, database, folder, MakeReport(program, *printer));
        database->Close();
        return kWorked;
    });
}

int RunRestore(Program& program, const std::string& path, const std::string& folder) {
    BlockInterrupts();
    program.Load();
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    return RunReported(program, [&] {
        if (Restore(program.registry, path, folder, MakeReport(program, *printer))) {
            return kWorked;
        }
        program.out.Flush();
        PrintError("The database differs from the backup. See the tables marked DIFFERS.");
        return kFailed;
    });
}

}  // namespace

void AddBackupCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("backup", "Back up a database into a folder");
    command->footer(kBackupHelp);
    auto path = std::make_shared<std::string>();
    auto folder = std::make_shared<std::string>();
    command->add_option("DATABASE", *path, "Database file")->required();
    command->add_option("FOLDER", *folder, "Existing folder in which the backup's folder is created");
    command->callback([&program, path, folder] {
        program.command = [&program, path, folder] { return RunBackup(program, *path, *folder); };
    });
}

void AddRestoreCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("restore", "Recreate a database from a backup");
    command->footer(kRestoreHelp);
    auto path = std::make_shared<std::string>();
    auto folder = std::make_shared<std::string>();
    command->add_option("DATABASE", *path, "Database file to create")->required();
    command->add_option("FOLDER", *folder, "Folder of the backup")->required();
    command->callback([&program, path, folder] {
        program.command = [&program, path, folder] { return RunRestore(program, *path, *folder); };
    });
}

}  // namespace mduckdb_host
