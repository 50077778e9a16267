#include "shell/dot_commands.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

#include "databases/backups.h"
#include "databases/census.h"
#include "databases/dump.h"
#include "databases/interruption.h"
#include "databases/results.h"
#include "mirona/extension_api.h"
#include "nbx/sql_text.h"
#include "shell/import.h"
#include "shell/print_commands.h"
#include "text/messages.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

using Words = std::vector<std::string>;

struct DotCommand {
    const char* name;
    const char* arguments;
    const char* help;
    std::size_t fewest;
    std::size_t most;
    void (*run)(Session& session, const Words& words);
};

/** Splits a line into words; a word in single or double quotes may contain blanks. */
Words SplitWords(const std::string& line) {
    Words words;
    bool is_in_word = false;
    char quote = '\0';
    for (const char c : line) {
        if (quote != '\0' ? c == quote : c == '\'' || c == '"') {
            quote = quote != '\0' ? '\0' : c;
            if (!is_in_word) {
                words.emplace_back();
                is_in_word = true;
            }
        } else if (quote == '\0' && (c == ' ' || c == '\t' || c == '\n' || c == ';')) {
            is_in_word = false;
        } else {
            if (!is_in_word) {
                words.emplace_back();
                is_in_word = true;
            }
            words.back() += c;
        }
    }
    return words;
}

void RunSelect(Session& session, const std::string& sql) {
    PrintCursor(session.get_Current().database->SqlSelect(ReadSql(sql), nbx::mrsql::kServerCursor, nullptr),
                session.get_Printer());
}

void OpenCommand(Session& session, const Words& words) {
    if (words.empty()) {
        PrintCensus(session.get_Printer());
        return;
    }
    session.Open(words[0], words.size() > 1 ? words[1] : "");
}

void CloseCommand(Session& session, const Words& words) {
    session.Close(words.empty() ? session.get_Current().name : words[0]);
}

void UseCommand(Session& session, const Words& words) {
    session.Use(words[0]);
}

void DatabasesCommand(Session& session, const Words& /*words*/) {
    Printer& printer = session.get_Printer();
    printer.Begin({{"current", 0, MIRONA_TYPE_TEXT},
                   {"name", 0, MIRONA_TYPE_TEXT},
                   {"path", 0, MIRONA_TYPE_TEXT},
                   {"access", 0, MIRONA_TYPE_TEXT}});
    for (const OpenedDatabase& opened : session.get_Databases()) {
        const bool is_current = opened.name == session.get_Current().name;
        printer.Add({{std::string(is_current ? "*" : "")},
                     {opened.name},
                     {opened.path},
                     {std::string(opened.database->get_IsReadOnly() ? "read" : "read and write")}});
    }
    printer.End();
}

void TablesCommand(Session& session, const Words& words) {
    const std::string pattern = words.empty() ? "%" : words[0];
    RunSelect(session,
              fmt::format("SELECT table_schema AS schema, table_name AS name, lower(table_type) AS type "
                          "FROM information_schema.tables WHERE table_catalog = current_database() "
                          "AND table_name ILIKE {} ORDER BY ALL",
                          nbx::QuoteLiteral(pattern)));
}

void SchemaCommand(Session& session, const Words& words) {
    const std::string pattern = words.empty() ? "%" : words[0];
    const std::string where = " WHERE NOT internal AND database_name = current_database() AND ";
    const std::string like = " ILIKE " + nbx::QuoteLiteral(pattern);
    const std::string sql =
        "SELECT sql FROM (SELECT 1 AS kind, schema_name, table_name, sql FROM duckdb_tables()" + where +
        "table_name" + like + " UNION ALL SELECT 2, schema_name, view_name, sql FROM duckdb_views()" + where +
        "view_name" + like +
        " UNION ALL SELECT 3, schema_name, index_name, sql FROM duckdb_indexes()"
        " WHERE database_name = current_database() AND table_name" +
        like + ") ORDER BY ALL";
    for (const std::string& statement : QueryTexts(session.get_Current().database, sql)) {
        session.Print(statement + "\n");
    }
}

