#include "backup/sql_worker.h"

#include "base/errors.h"
#include "base/holders.h"
#include "base/text.h"

namespace mduckdb {

namespace {

std::optional<std::string> ReadCell(duckdb_vector vector, idx_t row) {
    uint64_t* const validity = duckdb_vector_get_validity(vector);
    if (validity != nullptr && !duckdb_validity_row_is_valid(validity, row)) {
        return std::nullopt;
    }
    auto* const text = static_cast<duckdb_string_t*>(duckdb_vector_get_data(vector)) + row;
    return std::string(duckdb_string_t_data(text), duckdb_string_t_length(*text));
}

void AppendRows(duckdb_data_chunk chunk, std::vector<TextRow>& rows) {
    const idx_t columns = duckdb_data_chunk_get_column_count(chunk);
    for (idx_t row = 0; row < duckdb_data_chunk_get_size(chunk); ++row) {
        TextRow& cells = rows.emplace_back();
        for (idx_t column = 0; column < columns; ++column) {
            cells.push_back(ReadCell(duckdb_data_chunk_get_vector(chunk, column), row));
        }
    }
}

[[noreturn]] void Fail(const char* duckdb_text, const BackupStop& stop) {
    stop.Check();
    throw BackupError(MessageOf(duckdb_text));
}

/** DuckDB forgets an interrupt that comes before it begins the query, so the stop is checked between the
    beginning and the execution. */
ResultHolder Execute(duckdb_connection connection, const std::string& sql, const BackupStop& stop) {
    stop.Check();
    PreparedHolder prepared;
    if (duckdb_prepare(connection, sql.c_str(), prepared.Receive()) != DuckDBSuccess) {
        Fail(duckdb_prepare_error(prepared.get()), stop);
    }
    PendingHolder pending;
    if (duckdb_pending_prepared(prepared.get(), pending.Receive()) != DuckDBSuccess) {
        Fail(duckdb_pending_error(pending.get()), stop);
    }
    if (stop.get_IsStopped()) {
        duckdb_interrupt(connection);
    }
    ResultHolder result;
    if (duckdb_execute_pending(pending.get(), result.Receive()) != DuckDBSuccess) {
        Fail(duckdb_result_error(result.get()), stop);
    }
    return result;
}

}  // namespace

SqlWorker::SqlWorker(duckdb_database engine, BackupStop& stop) : stop_(stop) {
    if (duckdb_connect(engine, &connection_) != DuckDBSuccess) {
        throw BackupError("Failed to create DuckDB connection");
    }
    try {
        stop_.Add(connection_);
    } catch (...) {
        duckdb_disconnect(&connection_);
        throw;
    }
}

SqlWorker::~SqlWorker() {
    stop_.Remove(connection_);
    duckdb_disconnect(&connection_);
}

void SqlWorker::Run(const std::string& sql) {
    Execute(connection_, sql, stop_);
}

bool SqlWorker::TryRun(const std::string& sql) noexcept {
    return duckdb_query(connection_, sql.c_str(), nullptr) == DuckDBSuccess;
}

std::vector<TextRow> SqlWorker::Rows(const std::string& sql) {
    ResultHolder result = Execute(connection_, sql, stop_);
    for (idx_t column = 0; column < duckdb_column_count(result.get()); ++column) {
        if (duckdb_column_type(result.get(), column) != DUCKDB_TYPE_VARCHAR) {
            throw BackupError("A column is not a text: " + sql);
        }
    }
    std::vector<TextRow> rows;
    while (const ChunkHolder chunk{duckdb_fetch_chunk(*result)}) {
        AppendRows(chunk.get(), rows);
    }
    return rows;
}

std::string SqlWorker::Text(const std::string& sql) {
    const std::vector<TextRow> rows = Rows(sql);
    return rows.empty() ? std::string() : rows.front().front().value_or("");
}

std::string MessageOf(const char* duckdb_text) {
    const DuckDBErrorInfo error =
        ReadDuckDBError(TextOr(duckdb_text, "DuckDB failed without a message").c_str());
    return ToUtf8(error.message);
}

}  // namespace mduckdb
