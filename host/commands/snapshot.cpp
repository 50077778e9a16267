#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <memory>

#include "commands/program.h"
#include "databases/interruption.h"
#include "databases/snapshots.h"
#include "nbx/exception.h"

namespace mduckdb_host {

namespace {

constexpr const char* kSnapshotHelp =
    "Copies the database into FILE, which must not exist yet, compares the copy with the database, and\n"
    "prints the number of rows of each table. FILE is a DuckDB database; its checksum is in\n"
    "FILE.manifest.json. Unlike backup, a snapshot keeps everything, but an older DuckDB may be unable\n"
    "to read it.\n\n"
    "Example:\n"
    "  mduckdb-host snapshot sales.db /var/backups/sales-monday.db\n";

int RunSnapshot(Program& program, const std::string& path, const std::string& file) {
    BlockInterrupts();
    program.Load();
    const DatabasePtr database = OpenForCommand(path, true);
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    try {
        const bool is_for_people =
            program.print.format == Format::kTable || program.print.format == Format::kMarkdown;
        TakeSnapshot(database, file, {program.out, *printer, is_for_people});
        database->Close();
        return kWorked;
    } catch (const nbx::xException& error) {
        return ReportException(program, error, {});
    }
}

}  // namespace

void AddSnapshotCommand(CLI::App& app, Program& program) {
    CLI::App* const command =
        app.add_subcommand("snapshot", "Copy a database into a file and check the copy");
    command->footer(kSnapshotHelp);
    auto path = std::make_shared<std::string>();
    auto file = std::make_shared<std::string>();
    command->add_option("DATABASE", *path, "Database file")->required();
    command->add_option("FILE", *file, "File to create")->required();
    command->callback([&program, path, file] {
        program.command = [&program, path, file] { return RunSnapshot(program, *path, *file); };
    });
}

}  // namespace mduckdb_host