void DumpCommand(Session& session, const Words& /*words*/) {
    const DatabasePtr database = session.get_Current().database;
    InterruptWatch watch(database);
    WriteDump(database, [&](std::string_view text) {
        watch.EndProgress();
        session.Print(text);
    });
}

void LinesCommand(Session& session, const Words& /*words*/) {
    session.ToggleLines();
}

/** Whether the table exists in the schema that it names or, without one, in the current schema. */
bool HasTable(const DatabasePtr& database, const std::string& name) {
    const std::size_t dot = name.rfind('.');
    const std::string schema =
        dot == std::string::npos ? "current_schema()" : nbx::QuoteLiteral(name.substr(0, dot));
    const std::string table = nbx::QuoteLiteral(dot == std::string::npos ? name : name.substr(dot + 1));
    return !QueryTexts(
                database,
                fmt::format("SELECT 1 FROM duckdb_tables() WHERE database_name = current_database() AND "
                            "lower(schema_name) = lower({}) AND lower(table_name) = lower({})",
                            schema, table))
                .empty();
}

void ImportCommand(Session& session, const Words& words) {
    const DatabasePtr database = session.get_Current().database;
    const std::string count = "SELECT count(*) FROM " + QuoteTableName(words[1]);
    const bool exists = HasTable(database, words[1]);
    const InterruptWatch watch(database);
    int64_t rows = database->SqlExecute(ReadSql(MakeImportStatement(words[0], words[1], exists)), nullptr);
    if (!exists) {
        rows = std::stoll(QueryTexts(database, count).at(0));
    }
    session.Print(fmt::format("{} imported\n", CountOf(static_cast<uint64_t>(rows), "row")));
}

void TimerCommand(Session& session, const Words& words) {
    session.put_HasTimer(ReadSwitch(words[0]));
}

void BailCommand(Session& session, const Words& words) {
    session.put_Bails(ReadSwitch(words[0]));
}

void CursorCommand(Session& session, const Words& words) {
    if (words[0] != "server" && words[0] != "client") {
        throw xUsageError(fmt::format("Unknown cursor '{}'. Use server or client.", words[0]));
    }
    session.put_CursorLocation(words[0] == "client" ? nbx::mrsql::kClientCursor : nbx::mrsql::kServerCursor);
}

/** -1 for text that is not a number. */
double ReadNumber(const std::string& word) {
    double number = -1;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    const bool is_number = error == std::errc() && end == word.data() + word.size() && number < 1e9;
    return is_number ? number : -1;
}

BackupReport MakeReport(Session& session) {
    return {session.get_Output(), session.get_Printer(), true};
}

void BackupCommand(Session& session, const Words& words) {
    BackUp(session.get_Registry(), session.get_Current().database, words.empty() ? "" : words[0],
           MakeReport(session));
}

void RestoreCommand(Session& session, const Words& words) {
    if (MakeDatabase(words[0])->get_Exists()) {
        throw std::runtime_error(
            fmt::format("'{}' exists. Use mduckdb-host restore --force to replace it.", words[0]));
    }
    if (!Restore(session.get_Registry(), words[0], words[1], MakeReport(session))) {
        throw std::runtime_error("The database differs from the backup. See the tables marked DIFFERS.");
    }
}

void ProceduresCommand(Session& session, const Words& /*words*/) {
    for (const Procedure& procedure : session.get_Registry().get_Procedures()) {
        session.Print(
            fmt::format("CALL {}({})\n    {}\n", procedure.name, procedure.signature, procedure.description));
    }
}

void ReadCommand(Session& session, const Words& words) {
    session.get_Runner().RunFile(words[0]);
}
void EditCommand(Session& session, const Words& /*words*/) {
    session.get_Runner().Edit();
}

