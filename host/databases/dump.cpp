#include "databases/dump.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "databases/results.h"
#include "nbx/exception.h"
#include "nbx/mrsql/duckdb_written_statements.h"
#include "nbx/sql_text.h"
#include "text/messages.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

/** What is written is of one moment: in the user's transaction, or in one of its own. */
class ReadTransaction {
  public:
    explicit ReadTransaction(const DatabasePtr& database) : database_(database) {
        auto* const state = static_cast<nbx::mrsql::I_DuckDBTransactionState*>(
            database->QueryInterface(nbx::mrsql::kDuckDBTransactionStateInterfaceId));
        is_own_ = state == nullptr || !state->get_IsInTransaction();
        if (is_own_) {
            database_->SqlExecute(FromUtf8("BEGIN"), nullptr);
        }
    }
    ~ReadTransaction() {
        try {
            if (is_own_) {
                database_->SqlExecute(FromUtf8("ROLLBACK"), nullptr);
            }
        } catch (const std::exception&) {  // A failed script was rolled back with it.
        }
    }
    ReadTransaction(const ReadTransaction&) = delete;
    ReadTransaction& operator=(const ReadTransaction&) = delete;

  private:
    const DatabasePtr database_;
    bool is_own_;
};

/** Rows of one INSERT. */
constexpr int kRowsAtOnce = 500;

/** A new folder that is removed at the end. */
class TemporaryFolder {
  public:
    TemporaryFolder() : path_((std::filesystem::temp_directory_path() / "mduckdb-dump-XXXXXX").string()) {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "Cannot create " + path_);
        }
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::string& get_Path() const noexcept { return path_; }

  private:
    std::string path_;
};

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Column {
    std::string name;  // quoted
    std::string type;
};

struct Table {
    /** As DuckDB writes it in SQL: without its schema if that is `main`. */
    std::string name;
    /** The same table, whatever the current schema and the temporary tables. */
    std::string full_name;
    std::vector<Column> columns;
};

/** The columns that a row is inserted into: a generated column is not in the file that DuckDB wrote. */
std::vector<Column> ReadColumns(const DatabasePtr& database, const std::string& table,
                                const std::string& file) {
    std::vector<Column> columns;
    for (const std::string& name : QueryTexts(
             database, fmt::format("SELECT column_name FROM (DESCRIBE FROM read_csv('{}', header = true, "
                                   "all_varchar = true, delim = ',', quote = '\"'))",
                                   file))) {
        const std::vector<std::string> types =
            QueryTexts(database, fmt::format("SELECT column_type FROM (DESCRIBE {}) WHERE column_name = {}",
                                             table, nbx::QuoteLiteral(name)));
        columns.push_back({nbx::QuoteIdentifier(name), types.at(0)});
    }
    return columns;
}

/** Whether a table's name in SQL begins with a schema. */
bool HasSchema(std::string_view name) {
    bool is_quoted = false;
    return std::any_of(name.begin(), name.end(), [&is_quoted](char c) {
        is_quoted = is_quoted != (c == '"');
        return c == '.' && !is_quoted;
    });
}

/** The tables in an order in which they can be filled, from the statements `COPY table FROM 'file' (...);` of
   the export. */
std::vector<Table> ReadTables(const DatabasePtr& database, const std::string& catalog,
                              const std::string& folder) {
    static constexpr std::string_view kCopy = "COPY ";
    const std::string script = ReadFile(folder + "/load.sql");
    const std::string marker = " FROM '" + folder + "/";
    std::vector<Table> tables;
    for (std::size_t begin = script.find(kCopy); begin != std::string::npos;
         begin = script.find(kCopy, begin)) {
        begin += kCopy.size();
        const std::size_t end = script.find(marker, begin);
        const std::size_t file = end + std::string_view(" FROM '").size();
        const std::size_t file_end = script.find('\'', file);
        const std::string name = script.substr(begin, end - begin);
        const std::string full_name = fmt::format("{}.{}{}", catalog, HasSchema(name) ? "" : "main.", name);
        tables.push_back(
            {name, full_name, ReadColumns(database, full_name, script.substr(file, file_end - file))});
        begin = script.find(");\n", file_end);
    }
    return tables;
}

bool IsNumber(const std::string& type) {
    static constexpr std::array kNumbers = {"TINYINT", "SMALLINT", "INTEGER",   "BIGINT",
                                            "HUGEINT", "UTINYINT", "USMALLINT", "UINTEGER",
                                            "UBIGINT", "UHUGEINT", "BOOLEAN"};
    return type.starts_with("DECIMAL(") ||
           std::find(kNumbers.begin(), kNumbers.end(), type) != kNumbers.end();
}

