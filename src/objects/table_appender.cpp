#include "objects/table_appender.h"

#include <algorithm>
#include <new>
#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/column_array.h"
#include "duckdb_internals/failures.h"
#include "duckdb_internals/statement_pieces.h"
#include "objects/rollback.h"

namespace mduckdb {

namespace {

struct ErrorDataTraits {
    using Handle = duckdb_error_data;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_error_data(&handle); }
};
using ErrorDataHolder = Holder<ErrorDataTraits>;

struct TableDescriptionTraits {
    using Handle = duckdb_table_description;
    static void Destroy(Handle handle) noexcept { duckdb_table_description_destroy(&handle); }
};
using TableDescriptionHolder = Holder<TableDescriptionTraits>;

/** DuckDB's JSON error, which may follow other words, as its plain text. */
Failure PlainFailureOf(const std::string& text) {
    const std::size_t begin = text.find("{\"");
    if (begin == text.npos) {
        return FailureOf(text.c_str(), "");
    }
    Failure failure = FailureOf(text.c_str() + begin, "");
    const DuckDBErrorInfo info = ReadDuckDBError(text.c_str() + begin);
    failure.text = info.type.isEmpty() ? text : ToUtf8(info.type) + " Error: " + ToUtf8(info.message);
    return failure;
}

Failure FailureOfAppender(duckdb_appender appender) {
    const ErrorDataHolder error(duckdb_appender_error_data(appender));
    return PlainFailureOf(
        TextOr(error ? duckdb_error_data_message(error.get()) : nullptr, "DuckDB stores no rows"));
}

std::string NameOf(const DatabaseLink& link, const nbx::String& name) {
    std::string text = ToUtf8(name);
    if (text.find('\0') != text.npos) {
        link.ThrowError("Names must not contain NUL characters");
    }
    return text;
}

const char* OrNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

/** Failures that one row may have caused. */
bool IsOfARow(duckdb_error_type type) {
    switch (type) {
        case DUCKDB_ERROR_CONSTRAINT:
        case DUCKDB_ERROR_CONVERSION:
        case DUCKDB_ERROR_OUT_OF_RANGE:
        case DUCKDB_ERROR_INVALID_INPUT:
            return true;
        default:
            return false;
    }
}

}  // namespace

void TableAppender::Open(const DatabaseLink& link, const nbx::mrsql::DuckDBAppenderOptions& options) {
    const std::string catalog = NameOf(link, options.catalog);
    const std::string schema = NameOf(link, options.schema);
    const std::string table = NameOf(link, options.table);
    const duckdb_state state = duckdb_appender_create_ext(connection_.get(), OrNull(catalog), OrNull(schema),
                                                          table.c_str(), appender_.Receive());
    if (state != DuckDBSuccess) {
        ThrowDuckDBError(link.get_ErrorPath(), FailureOfAppender(appender_.get()));
    }
    if (options.columns != nullptr) {
        AddColumns(link, options);
    } else {
        AddEveryColumn(catalog, schema, table);
    }
    std::vector<LogicalTypeHolder> types;
    // A vector that cannot grow would leak the type.
    types.reserve(names_.size());
    for (idx_t i = 0; i < names_.size(); ++i) {
        types.emplace_back(duckdb_appender_column_type(appender_.get(), i));
    }
    rows_ = std::make_unique<ChunkRows>(connection_.get(), std::move(types));
}

TableAppender::~TableAppender() {
    // First: it refers to the connection.
    appender_.Reset();
    Rollback();
}

void TableAppender::AddColumns(const DatabaseLink& link, const nbx::mrsql::DuckDBAppenderOptions& options) {
    if (options.column_count == 0) {
        link.ThrowError("An appender needs at least one column");
    }
    for (uint32_t i = 0; i < options.column_count; ++i) {
        const std::string name = NameOf(link, options.columns[i]);
        if (duckdb_appender_add_column(appender_.get(), name.c_str()) != DuckDBSuccess) {
            Failure failure = FailureOfAppender(appender_.get());
            failure.text = "Column " + QuoteIdentifier(name) + ": " + failure.text;
            ThrowDuckDBError(link.get_ErrorPath(), failure);
        }
        names_.push_back(options.columns[i]);
    }
}

