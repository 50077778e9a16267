#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "backups.h"
#include "mirona/extension_api.h"
#include "results.h"
#include "shell.h"
#include "sql_names.h"
#include "text.h"

namespace mduckdb_host {

namespace {

using Words = std::vector<std::string>;

struct DotCommand {
    const char* name;
    const char* arguments;
    const char* help;
    std::size_t fewest;
    std::size_t most;
    void (*run)(Shell& shell, const Words& words);
};

/** The words of a line; single and double quotes keep blanks in a word. */
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

bool ReadSwitch(const std::string& word) {
    if (word != "on" && word != "off") {
        throw xUsageError(fmt::format("'{}' is neither on nor off.", word));
    }
    return word == "on";
}

void RunSelect(Shell& shell, const std::string& sql) {
    PrintCursor(shell.get_Current().database->SqlSelect(FromUtf8(sql), nbx::mrsql::kServerCursor, nullptr),
                shell.get_Printer());
}

void OpenCommand(Shell& shell, const Words& words) {
    shell.Open(words[0], words.size() > 1 ? words[1] : "");
}

void CloseCommand(Shell& shell, const Words& words) {
    shell.Close(words.empty() ? shell.get_Current().name : words[0]);
}

void UseCommand(Shell& shell, const Words& words) {
    shell.Use(words[0]);
}

void DatabasesCommand(Shell& shell, const Words& /*words*/) {
    Printer& printer = shell.get_Printer();
    printer.Begin({{"current", 0, MIRONA_TYPE_TEXT},
                   {"name", 0, MIRONA_TYPE_TEXT},
                   {"path", 0, MIRONA_TYPE_TEXT},
                   {"access", 0, MIRONA_TYPE_TEXT}});
    for (const OpenedDatabase& opened : shell.get_Databases()) {
        const bool is_current = opened.name == shell.get_Current().name;
        printer.Add({{std::string(is_current ? "*" : "")},
                     {opened.name},
                     {opened.path},
                     {std::string(opened.database->get_IsReadOnly() ? "read" : "read and write")}});
    }
    printer.End();
}

void TablesCommand(Shell& shell, const Words& words) {
    const std::string pattern = words.empty() ? "%" : words[0];
    RunSelect(shell,
              fmt::format("SELECT table_schema AS schema, table_name AS name, lower(table_type) AS type "
                          "FROM information_schema.tables WHERE table_catalog = current_database() "
                          "AND table_name ILIKE {} ORDER BY ALL",
                          QuoteText(pattern)));
}

void SchemaCommand(Shell& shell, const Words& words) {
    const std::string pattern = words.empty() ? "%" : words[0];
    const std::string where = " WHERE NOT internal AND database_name = current_database() AND ";
    const std::string like = " ILIKE " + QuoteText(pattern);
    const std::string sql =
        "SELECT sql FROM (SELECT 1 AS kind, schema_name, table_name, sql FROM duckdb_tables()" + where +
        "table_name" + like + " UNION ALL SELECT 2, schema_name, view_name, sql FROM duckdb_views()" + where +
        "view_name" + like +
        " UNION ALL SELECT 3, schema_name, index_name, sql FROM duckdb_indexes()"
        " WHERE database_name = current_database() AND table_name" +
        like + ") ORDER BY ALL";
    for (const std::string& statement : QueryTexts(shell.get_Current().database, sql)) {
        shell.Print(statement + "\n");
    }
}

void ModeCommand(Shell& shell, const Words& words) {
    const std::optional<Format> format = FindFormat(words[0]);
    if (!format) {
        throw xUsageError(fmt::format("'{}' is none of table, csv, json, jsonl, markdown.", words[0]));
    }
    shell.put_Format(*format);
}

void AllCommand(Shell& shell, const Words& words) {
    shell.put_IsCut(!ReadSwitch(words[0]));
}
void TimerCommand(Shell& shell, const Words& words) {
    shell.put_HasTimer(ReadSwitch(words[0]));
}

void CursorCommand(Shell& shell, const Words& words) {
    if (words[0] != "server" && words[0] != "client") {
        throw xUsageError(fmt::format("'{}' is neither server nor client.", words[0]));
    }
    shell.put_CursorLocation(words[0] == "client" ? nbx::mrsql::kClientCursor : nbx::mrsql::kServerCursor);
}

BackupReport MakeReport(Shell& shell) {
    return {shell.get_Program().out, shell.get_Printer(), true};
}

void BackupCommand(Shell& shell, const Words& words) {
    BackUp(shell.get_Program().registry, shell.get_Current().database, words.empty() ? "" : words[0],
           MakeReport(shell));
}

void RestoreCommand(Shell& shell, const Words& words) {
    if (!Restore(shell.get_Program().registry, words[0], words[1], MakeReport(shell))) {
        throw std::runtime_error("The database is not what was backed up: see the tables that differ.");
    }
}

void ProceduresCommand(Shell& shell, const Words& /*words*/) {
    for (const Procedure& procedure : shell.get_Program().registry.get_Procedures()) {
        shell.Print(
            fmt::format("CALL {}({})\n    {}\n", procedure.name, procedure.signature, procedure.description));
    }
}

void ReadCommand(Shell& shell, const Words& words) {
    shell.RunFile(words[0]);
}
void QuitCommand(Shell& shell, const Words& /*words*/) {
    shell.Quit();
}
void HelpCommand(Shell& shell, const Words& words);

constexpr DotCommand kCommands[] = {
    {".all", "on|off", "print all of a result that is larger than the screen", 1, 1, AllCommand},
    {".backup", "[FOLDER]", "back the current database up", 0, 1, BackupCommand},
    {".close", "[NAME]", "close a database, the current one by default", 0, 1, CloseCommand},
    {".cursor", "server|client", "who keeps the rows of a result", 1, 1, CursorCommand},
    {".databases", "", "list the open databases", 0, 0, DatabasesCommand},
    {".exit", "", "leave the shell", 0, 0, QuitCommand},
    {".help", "[COMMAND]", "tell about the dot commands", 0, 1, HelpCommand},
    {".mode", "NAME", "print rows as table, csv, json, jsonl or markdown", 1, 1, ModeCommand},
    {".open", "FILE [NAME]", "open a database and make it the current one", 1, 2, OpenCommand},
    {".procedures", "", "list the procedures that CALL knows", 0, 0, ProceduresCommand},
    {".quit", "", "leave the shell", 0, 0, QuitCommand},
    {".read", "FILE", "run the lines of a file", 1, 1, ReadCommand},
    {".restore", "DATABASE FOLDER", "make a database file anew from a backup", 2, 2, RestoreCommand},
    {".schema", "[PATTERN]", "print the statements that make tables, views and indexes", 0, 1, SchemaCommand},
    {".tables", "[PATTERN]", "list tables and views, as in .tables 'ord%'", 0, 1, TablesCommand},
    {".timer", "on|off", "print the time that each statement takes", 1, 1, TimerCommand},
    {".use", "NAME", "make an open database the current one", 1, 1, UseCommand},
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
                throw xUsageError(fmt::format("'{}' may be {} or {}.", word, found->name, command.name));
            }
            found = &command;
        }
    }
    if (found == nullptr) {
        throw xUsageError(fmt::format("There is no command '{}'; .help lists them.", word));
    }
    return *found;
}

void PrintHelp(Shell& shell, const DotCommand& command) {
    shell.Print(
        fmt::format("{:<30}{}\n", fmt::format("{} {}", command.name, command.arguments), command.help));
}

void HelpCommand(Shell& shell, const Words& words) {
    if (!words.empty()) {
        PrintHelp(shell, FindCommand(words[0]));
        return;
    }
    for (const DotCommand& command : kCommands) {
        PrintHelp(shell, command);
    }
    shell.Print(
        "\nEverything else is SQL and ends with a semicolon. CALL of a procedure that .procedures lists "
        "takes\n"
        "literals: CALL fetch_parquet('sales.parquet', ['id', 'price'], 'price > 10', 20);\n"
        "Ctrl-C interrupts a statement, Ctrl-D leaves the shell.\n");
}

}  // namespace

void RunDotCommand(Shell& shell, const std::string& line) {
    Words words = SplitWords(line);
    const DotCommand& command = FindCommand(words.empty() ? "." : words[0]);
    words.erase(words.begin());
    if (words.size() < command.fewest || words.size() > command.most) {
        throw xUsageError(fmt::format("Usage: {} {}", command.name, command.arguments));
    }
    command.run(shell, words);
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