/** SQL that makes the literal of a column's value. */
std::string MakeLiteral(const Column& column) {
    const std::string text = fmt::format("CAST({} AS VARCHAR)", column.name);
    if (IsNumber(column.type)) {
        return fmt::format("coalesce({}, 'NULL')", text);
    }
    // A NUL would end the statement for DuckDB's C API.
    return fmt::format(
        "coalesce('''' || replace(replace({}, '''', ''''''), chr(0), ''' || chr(0) || ''') || '''', "
        "'NULL')",
        text);
}

/** Whether casting the column's texts back yields its values. */
bool SurvivesAsText(const DatabasePtr& database, const Table& table, const Column& column) {
    // An error in it would end the user's transaction.
    const std::string different = fmt::format(
        "SELECT count(*) FROM {1} WHERE "
        "coalesce(TRY({0} IS DISTINCT FROM cast_to_type(CAST({0} AS VARCHAR), {0})), true)",
        column.name, table.full_name);
    return QueryTexts(database, different).at(0) == "0";
}

void RequireText(const DatabasePtr& database, const Table& table) {
    for (const Column& column : table.columns) {
        if (!IsNumber(column.type) && !SurvivesAsText(database, table, column)) {
            throw std::runtime_error(
                fmt::format("Values of {}.{}, type {}, cannot be written as text. Use .backup.", table.name,
                            column.name, column.type));
        }
    }
}

/** DuckDB's statements for the schema. It writes some of them, such as an ENUM with a quote in it, so that it
   cannot read them. */
std::string ReadSchema(const std::string& folder) {
    std::string schema = ReadFile(folder + "/schema.sql");
    try {
        if (schema.find_first_not_of(" \n") != std::string::npos) {
            const DatabasePtr check = MakeDatabase(folder + "/check.db");
            check->put_StorageVersion(FromUtf8("latest"));
            check->Create();
            check->SqlExecute(FromUtf8(schema), nullptr);
        }
    } catch (const nbx::xInterruptError&) {
        throw;
    } catch (const nbx::xException& error) {
        throw std::runtime_error("DuckDB cannot read its own schema of this database. Use .backup.\n" +
                                 DescribeException(error, {}));
    }
    return schema;
}

void WriteRows(const DatabasePtr& database, const Table& table,
               const std::function<void(std::string_view text)>& write) {
    std::string names;
    std::string literals;
    for (const Column& column : table.columns) {
        names += (names.empty() ? "" : ", ") + column.name;
        literals += (literals.empty() ? "" : " || ', ' || ") + MakeLiteral(column);
    }
    const auto cursor =
        database->SqlSelect(FromUtf8(fmt::format("SELECT {} FROM {}", literals, table.full_name)),
                            nbx::mrsql::kServerCursor, nullptr);
    int row = 0;
    for (; cursor->NextRecord(); ++row) {
        if (row % kRowsAtOnce == 0) {
            write(fmt::format("{}INSERT INTO {} ({}) VALUES\n", row == 0 ? "" : ";\n", table.name, names));
        } else {
            write(",\n");
        }
        write("(" + ToUtf8(cursor->get_Value(0)->get_Text()) + ")");
    }
    RequireAllRows(*cursor);
    write(row == 0 ? "" : ";\n");
}

}  // namespace

void WriteDump(const DatabasePtr& database, const std::function<void(std::string_view text)>& write) {
    const ReadTransaction transaction(database);
    const TemporaryFolder folder;
    const std::string catalog = nbx::QuoteIdentifier(QueryTexts(database, "SELECT current_database()").at(0));
    database->SqlExecute(FromUtf8(fmt::format("EXPORT DATABASE {} TO {} (FORMAT csv)", catalog,
                                              nbx::QuoteLiteral(folder.get_Path()))),
                         nullptr);
    const std::string schema = ReadSchema(folder.get_Path());
    const std::vector<Table> tables = ReadTables(database, catalog, folder.get_Path());
    for (const Table& table : tables) {
        RequireText(database, table);
    }
    write("BEGIN TRANSACTION;\n");
    write(schema);
    for (const Table& table : tables) {
        WriteRows(database, table, write);
    }
    write("COMMIT;\n");
}

}  // namespace mduckdb_host
