#include "backup/facts.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "base/text.h"
namespace mduckdb {

namespace {

/** A SELECT of facts: the kind and name of each object, and its aspects with their values. */
struct FactQuery {
    const char* kind;
    const char* name;
    const char* aspects;
    const char* values;
    const char* source;
};

constexpr FactQuery kFactQueries[] = {
    {"schema", "schema_name", "'tags'", "tags::VARCHAR", "duckdb_schemas() WHERE NOT internal"},
    {"table", "schema_name || '.' || table_name", "'definition', 'comment', 'tags'",
     "sql, comment, tags::VARCHAR", "duckdb_tables() WHERE NOT internal"},
    {"column", "schema_name || '.' || table_name || '.' || column_name",
     "'place', 'type', 'default', 'nullability', 'comment'",
     "column_index::VARCHAR, data_type, column_default, is_nullable::VARCHAR, comment",
     "duckdb_columns() WHERE NOT internal"},
    {"view", "schema_name || '.' || view_name", "'definition', 'comment', 'tags'",
     "sql, comment, tags::VARCHAR", "duckdb_views() WHERE NOT internal"},
    // DuckDB's own text of a sequence starts at the next value, and its last value changes when the file is
    // closed and opened.
    {"sequence", "schema_name || '.' || sequence_name",
     "'range', 'step', 'cycle', 'comment', 'tags', 'next value'",
     "min_value::VARCHAR || ' to ' || max_value::VARCHAR, increment_by::VARCHAR, \"cycle\"::VARCHAR, "
     "comment, "
     "tags::VARCHAR, regexp_extract(sql, ' START (-?[0-9]+)', 1)",
     "duckdb_sequences() WHERE NOT temporary"},
    {"type", "schema_name || '.' || type_name", "'type', 'labels', 'comment', 'tags'",
     "logical_type, labels::VARCHAR, comment, tags::VARCHAR", "duckdb_types() WHERE NOT internal"},
    {"index", "schema_name || '.' || index_name", "'table', 'definition', 'comment', 'tags'",
     "table_name, sql, comment, tags::VARCHAR", "duckdb_indexes() WHERE true"},
    // The position of a column's constraint in the list depends on how the table was created.
    {"constraint", "schema_name || '.' || table_name || ': ' || constraint_text", "'name', 'columns'",
     "constraint_name, constraint_column_names::VARCHAR", "duckdb_constraints() WHERE true"},
    {"macro", "schema_name || '.' || function_name || parameters::VARCHAR",
     "'kind', 'parameter types', 'definition', 'comment', 'tags'",
     "function_type, parameter_types::VARCHAR, macro_definition, comment, tags::VARCHAR",
     "duckdb_functions() WHERE NOT internal AND function_type IN ('macro', 'table_macro')"},
};

std::string BuildCatalogQuery() {
    std::string sql;
    for (const FactQuery& query : kFactQueries) {
        sql += sql.empty() ? "SELECT " : " UNION ALL SELECT ";
        sql += QuoteLiteral(query.kind) + ", " + query.name + ", unnest(['', " + query.aspects +
               "]), coalesce(unnest(['', " + query.values + "]), '') FROM " + query.source +
               " AND database_name = current_database()";
    }
    return sql;
}

/** Types whose `hash` distinguishes all values. The hash of the others treats 1 month and 30 days, or 0 and
    -0, as equal. */
constexpr const char* kExactTypes =
    "'BOOLEAN', 'TINYINT', 'SMALLINT', 'INTEGER', 'BIGINT', 'HUGEINT', 'UTINYINT', 'USMALLINT', 'UINTEGER', "
    "'UBIGINT', 'UHUGEINT', 'VARCHAR', 'BLOB', 'DATE', 'TIME', 'TIMESTAMP', 'TIMESTAMP_S', 'TIMESTAMP_MS', "
    "'TIMESTAMP_NS', 'TIMESTAMP WITH TIME ZONE', 'UUID', 'JSON'";

/** For each column in its order the name of its table in SQL and what of it is an argument of `hash`; for a
   table without columns of its own one row, with null. */
std::string BuildColumnQuery() {
    return std::string(
               "SELECT '\"' || replace(t.schema_name, '\"', '\"\"') || '\".\"' || "
               "replace(t.table_name, '\"', '\"\"') || '\"' AS name, "
               "CASE WHEN c.data_type IN (") +
           kExactTypes +
           ") OR c.data_type LIKE 'DECIMAL(%)' THEN q "
           "WHEN c.data_type IN ('DOUBLE', 'FLOAT') THEN q || ', signbit(' || q || ')' "
           "WHEN c.data_type = 'VARIANT' THEN 'variant_typeof(' || q || '), ' || q || '::VARCHAR' "
           "ELSE q || ', ' || q || '::VARCHAR' END "
           "FROM duckdb_tables() t LEFT JOIN (SELECT *, '\"' || replace(column_name, '\"', '\"\"') || '\"' "
           "AS q "
           "FROM duckdb_columns() WHERE database_name = current_database()) c "
           "ON c.table_oid = t.table_oid AND c.schema_name = t.schema_name "
           "WHERE t.database_name = current_database() AND NOT t.internal AND NOT t.temporary "
           "ORDER BY name, c.column_index";
}

/** For each table its name in SQL and the arguments of `hash`. They are joined here, because an interrupted
    `string_agg` with an order leaves memory of DuckDB behind. */
std::map<std::string, std::string> ReadHashArguments(SqlWorker& worker) {
    std::map<std::string, std::string> tables;
    for (const TextRow& row : worker.Rows(BuildColumnQuery())) {
        std::string& arguments = tables[row[0].value_or("")];
        if (row[1]) {
            arguments += (arguments.empty() ? "" : ", ") + *row[1];
        }
    }
    return tables;
}

TableFacts ReadTable(SqlWorker& worker, const std::string& name, const std::string& columns) {
    const std::string hash = columns.empty() ? "0::UBIGINT" : "hash(" + columns + ")";
    try {
        const std::vector<TextRow> rows = worker.Rows(
            "SELECT count(*)::VARCHAR, coalesce(sum(h), 0)::VARCHAR || '-' || "
            "coalesce(bit_xor(h), 0)::VARCHAR FROM (SELECT " +
            hash + " AS h FROM " + name + ")");
        return {name, std::stoull(rows.front().at(0).value_or("0")), rows.front().at(1).value_or("")};
    } catch (const BackupInterrupted&) {
        throw;
    } catch (const BackupError& error) {
        throw BackupError("Table " + name + " cannot be read: " + error.what());
    }
}

}  // namespace

void PrepareForFacts(SqlWorker& worker) {
    worker.Run("SET TimeZone = 'UTC'");
    worker.Run("SET Calendar = 'gregorian'");
}

std::vector<CatalogFact> ReadCatalog(SqlWorker& worker) {
    std::vector<CatalogFact> facts;
    for (TextRow& row : worker.Rows(BuildCatalogQuery())) {
        facts.push_back({row[0].value_or(""), row[1].value_or(""), row[2].value_or(""), row[3].value_or("")});
    }
    std::sort(facts.begin(), facts.end(), [](const CatalogFact& a, const CatalogFact& b) {
        return std::tie(a.kind, a.name, a.aspect, a.value) < std::tie(b.kind, b.name, b.aspect, b.value);
    });
    return facts;
}

std::vector<TableFacts> ReadTables(SqlWorker& worker) {
    std::vector<TableFacts> tables;
    for (const auto& [name, arguments] : ReadHashArguments(worker)) {
        tables.push_back(ReadTable(worker, name, arguments));
    }
    return tables;
}

DatabaseFacts ReadFacts(SqlWorker& worker) {
    return {ReadCatalog(worker), ReadTables(worker)};
}

}  // namespace mduckdb