void WatchCommand(Session& session, const Words& words) {
    constexpr double kDefault = 2;
    constexpr double kLongest = 86400;
    const double seconds = words.empty() ? kDefault : ReadNumber(words[0]);
    const double count = words.size() < 2 ? 0 : ReadNumber(words[1]);
    if (seconds < 0.1 || seconds > kLongest ||
        (words.size() > 1 && (count < 1 || count != std::floor(count)))) {
        throw xUsageError(
            "Usage: .watch [SECONDS [TIMES]], with 0.1 to 86400 seconds and a whole number of times.");
    }
    session.get_Runner().Repeat(seconds, static_cast<uint64_t>(count));
}
void QuitCommand(Session& session, const Words& /*words*/) {
    session.Quit();
}
void HelpCommand(Session& session, const Words& words);

constexpr DotCommand kCommands[] = {
    {".all", "on|off", "show all rows and columns, even if they do not fit", 1, 1, AllCommand},
    {".backup", "[FOLDER]", "back up the current database", 0, 1, BackupCommand},
    {".bail", "on|off", "end a script at its first error", 1, 1, BailCommand},
    {".close", "[NAME]", "close a database (default: the current one)", 0, 1, CloseCommand},
    {".cursor", "server|client", "choose where the rows of a result are kept", 1, 1, CursorCommand},
    {".databases", "", "list the open databases", 0, 0, DatabasesCommand},
    {".dump", "", "write the database as SQL that creates it again", 0, 0, DumpCommand},
    {".edit", "", "change the last statement in $EDITOR and run it", 0, 0, EditCommand},
    {".exit", "", "leave the shell", 0, 0, QuitCommand},
    {".headers", "on|off", "begin table and csv with the names of the columns", 1, 1, HeadersCommand},
    {".help", "[COMMAND]", "describe the dot commands", 0, 1, HelpCommand},
    {".import", "FILE TABLE", "append a CSV, JSON or Parquet file to a table", 2, 2, ImportCommand},
    {".lines", "", "show one field per line, or the format before; also \\x", 0, 0, LinesCommand},
    {".mode", "NAME", "format: table, csv, json, jsonl, markdown or line", 1, 1, ModeCommand},
    {".nullvalue", "[TEXT]", "show NULL as the text in table, line and csv", 0, 1, NullValueCommand},
    {".once", "FILE", "write the result of the next statement into a file", 1, 1, OnceCommand},
    {".open", "[FILE [NAME]]", "open a database; alone, list what is open", 0, 2, OpenCommand},
    {".output", "[FILE]", "write results into a file; alone, to the terminal", 0, 1, OutputCommand},
    {".pager", "on|off", "read what is longer than the screen in a pager", 1, 1, PagerCommand},
    {".procedures", "", "list the procedures for CALL", 0, 0, ProceduresCommand},
    {".quit", "", "leave the shell", 0, 0, QuitCommand},
    {".read", "FILE", "run the statements in a file", 1, 1, ReadCommand},
    {".restore", "DATABASE FOLDER", "create a database file from a backup", 2, 2, RestoreCommand},
    {".schema", "[PATTERN]", "show how tables, views and indexes were created", 0, 1, SchemaCommand},
    {".separator", "TEXT", "set what separates the fields of csv; \\t is a tab", 1, 1, SeparatorCommand},
    {".tables", "[PATTERN]", "list tables and views, e.g. .tables 'ord%'", 0, 1, TablesCommand},
    {".timer", "on|off", "show how long each statement takes", 1, 1, TimerCommand},
    {".types", "on|off", "show the types of the columns under their names", 1, 1, TypesCommand},
    {".use", "NAME", "switch to another open database", 1, 1, UseCommand},
    {".watch", "[SECONDS [TIMES]]", "repeat the last statement until Ctrl-C", 0, 2, WatchCommand},
};

