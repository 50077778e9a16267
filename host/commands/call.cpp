#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <memory>

#include "commands/program.h"
#include "data/literals.h"
#include "table/procedures.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

constexpr const char* kCallHelp =
    "Procedures: fetch_parquet(uri [, columns [, where [, limit]]]), parquet_schema(uri),\n"
    "parquet_metadata(uri), parquet_count(uri [, where]), fetch_duckdb(uri, table_or_view [, limit]).\n"
    "An argument that is the JSON of null, a number, a string or an array is passed as that value, any\n"
    "other argument as text. All words after -- are arguments, even if they begin with a dash.\n\n"
    "Example:\n"
    "  mduckdb-host call fetch_parquet sales.parquet '[\"id\", \"price\"]' 'price > 10' 20\n";

int RunCall(Program& program, const std::string& procedure, const std::vector<std::string>& words) {
    std::vector<Datum> arguments;
    for (const std::string& word : RestoreWords(words, program)) {
        try {
            arguments.push_back(ParseArgument(word));
        } catch (const xNestingError& error) {
            throw xUsageError(fmt::format("Argument {}: {}.", arguments.size() + 1, error.what()));
        }
    }
    program.Load();
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    PrintProcedure(program.registry, procedure, std::move(arguments), *printer);
    return kWorked;
}

}  // namespace

void AddCallCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("call", "Call a procedure of the module and print its rows");
    command->footer(kCallHelp);
    auto procedure = std::make_shared<std::string>();
    command->add_option("PROCEDURE", *procedure, "Name of the procedure")->required();
    auto words = std::make_shared<std::vector<std::string>>();
    command->add_option("ARGUMENT", *words, "Arguments of the procedure");
    command->callback([&program, procedure, words] {
        program.command = [&program, procedure, words] { return RunCall(program, *procedure, *words); };
    });
}

}  // namespace mduckdb_host
