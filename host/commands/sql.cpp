#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "commands/program.h"
#include "data/host_values.h"
#include "data/literals.h"
#include "databases/databases.h"
#include "databases/interruption.h"
#include "databases/results.h"
#include "nbx/exception.h"
#include "shell/statement_splitter.h"
#include "text/messages.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

constexpr const char* kHelp =
    "SQL may contain several statements; - reads them from the standard input. The result of every\n"
    "statement is printed, including the number of changed rows. Parameters are written as $1, $2 or ?\n"
    "and require that SQL is a single statement. A parameter is a JSON value; an object such as\n"
    "{\"duckdb_value\":true,\"value_type\":\"DATE\",\"value\":\"2024-01-31\"} names the DuckDB type.\n"
    "--params-file reads parameters from a file (- is the standard input), one JSON array per line, and\n"
    "runs the statement once for each line.\n\n"
    "Example:\n"
    "  mduckdb-host sql sales.db 'SELECT * FROM orders WHERE id = $1' --param 17 --format json\n";

struct Arguments {
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
    auto end = sql.begin();
    int64_t line = 1;
    const auto add = [&](std::string statement) {
        const auto start = std::search(end, sql.end(), statement.begin(), statement.end());
        line += std::count(end, start, '\n');
        end = start + static_cast<std::ptrdiff_t>(statement.size());
        statements.push_back({std::move(statement), line});
        line += std::count(start, end, '\n');
    };
    for (std::string statement; splitter.TakeStatement(statement);) {
        add(std::move(statement));
    }
    if (std::string rest = splitter.TakeRest(); !rest.empty()) {
        add(std::move(rest));
    }
    return statements;
}

Datum ParseParameter(const std::string& text) {
    try {
        return ParseJson(text);
    } catch (const xNestingError& error) {
        throw xUsageError(fmt::format("--param: {}.", error.what()));
    } catch (const std::invalid_argument& error) {
        throw xUsageError(
            fmt::format("{}\nWrite a text with double quotes: --param '\"text\"'", error.what()));
    }
}

nbx::smart_ptr<nbx::ValueRows> ReadParameterRows(std::istream& in) {
    auto rows = nbx::MakeObject<nbx::ValueRows>();
    std::string line;
    for (uint64_t number = 1; std::getline(in, line); ++number) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        Datum datum;
        try {
            datum = ParseJson(line);
        } catch (const xNestingError& error) {
            throw xUsageError(fmt::format("Line {} of the parameters: {}.", number, error.what()));
        } catch (const std::invalid_argument&) {
            datum = Datum{};
        }
        const auto* const list = std::get_if<List>(&datum.content);
        if (list == nullptr) {
            throw xUsageError(fmt::format("Line {} of the parameters is not a JSON array.", number));
        }
        rows->Append(ToParameters(list->items));
    }
    return rows;
}

nbx::smart_ptr<nbx::ValueRows> ReadParameterFile(const std::string& name) {
    if (name == "-") {
        return ReadParameterRows(std::cin);
    }
    std::ifstream file(name);
    if (!file) {
        throw xUsageError(fmt::format("Cannot read the parameter file '{}'.", name));
    }
    return ReadParameterRows(file);
}

using ResultPtr = nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult>;

/** Runs the statement once for each row of parameters; returns the result of the last run. */
ResultPtr RunForEachRow(const DatabasePtr& database, const nbx::String& sql, uint32_t cursor_location,
                        const nbx::smart_ptr<nbx::ValueRows>& rows) {
    const auto statement = database->CreateStatement(sql);
    statement->PrepareNext();
    statement->put_ParameterRows(rows);
    ResultPtr result = statement->ExecuteToQueryResult(cursor_location);
    fmt::print(stderr, "{} run. This is the result of the last one:\n",
               CountOf(rows->get_Count(), "parameter row"));
    return result;
}

ResultPtr RunSql(const DatabasePtr& database, const Arguments& arguments, const std::string& sql) {
    const uint32_t location =
        arguments.cursor == "client" ? nbx::mrsql::kClientCursor : nbx::mrsql::kServerCursor;
    const nbx::String text = FromUtf8(sql);
    if (!arguments.parameters_file.empty()) {
        const auto rows = ReadParameterFile(arguments.parameters_file);
        return RunForEachRow(database, text, location, rows);
    }
    std::vector<Datum> parameters;
    for (const std::string& parameter : arguments.parameters) {
        parameters.push_back(ParseParameter(parameter));
    }
    return database->SqlQuery(text, location, ToParameters(parameters));
}

int RunAndPrint(Program& program, const Arguments& arguments, const DatabasePtr& database,
                const Statement& statement, Printer& printer) {
    const SqlText sql(statement.text, statement.line);
    InterruptWatch watch(database);
    try {
        ResultPtr result = RunSql(database, arguments, statement.text);
        watch.EndProgress();
        PrintResults(std::move(result), printer, [&watch] { return watch.get_IsInterrupted(); });
    } catch (const nbx::xException& error) {
        watch.EndProgress();
        return ReportException(program, error, sql);
    }
    return watch.get_IsInterrupted() ? ReportException(program, nbx::xInterruptError(kInterruptCode), sql)
                                     : kWorked;
}

/** Prints each result before the next statement runs, and stops at the first one that fails. */
int RunScript(Program& program, const Arguments& arguments, const DatabasePtr& database,
              const std::vector<Statement>& statements) {
    const std::unique_ptr<Printer> printer = program.MakePrinter();
    for (const Statement& statement : statements) {
        if (const int status = RunAndPrint(program, arguments, database, statement, *printer)) {
            return status;
        }
    }
    return kWorked;
}

int RunSqlCommand(Program& program, const Arguments& arguments) {
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
    command->footer(kHelp);
    auto arguments = std::make_shared<Arguments>();
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
