#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <memory>
#include <optional>

#include "commands/program.h"
#include "databases/databases.h"
#include "mirona/extension_api.h"
#include "nbx/mrsql/registry.h"
#include "nbx/version.h"
#include "table/module.h"
#include "text/messages.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

constexpr const char* kVersionHelp =
    "Each part reports its own version; NULL means that the module reports none.\n\n"
    "Example:\n  mduckdb-host version --format json\n";
constexpr const char* kProbeHelp =
    "An empty file counts as a database, since DuckDB can open it as one. The exit status is 1 if a\n"
    "file is not a database or cannot be read.\n\n"
    "Example:\n  mduckdb-host probe *.db\n";
constexpr const char* kCreateHelp =
    "An existing file is replaced only with --force, and only if it is a DuckDB database or empty and\n"
    "nobody has it open.\n\n"
    "Example:\n  mduckdb-host create new.db --storage-version v1.2.0 --block-size 16384\n";

/** Each version is that of the running code: the module's comes from its file, the others from their
    functions. */
int RunVersion(Program& program) {
    const std::optional<std::string> module_version = ReadModuleVersion(program.Load());
    const auto extension = nbx::mrsql::GetDuckDBExtension();
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    printer->Begin(
        {{"part", 0, MIRONA_TYPE_TEXT}, {"name", 0, MIRONA_TYPE_TEXT}, {"version", 0, MIRONA_TYPE_TEXT}});
    printer->Add({{"program"}, {"mduckdb-host"}, {MDUCKDB_HOST_VERSION}});
    printer->Add({{"module"}, {program.module_name}, module_version ? Datum{*module_version} : Datum{}});
    printer->Add({{"foundation"}, {"mshared"}, {nbx::get_LibraryVersion()}});
    printer->Add({{"engine"}, {"DuckDB"}, extension ? Datum{extension->get_LibraryVersion()} : Datum{}});
    printer->End();
    return kWorked;
}

int RunProbe(Program& program, const std::vector<std::string>& files) {
    if (files.empty() && program.words_after_dashes.empty()) {
        throw xUsageError("FILE is required. See mduckdb-host probe --help.");
    }
    program.Load();
    const auto extension = GetExtension();
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    printer->Begin({{"file", 0, MIRONA_TYPE_TEXT}, {"is_duckdb_file", 0, MIRONA_TYPE_BOOL}});
    int status = kWorked;
    for (const std::string& file : RestoreWords(files, program)) {
        const bool is_database = extension->IsDuckDBFile(MakeLocation(file));
        printer->Add({{file}, {is_database}});
        status = is_database ? status : kFailed;
    }
    printer->End();
    return status;
}

int RunCreate(Program& program, const std::string& path, uint32_t block_size,
              const std::string& storage_version, bool is_forced) {
    program.Load();
    RequireReplaceable(path, is_forced);
    const DatabasePtr database = MakeDatabase(path);
    database->put_BlockSize(block_size);
    database->put_StorageVersion(FromUtf8(storage_version));
    database->Create();
    program.out.Write(fmt::format("{}\n", ToUtf8(database->get_Path())));
    database->Close();
    return kWorked;
}

}  // namespace

void AddVersionCommand(CLI::App& app, Program& program) {
    CLI::App* const command =
        app.add_subcommand("version", "Print the versions of this program, the module, mshared and DuckDB");
    command->footer(kVersionHelp);
    command->callback([&program] { program.command = [&program] { return RunVersion(program); }; });
}

void AddProbeCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("probe", "Check which files are DuckDB databases");
    command->footer(kProbeHelp);
    auto files = std::make_shared<std::vector<std::string>>();
    command->add_option("FILE", *files, "Files to check");
    command->callback(
        [&program, files] { program.command = [&program, files] { return RunProbe(program, *files); }; });
}

void AddCreateCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("create", "Create a new database file");
    command->footer(kCreateHelp);
    struct Arguments {
        std::string path;
        uint32_t block_size = 0;
        std::string storage_version;
        bool is_forced = false;
    };
    auto arguments = std::make_shared<Arguments>();
    command->add_option("DATABASE", arguments->path, "File to create")->required();
    command->add_option("--block-size", arguments->block_size, "Block size in bytes: 16384 or 262144")
        ->type_name("N");
    command
        ->add_option("--storage-version", arguments->storage_version,
                     "Oldest DuckDB that must be able to read it, e.g. v1.2.0")
        ->type_name("V");
    command->add_flag("--force", arguments->is_forced, "Replace an existing database");
    command->callback([&program, arguments] {
        program.command = [&program, arguments] {
            return RunCreate(program, arguments->path, arguments->block_size, arguments->storage_version,
                             arguments->is_forced);
        };
    });
}

}  // namespace mduckdb_host
