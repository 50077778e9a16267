#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <iostream>
#include <iterator>
#include <memory>
#include <utility>

#include "commands/parameters.h"
#include "commands/program.h"
#include "data/host_values.h"
#include "databases/databases.h"
#include "databases/interruption.h"
#include "databases/results.h"
#include "nbx/exception.h"
#include "shell/statement_splitter.h"
#include "text/messages.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

constexpr const char* kSqlHelp =
    "SQL may contain several statements; - reads them from the standard input. The result of every\n"
    "statement is printed, including the number of changed rows. Parameters are written as $1, $2 or ?\n"
    "and require that SQL is a single statement. A parameter is a JSON value; an object such as\n"
    "{\"duckdb_value\":true,\"value_type\":\"DATE\",\"value\":\"2024-01-31\"} names the DuckDB type.\n"
    "--params-file reads parameters from a file (- is the standard input), one JSON array per line, and\n"
    "runs the statement once for each line. Each run commits by itself; the first that fails ends the\n"
    "command, which names its line.\n\n"
    "Example:\n"
    "  mduckdb-host sql sales.db 'SELECT * FROM orders WHERE id = $1' --param 17 --format json\n";

struct SqlArguments {
    std::string path;
    std::string sql;
    std::string cursor = "server";
    bool is_read_only = false;
    std::vector<std::string> parameters;
    std::string parameters_file;
};

std::string ReadAll(std::istream& in) {
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Statement {
    std::string text;
    /** The line at which it begins, counted from 1. */
    int64_t line;
};

std::vector<Statement> SplitStatements(const std::string& sql) {
    StatementSplitter splitter;
    splitter.Add(sql);
    std::vector<Statement> statements;
    for (std::string statement; splitter.TakeStatement(statement);) {
        statements.push_back({std::exchange(statement, {}), splitter.get_StatementLine()});
    }
    if (std::string rest = splitter.TakeRest(); !rest.empty()) {
        statements.push_back({std::move(rest), splitter.get_StatementLine()});
    }
    return statements;
}

using ResultPtr = nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult>;

ResultPtr RunSql(const DatabasePtr& database, const SqlArguments& arguments, const SqlText& sql,
                 const InterruptWatch& watch, RowProgress& progress) {
    const uint32_t location =
        arguments.cursor == "client" ? nbx::mrsql::kClientCursor : nbx::mrsql::kServerCursor;
    const nbx::String text = ReadSql(sql);
    if (!arguments.parameters_file.empty()) {
        return RunForEachRow(
            database, text, location, ReadParameterFile(arguments.parameters_file),
            [&watch] { return watch.get_IsInterrupted(); }, progress);
    }
    std::vector<Datum> parameters;
    parameters.reserve(arguments.parameters.size());
    for (const std::string& parameter : arguments.parameters) {
        parameters.push_back(ParseParameter(parameter));
    }
    return database->SqlQuery(text, location, ToParameters(parameters));
}

int RunAndPrint(Program& program, const SqlArguments& arguments, const DatabasePtr& database,
                const SqlText& sql, Printer& printer) {
    InterruptWatch watch(database);
    RowProgress progress;
    const auto report = [&](const std::exception& error) {
        watch.EndProgress();
        const int status = ReportException(program, error, sql);
        if (progress.line > 0) {
            PrintError(DescribeProgress(progress));
        }
        return status;
    };
    try {
        ResultPtr result = RunSql(database, arguments, sql, watch, progress);
        progress = RowProgress();
        watch.EndProgress();
        PrintResults(std::move(result), printer, [&watch] { return watch.get_IsInterrupted(); });
    } catch (const nbx::xException& error) {
        return report(error);
    } catch (const xFetchError& error) {
        return report(error);
    }
    return watch.get_IsInterrupted() ? report(nbx::xInterruptError(kInterruptCode)) : kWorked;
}

/** Prints each result before the next statement runs, and stops at the first one that fails. */
int RunScript(Program& program, const SqlArguments& arguments, const DatabasePtr& database,
              const std::vector<Statement>& statements) {
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    for (const Statement& statement : statements) {
        SqlText sql(statement.text, statement.line);
        sql.is_in_script = statements.size() > 1;
        if (const int status = RunAndPrint(program, arguments, database, sql, *printer)) {
            return status;
        }
    }
    return kWorked;
}

int RunSqlCommand(Program& program, const SqlArguments& arguments) {
    if (!arguments.parameters.empty() && !arguments.parameters_file.empty()) {
        throw xUsageError("Use either --param or --params-file, not both.");
    }
    const std::string sql = arguments.sql == "-" ? ReadAll(std::cin) : arguments.sql;
    const std::vector<Statement> statements = SplitStatements(sql);
    if (statements.empty()) {
        throw xUsageError("SQL contains no statement.");
    }
    const bool has_parameters = !arguments.parameters.empty() || !arguments.parameters_file.empty();
    BlockInterrupts();
    program.Load();
    const DatabasePtr database = OpenForCommand(arguments.path, arguments.is_read_only);
    // DuckDB reports that parameters belong to a single statement.
    const int status = RunScript(program, arguments, database,
                                 has_parameters ? std::vector<Statement>{{sql, 1}} : statements);
    database->Close();
    return status;
}

}  // namespace

void AddSqlCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("sql", "Run SQL statements and print their results");
    command->footer(kSqlHelp);
    auto arguments = std::make_shared<SqlArguments>();
    command->add_option("DATABASE", arguments->path, "Database file, or :memory:")->required();
    command->add_option("SQL", arguments->sql, "Statements, or - for the standard input")->required();
    command->add_option("--cursor", arguments->cursor, "Where the rows are kept: server or client")
        ->check(CLI::IsMember({"server", "client"}))
        ->type_name("KIND")
        ->capture_default_str();
    command->add_flag("--read-only", arguments->is_read_only, "Open the file read-only");
    command->add_option("--param", arguments->parameters, "Value of the next parameter; can be repeated")
        ->type_name("JSON")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    command
        ->add_option("--params-file", arguments->parameters_file, "File with one row of parameters per line")
        ->type_name("FILE");
    command->callback([&program, arguments] {
        program.command = [&program, arguments] { return RunSqlCommand(program, *arguments); };
    });
}

}  // namespace mduckdb_host
