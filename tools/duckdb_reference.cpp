/* Prints what DuckDB itself reads from a Parquet file, as JSON on stdout:

     {"columns":[{"name":...,"type":<duckdb_type code>}],"rows":[[...]],"row_count":n}

   Dates, times and timestamps are DuckDB's raw numbers (days, microseconds), blobs are hexadecimal digits,
   everything else is DuckDB's own text. If DuckDB cannot read the file, its error text is printed to stderr
   and the exit status is 1. Uses no code of this project. */

#include <duckdb.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

std::string Quote(std::string_view text, char mark) {
    std::string quoted(1, mark);
    for (const char c : text) {
        quoted.append(c == mark ? 2 : 1, c);
    }
    return quoted + mark;
}

void AppendJson(std::string& out, std::string_view text) {
    out += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            out += escape;
        } else {
            out += c;
        }
    }
    out += '"';
}

/** The expression of the column in the final query. */
std::string SelectItem(const std::string& identifier, duckdb_type type) {
    switch (type) {
        case DUCKDB_TYPE_DATE:
        case DUCKDB_TYPE_TIME:
        case DUCKDB_TYPE_TIMESTAMP:
            return identifier;
        case DUCKDB_TYPE_TIMESTAMP_S:
        case DUCKDB_TYPE_TIMESTAMP_MS:
        case DUCKDB_TYPE_TIMESTAMP_NS:
        case DUCKDB_TYPE_TIMESTAMP_TZ:
            return "CAST(" + identifier + " AS TIMESTAMP)";
        case DUCKDB_TYPE_TIME_TZ:
        case DUCKDB_TYPE_TIME_NS:
            return "CAST(" + identifier + " AS TIME)";
        case DUCKDB_TYPE_BLOB:
            return "lower(hex(" + identifier + "))";
        default:
            return "CAST(" + identifier + " AS VARCHAR)";
    }
}

void AppendCell(std::string& out, duckdb_type type, void* data, idx_t row) {
    if (type == DUCKDB_TYPE_DATE) {
        out += std::to_string(static_cast<int32_t*>(data)[row]);
    } else if (type == DUCKDB_TYPE_TIME || type == DUCKDB_TYPE_TIMESTAMP) {
        out += std::to_string(static_cast<int64_t*>(data)[row]);
    } else {
        duckdb_string_t* text = static_cast<duckdb_string_t*>(data) + row;
        AppendJson(out, {duckdb_string_t_data(text), duckdb_string_t_length(*text)});
    }
}

void AppendChunk(std::string& out, duckdb_result& result, duckdb_data_chunk chunk, const char*& separator) {
    const idx_t columns = duckdb_data_chunk_get_column_count(chunk);
    for (idx_t row = 0; row < duckdb_data_chunk_get_size(chunk); ++row) {
        out += separator;
        out += '[';
        for (idx_t column = 0; column < columns; ++column) {
            out += column == 0 ? "" : ",";
            duckdb_vector vector = duckdb_data_chunk_get_vector(chunk, column);
            uint64_t* validity = duckdb_vector_get_validity(vector);
            if (validity != nullptr && !duckdb_validity_row_is_valid(validity, row)) {
                out += "null";
            } else {
                AppendCell(out, duckdb_column_type(&result, column), duckdb_vector_get_data(vector), row);
            }
        }
        out += ']';
        separator = ",\n";
    }
}

/** Ends the program with DuckDB's error text when the query fails. The process ends soon after either
    way, so results and connection are left to it. */
void Query(duckdb_connection connection, const std::string& sql, duckdb_result& result) {
    if (duckdb_query(connection, sql.c_str(), &result) != DuckDBSuccess) {
        std::fprintf(stderr, "%s\n", duckdb_result_error(&result));
        std::_Exit(1);
    }
}

void PrintFile(duckdb_connection connection, const std::string& path) {
    const std::string source =
        " FROM (SELECT * FROM read_parquet(" + Quote(path, '\'') + ")) AS parquet_source";
    duckdb_result probe;
    Query(connection, "SELECT *" + source + " LIMIT 0", probe);
    std::string out = "{\"columns\":[";
    std::string items;
    for (idx_t column = 0; column < duckdb_column_count(&probe); ++column) {
        const std::string name = duckdb_column_name(&probe, column);
        const duckdb_type type = duckdb_column_type(&probe, column);
        out += column == 0 ? "{\"name\":" : ",{\"name\":";
        AppendJson(out, name);
        out += ",\"type\":" + std::to_string(type) + '}';
        items += (column == 0 ? "SELECT " : ", ") + SelectItem(Quote(name, '"'), type);
    }
    out += "],\"rows\":[\n";
    duckdb_result result;
    Query(connection, items + source, result);
    const char* separator = "";
    while (duckdb_data_chunk chunk = duckdb_fetch_chunk(result)) {
        AppendChunk(out, result, chunk, separator);
        duckdb_destroy_data_chunk(&chunk);
    }
    out += "],\"row_count\":" + std::to_string(duckdb_row_count(&result)) + "}\n";
    std::fwrite(out.data(), 1, out.size(), stdout);
}

}  // namespace

int main(int argc, char** argv) {
    duckdb_database database = nullptr;
    duckdb_connection connection = nullptr;
    if (argc != 2) {
        std::fprintf(stderr, "usage: duckdb-reference FILE\n");
        return 2;
    }
    if (duckdb_open(nullptr, &database) != DuckDBSuccess ||
        duckdb_connect(database, &connection) != DuckDBSuccess) {
        std::fprintf(stderr, "cannot open an in-memory database\n");
        return 1;
    }
    PrintFile(connection, argv[1]);
    std::fflush(stdout);
    std::_Exit(0);
}