void TableAppender::AddEveryColumn(const std::string& catalog, const std::string& schema,
                                   const std::string& table) {
    const idx_t storable = duckdb_appender_column_count(appender_.get());
    TableDescriptionHolder description;
    duckdb_table_description_create_ext(connection_.get(), OrNull(catalog), OrNull(schema), table.c_str(),
                                        description.Receive());
    const idx_t count = duckdb_table_description_get_column_count(description.get());
    for (idx_t i = 0; i < count; ++i) {
        const TextHolder name(duckdb_table_description_get_column_name(description.get(), i));
        // DuckDB refuses the generated ones.
        if (name && duckdb_appender_add_column(appender_.get(), name.get()) == DuckDBSuccess) {
            names_.push_back(FromUtf8(name.get()));
        }
    }
    if (names_.size() != storable) {
        throw std::bad_alloc();
    }
}

bool TableAppender::Run(const char* sql, Failure& error) {
    ResultHolder result;
    if (duckdb_query(connection_.get(), sql, result.Receive()) == DuckDBSuccess) {
        return true;
    }
    error = PlainFailureOf(TextOr(duckdb_result_error(result.get()), "Unknown execute error"));
    return false;
}

bool TableAppender::Store(Failure& error) {
    return StoreFirst(rows_->get_Count(), error);
}

bool TableAppender::Begin(Failure& error) {
    is_outcome_unknown_ = false;
    return IsInTransaction(connection_.get()) || Run("BEGIN TRANSACTION", error);
}

bool TableAppender::StoreFirst(idx_t count, Failure& error) {
    if (!Begin(error)) {
        last_failure_ = DUCKDB_ERROR_INVALID;
        return false;
    }
    const bool is_stored =
        rows_->AppendTo(appender_.get(), count) && duckdb_appender_flush(appender_.get()) == DuckDBSuccess;
    if (!is_stored) {
        const ErrorDataHolder data(duckdb_appender_error_data(appender_.get()));
        last_failure_ = data ? duckdb_error_data_error_type(data.get()) : DUCKDB_ERROR_INVALID;
        error = FailureOfAppender(appender_.get());
    }
    return is_stored;
}

bool TableAppender::StoreArrays(const nbx::mrsql::DuckDBColumnArray* columns, uint64_t first, idx_t count,
                                idx_t& passed) {
    Failure ignored;
    passed = 1;
    if (!Begin(ignored)) {
        return false;
    }
    uint64_t bytes = 0;
    idx_t done = 0;
    while (done < count && bytes < ChunkRows::kMostBytes) {
        const idx_t part = PassArrays(columns, first + done, count - done);
        if (part == 0) {
            return false;
        }
        done += part;
        passed = done;
        bytes += rows_->get_Bytes();
        rows_->Clear();
    }
    return duckdb_appender_flush(appender_.get()) == DuckDBSuccess;
}

idx_t TableAppender::PassArrays(const nbx::mrsql::DuckDBColumnArray* columns, uint64_t first, idx_t count) {
    const idx_t room = std::min(rows_->Open(), count);
    const idx_t part = CountRowsOf(columns, names_.size(), first, room, ChunkRows::kMostBytes);
    for (std::size_t i = 0; i < names_.size(); ++i) {
        std::string ignored;
        if (StoreArray(rows_->get_Columns()[i], rows_->get_Row(), columns[i], first, part, ignored) < part) {
            return 0;
        }
    }
    rows_->Keep(part);
    return rows_->AppendTo(appender_.get(), part) ? part : 0;
}

bool TableAppender::Commit(Failure& error) {
    const SideConnection::Shield shield(connection_);
    is_outcome_unknown_ = false;
    if (!IsInTransaction(connection_.get())) {
        return true;
    }
    try {
        return Run("COMMIT", error);
    } catch (const std::bad_alloc&) {
        is_outcome_unknown_ = !IsInTransaction(connection_.get());
        throw;
    }
}

void TableAppender::Rollback() noexcept {
    duckdb_appender_clear(appender_.get());
    const SideConnection::Shield shield(connection_);
    if (IsInTransaction(connection_.get())) {
        mduckdb::Rollback(connection_.get());
    }
}

uint64_t TableAppender::FindFailingRow(Failure& error) {
    const idx_t count = rows_->get_Count();
    idx_t fine = 0;
    idx_t failing = count + 1;
    Failure found;
    // All of them first: in one transaction the failure may come from earlier rows, which are gone.
    for (idx_t tried = count; IsOfARow(last_failure_) && failing - fine > 1;
         tried = fine + (failing - fine) / 2) {
        Failure failure;
        if (StoreFirst(tried, failure)) {
            fine = tried;
        } else {
            failing = tried;
            found = std::move(failure);
        }
        Rollback();
    }
    if (!IsOfARow(last_failure_) || failing > count) {
        return 0;
    }
    error = std::move(found);
    return failing;
}

}  // namespace mduckdb