const DotCommand& FindCommand(std::string word) {
    if (!word.starts_with('.')) {
        word.insert(word.begin(), '.');
    }
    const DotCommand* found = nullptr;
    for (const DotCommand& command : kCommands) {
        if (command.name == word) {
            return command;
        }
        if (std::string_view(command.name).starts_with(word)) {
            if (found != nullptr) {
                throw xUsageError(
                    fmt::format("Ambiguous command '{}': {} or {}.", word, found->name, command.name));
            }
            found = &command;
        }
    }
    if (found == nullptr) {
        throw xUsageError(fmt::format("Unknown command '{}'. .help lists the commands.", word));
    }
    return *found;
}

const DotCommand* FindCommandOrNull(const std::string& word) {
    try {
        return &FindCommand(word);
    } catch (const xUsageError&) {
        return nullptr;
    }
}

std::vector<std::string> ListDatabases(const Session& session) {
    std::vector<std::string> names;
    for (const OpenedDatabase& opened : session.get_Databases()) {
        names.push_back(opened.name);
    }
    return names;
}

void PrintHelp(Session& session, const DotCommand& command) {
    session.Print(
        fmt::format("{:<26}{}\n", fmt::format("{} {}", command.name, command.arguments), command.help));
}

void HelpCommand(Session& session, const Words& words) {
    if (!words.empty()) {
        PrintHelp(session, FindCommand(words[0]));
        return;
    }
    for (const DotCommand& command : kCommands) {
        PrintHelp(session, command);
    }
    session.Print(
        "\nEverything else is SQL and ends with a semicolon. CALL runs a procedure with\n"
        "literal arguments:\n"
        "  CALL fetch_parquet('sales.parquet', ['id', 'price'], 'price > 10', 20);\n"
        "Ctrl-C interrupts a statement, Ctrl-D leaves the shell.\n");
}

}  // namespace

void RunDotCommand(Session& session, const std::string& line) {
    Words words = SplitWords(line);
    const DotCommand& command = FindCommand(words.empty() ? "." : words[0]);
    words.erase(words.begin());
    if (words.size() < command.fewest || words.size() > command.most) {
        throw xUsageError(fmt::format("Usage: {} {}", command.name, command.arguments));
    }
    command.run(session, words);
}

std::vector<std::string> CompleteDotArgument(const Session& session, const std::string& line) {
    const Words words = SplitWords(line);
    const DotCommand* const command = words.empty() ? nullptr : FindCommandOrNull(words[0]);
    // Only the first argument is a name of something that the shell knows.
    if (command == nullptr || words.size() > 1) {
        return {};
    }
    const std::string_view arguments = command->arguments;
    if (command->run == ModeCommand) {
        return ListFormats();
    }
    if (command->run == UseCommand || command->run == CloseCommand) {
        return ListDatabases(session);
    }
    if (command->run == HelpCommand) {
        return CompleteDotCommand(".");
    }
    const std::size_t bar = arguments.find('|');
    if (bar == std::string_view::npos) {
        return {};
    }
    return {std::string(arguments.substr(0, bar)), std::string(arguments.substr(bar + 1))};
}

std::string DescribeDotArguments(const std::string& line) {
    const std::string name = line.substr(0, line.find(' '));
    const DotCommand* const command = name.size() < 2 ? nullptr : FindCommandOrNull(name);
    const std::string_view blanks = std::string_view(line).substr(name.size());
    if (command == nullptr || blanks.size() > 1 || (!blanks.empty() && command->name != name)) {
        return {};
    }
    const std::string usage = fmt::format("{} {}", command->name, command->arguments);
    return usage.substr(line.size());
}

std::vector<std::string> CompleteDotCommand(const std::string& word) {
    std::vector<std::string> names;
    for (const DotCommand& command : kCommands) {
        if (std::string_view(command.name).starts_with(word)) {
            names.emplace_back(command.name);
        }
    }
    return names;
}

}  // namespace mduckdb_host
