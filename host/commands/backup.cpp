#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <memory>

#include "commands/program.h"
#include "databases/backups.h"
#include "databases/interruption.h"
#include "databases/snapshots.h"
#include "nbx/exception.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

constexpr const char* kBackupHelp =
    "Exports every table as a Parquet file into a new folder inside FOLDER, and prints that folder,\n"
    "its size, and the number of rows of each table. Without FOLDER the new folder is created in\n"
    "\"Backup\" next to the database. --verify lists what the backup would not restore, such as\n"
    "comments; the exit status is then 1.\n\n"
    "Example:\n"
    "  mduckdb-host backup sales.db /var/backups\n";
constexpr const char* kRestoreHelp =
    "Creates the database from the folder that backup printed, or from the file that snapshot\n"
    "created. With --force it replaces an existing DuckDB database, or an empty file, that nobody has\n"
    "open, once the new one is complete. Prints how many rows each table has in the backup and in the\n"
    "database. The exit status is 1 if a table differs.\n\n"
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

/** Reports what a restore of the backup will not bring back. */
int ReportVerification(Program& program, const DatabasePtr& database, const std::string& folder) {
    const std::vector<std::string> lines = VerifyExport(database, folder);
    program.out.Flush();
    for (const std::string& line : lines) {
        PrintError(line);
    }
    fmt::print(stderr, "{}\n",
               lines.empty() ? "Verified: the backup restores everything."
                             : "The backup does not restore what is listed above. A snapshot does.");
    return lines.empty() ? kWorked : kFailed;
}

int RunBackup(Program& program, const std::string& path, const std::string& folder, bool is_verified) {
    BlockInterrupts();
    program.Load();
    const DatabasePtr database = OpenForCommand(path, true);
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    return RunReported(program, [&] {
        const std::string made = BackUp(program.registry, database, folder, MakeReport(program, *printer));
        const int status = is_verified ? ReportVerification(program, database, made) : kWorked;
        database->Close();
        return status;
    });
}

int RunRestore(Program& program, const std::string& path, const std::string& folder, bool is_forced) {
    BlockInterrupts();
    program.Load();
    RequireReplaceable(path, is_forced);
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    return RunReported(program, [&] {
        const BackupReport report = MakeReport(program, *printer);
        if (IsSnapshot(folder) ? RestoreFromSnapshot(path, folder, report)
                               : Restore(program.registry, path, folder, report)) {
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
    auto is_verified = std::make_shared<bool>(false);
    command->add_flag("--verify", *is_verified, "Restore the backup into a temporary database and compare");
    command->callback([&program, path, folder, is_verified] {
        program.command = [&program, path, folder, is_verified] {
            return RunBackup(program, *path, *folder, *is_verified);
        };
    });
}

void AddRestoreCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("restore", "Recreate a database from a backup");
    command->footer(kRestoreHelp);
    auto path = std::make_shared<std::string>();
    auto folder = std::make_shared<std::string>();
    command->add_option("DATABASE", *path, "Database file to create")->required();
    command->add_option("FOLDER", *folder, "Folder of the backup, or file of the snapshot")->required();
    auto is_forced = std::make_shared<bool>(false);
    command->add_flag("--force", *is_forced, "Replace an existing database");
    command->callback([&program, path, folder, is_forced] {
        program.command = [&program, path, folder, is_forced] {
            return RunRestore(program, *path, *folder, *is_forced);
        };
    });
}

}  // namespace mduckdb_host
