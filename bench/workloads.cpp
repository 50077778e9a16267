#include "workloads.h"

#include <filesystem>
#include <map>

#include "bare_duckdb.h"

namespace bench {
namespace {

struct ColumnSource {
    const char* name;
    const char* type;
    /** Its cells, for `i` from 0. */
    const char* expression;
};

struct TableSource {
    const char* table;
    uint64_t rows;
    std::vector<ColumnSource> columns;
    /** The oldest storage that holds the columns; empty for DuckDB's default. */
    const char* storage_version = "";
};

const TableSource kMixed{"mixed",
                         2'000'000,
                         {{"a", "INTEGER", "i::INTEGER"},
                          {"b", "DOUBLE", "i * 1.5::DOUBLE"},
                          {"c", "BIGINT", "i::BIGINT"},
                          {"d", "VARCHAR", "'str' || i"},
                          {"e", "SMALLINT", "(i % 100)::SMALLINT"}}};

/** W1 without its text. */
const TableSource kNumbers{"numbers",
                           0,
                           {{"a", "INTEGER", "i::INTEGER"},
                            {"b", "DOUBLE", "i * 1.5::DOUBLE"},
                            {"c", "BIGINT", "i::BIGINT"},
                            {"d", "SMALLINT", "(i % 100)::SMALLINT"},
                            {"e", "BIGINT", "(i * 7)::BIGINT"}}};

const TableSource kOrders{
    "orders",
    600'000,
    {{"o_key", "BIGINT", "(i // 4 + 1)::BIGINT"},
     {"o_part", "BIGINT", "(hash(i, 1) % 20000 + 1)::BIGINT"},
     {"o_supplier", "BIGINT", "(hash(i, 2) % 1000 + 1)::BIGINT"},
     {"o_line", "INTEGER", "(i % 4 + 1)::INTEGER"},
     {"o_quantity", "DECIMAL(15,2)", "(hash(i, 3) % 50 + 1)::DECIMAL(15,2)"},
     {"o_price", "DECIMAL(15,2)", "((hash(i, 4) % 10000000 + 90000) / 100)::DECIMAL(15,2)"},
     {"o_discount", "DECIMAL(15,2)", "((hash(i, 5) % 11) / 100)::DECIMAL(15,2)"},
     {"o_tax", "DECIMAL(15,2)", "((hash(i, 6) % 9) / 100)::DECIMAL(15,2)"},
     {"o_flag", "VARCHAR", "substr('ANR', (hash(i, 7) % 3 + 1)::INTEGER, 1)"},
     {"o_status", "VARCHAR", "substr('FO', (hash(i, 8) % 2 + 1)::INTEGER, 1)"},
     {"o_shipped", "DATE", "DATE '1992-01-02' + (hash(i, 9) % 2500)::INTEGER"},
     {"o_promised", "DATE", "DATE '1992-01-31' + (hash(i, 10) % 2500)::INTEGER"},
     {"o_received", "DATE", "DATE '1992-02-04' + (hash(i, 11) % 2500)::INTEGER"},
     {"o_how", "VARCHAR",
      "(['DELIVER IN PERSON', 'COLLECT COD', 'NONE', 'TAKE BACK RETURN'])[(hash(i, 12) % 4 + 1)::INTEGER]"},
     {"o_mode", "VARCHAR",
      "(['REG AIR', 'AIR', 'RAIL', 'SHIP', 'TRUCK', 'MAIL', 'FOB'])[(hash(i, 13) % 7 + 1)::INTEGER]"},
     {"o_comment", "VARCHAR",
      "substr('order ' || i || ' was packed with care and left the house in time', 1, "
      "(10 + hash(i, 14) % 34)::INTEGER)"}}};

const TableSource kTexts{
    "texts",
    2'000'000,
    {{"short_text", "VARCHAR", "'k' || lpad(i::VARCHAR, 7, '0')"},
     {"long_text", "VARCHAR", "'row ' || lpad(i::VARCHAR, 10, '0') || ' of a text of forty bytes.'"},
     {"wide_text", "VARCHAR",
      "'Привет, ' || translate(lpad(i::VARCHAR, 9, '0'), '0123456789', 'абвгдежзик') || '日本語'"}}};

/** Few rows, because DuckDB itself needs microseconds for the text of a nested cell. */
const TableSource kNested{"nested",
                          20'000,
                          {{"numbers", "BIGINT[]", "[i, i + 1, i + 2]"},
                           {"record", "STRUCT(a BIGINT, b VARCHAR)", "{'a': i, 'b': 'text ' || i}"},
                           {"v", "VARIANT",
                            "CASE i % 4 WHEN 0 THEN (i * 3)::VARIANT WHEN 1 THEN ('text ' || i)::VARIANT "
                            "WHEN 2 THEN [i, i + 1]::VARIANT ELSE (i * 0.5::DOUBLE)::VARIANT END"}},
                          "v1.5.0"};

const std::map<std::string, const TableSource*>& GetSources() {
    static const std::map<std::string, const TableSource*> sources{{"W1", &kMixed},  {"numbers", &kNumbers},
                                                                   {"W2", &kOrders}, {"W2-parquet", &kOrders},
                                                                   {"W3", &kTexts},  {"W4", &kNested}};
    return sources;
}

std::string GetQuery(const TableSource& source, uint64_t rows) {
    std::string items;
    for (const ColumnSource& column : source.columns) {
        items += (items.empty() ? "" : ", ") + std::string(column.expression) + " AS " + column.name;
    }
    return "SELECT " + items + " FROM range(" + std::to_string(rows) + ") t(i)";
}

std::string GetStem(const std::string& name, const Options& options) {
    return options.folder + "/" + name + "-" + std::to_string(options.scale);
}

/** Calls `write(path)` with another name first, so that an existing file is complete. */
template <class Write>
void MakeFile(const std::string& path, Write write) {
    if (!std::filesystem::exists(path)) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::filesystem::remove(path + ".new");
        write(path + ".new");
        std::filesystem::rename(path + ".new", path);
    }
}

void MakeFiles(const TableSource& source, const std::string& database, const std::string& parquet,
               const Options& options) {
    const std::string query = GetQuery(source, Scaled(source.rows, options));
    const std::string create = "CREATE TABLE " + std::string(source.table) + " AS " + query;
    MakeFile(parquet, [&](const std::string& path) {
        BareDuckDB("").Run("COPY (" + query + ") TO '" + path + "' (FORMAT PARQUET)");
    });
    MakeFile(database, [&](const std::string& path) {
        BareDuckDB(path, BareDuckDB::Access::writing, 1, source.storage_version).Run(create);
    });
}

std::string ChooseQuery(const Workload& workload, const TableSource& source, const Options& options) {
    if (workload.name == "W1") {
        return GetQuery(source, Scaled(source.rows, options));
    }
    if (workload.name == "W2-parquet") {
        return "SELECT * FROM read_parquet('" + workload.parquet + "')";
    }
    return "SELECT * FROM " + workload.table;
}

}  // namespace

