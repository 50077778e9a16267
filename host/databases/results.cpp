#include "databases/results.h"

#include "data/host_values.h"
#include "nbx/exception.h"
#include "text/messages.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

using nbx::smart_ptr;
using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::I_DuckDBQueryResult;

std::vector<Column> DescribeColumns(const I_DuckDBCursor& cursor) {
    std::vector<Column> columns;
    for (uint32_t i = 0; i < cursor.get_ColumnCount(); ++i) {
        const uint32_t duckdb_type = cursor.get_ColumnType(i);
        columns.push_back({ToUtf8(cursor.get_ColumnName(i)), duckdb_type, get_HostTypeOfColumn(duckdb_type)});
    }
    return columns;
}

// `NextRecord` returns the same at the end of the rows and when fetching them fails. Empty if nothing failed.
std::string DescribeFetchFailure(I_DuckDBCursor& cursor) {
    const auto* const status = static_cast<const nbx::mrsql::I_FetchStatus*>(
        cursor.QueryInterface(nbx::mrsql::kFetchStatusInterfaceId));
    const bool has_failed = status != nullptr && !status->get_FetchError().isEmpty();
    return has_failed ? DescribeError(ParseDuckDBError(ToUtf8(status->get_FetchError())), {}) : std::string();
}

/** Returns false when the printing was stopped before the end. */
bool PrintRows(I_DuckDBCursor& cursor, std::size_t column_count, Printer& printer,
               const StopTest& is_stopped) {
    Row row(column_count);
    bool is_complete = true;
    while (is_complete && cursor.NextRecord()) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            row[i] = ToDatum(cursor.get_Value(static_cast<uint32_t>(i)));
        }
        printer.Add(row);
        is_complete = !is_stopped || !is_stopped();
    }
    return is_complete;
}

}  // namespace

void PrintCursor(const smart_ptr<I_DuckDBCursor>& cursor, Printer& printer, const StopTest& is_stopped) {
    const std::vector<Column> columns = DescribeColumns(*cursor);
    printer.Begin(columns);
    bool is_complete = false;
    try {
        is_complete = PrintRows(*cursor, columns.size(), printer, is_stopped);
    } catch (const nbx::xException&) {
        printer.EndEarly();
        throw;
    }
    const std::string failure = DescribeFetchFailure(*cursor);
    if (!is_complete || !failure.empty()) {
        printer.EndEarly();
    } else {
        printer.End();
    }
    if (!failure.empty()) {
        throw xFetchError(failure);
    }
}

void PrintResults(smart_ptr<I_DuckDBQueryResult> result, Printer& printer, const StopTest& is_stopped) {
    for (; result != nullptr && !(is_stopped && is_stopped()); result = result->NextResult()) {
        const uint32_t flags = result->get_Flags();
        if ((flags & nbx::mrsql::kHasError) != 0) {
            const DuckDBError error{ToUtf8(result->get_ErrorType()), ToUtf8(result->get_ErrorMessage()),
                                    result->get_ErrorPosition()};
            throw xFetchError(DescribeError(error, {}));
        }
        if ((flags & nbx::mrsql::kHasCursor) != 0) {
            PrintCursor(result->get_Cursor(), printer, is_stopped);
        } else if ((flags & nbx::mrsql::kHasRowsChanged) != 0) {
            printer.PrintRowsChanged(result->get_RowsChanged());
        } else {
            printer.PrintRowsChanged(std::nullopt);
        }
    }
}

}  // namespace mduckdb_host