Workload GetWorkload(const std::string& name, const Options& options) {
    const auto found = GetSources().find(name);
    if (found == GetSources().end()) {
        Die("no workload " + name);
    }
    const TableSource& source = *found->second;
    Workload workload;
    workload.name = name;
    workload.table = source.table;
    workload.database = GetStem(workload.table, options) + ".duckdb";
    workload.parquet = GetStem(workload.table, options) + ".parquet";
    for (const ColumnSource& column : source.columns) {
        workload.columns.push_back({column.name, column.type});
    }
    workload.sql = ChooseQuery(workload, source, options);
    MakeFiles(source, workload.database, workload.parquet, options);
    workload.bare_database = GetStem(workload.table, options) + "-bare.duckdb";
    MakeFile(workload.bare_database,
             [&](const std::string& path) { std::filesystem::copy_file(workload.database, path); });
    return workload;
}

std::string GetMixedQuery(uint64_t rows) {
    return GetQuery(kMixed, rows);
}

std::string GetNumberQuery(uint64_t rows) {
    return GetQuery(kNumbers, rows);
}

std::string GetColumnList(const Workload& workload) {
    std::string list;
    for (const Column& column : workload.columns) {
        list += (list.empty() ? "" : ", ") + column.name + " " + column.type;
    }
    return list;
}

std::string GetTallParquet(const Options& options) {
    constexpr uint64_t kRows = 10'000'000;
    std::string path = GetStem("tall", options) + ".parquet";
    MakeFile(path, [&](const std::string& place) {
        BareDuckDB("").Run("COPY (SELECT i AS n FROM range(" + std::to_string(Scaled(kRows, options)) +
                           ") t(i)) TO '" + place + "' (FORMAT PARQUET)");
    });
    return path;
}

}  // namespace bench
