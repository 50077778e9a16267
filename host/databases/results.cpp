#include "databases/results.h"

#include <charconv>
#include <cmath>

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
        columns.push_back({ToUtf8(cursor.get_ColumnName(i)), duckdb_type, get_HostTypeOfColumn(duckdb_type),
                           ToUtf8(cursor.get_ColumnTypeName(i))});
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

constexpr uint32_t kDecimalType = 19;
/** A double keeps every number of 15 digits, and the division by a power of ten up to this one is exact. */
constexpr double kFirstInexact = 1e15;
constexpr int kMostExactScale = 22;

/** Reads the rows of a cursor, whose DECIMALs keep all their digits. */
class RowReader {
  public:
    explicit RowReader(I_DuckDBCursor& cursor)
        : cursor_(cursor),
          decimals_(static_cast<nbx::mrsql::I_ExactDecimals*>(
              cursor.QueryInterface(nbx::mrsql::kExactDecimalsInterfaceId))),
          scales_(cursor.get_ColumnCount()) {
        for (uint32_t i = 0; i < scales_.size(); ++i) {
            const bool is_decimal = decimals_ != nullptr && cursor.get_ColumnType(i) == kDecimalType;
            scales_[i] = is_decimal ? ReadScale(ToUtf8(cursor.get_ColumnTypeName(i))) : kNoDecimal;
        }
    }

    void Read(Row& row) {
        row.resize(scales_.size());
        for (uint32_t i = 0; i < scales_.size(); ++i) {
            row[i] = ToDatum(cursor_.get_Value(i));
            const auto* const number = std::get_if<double>(&row[i].content);
            if (scales_[i] != kNoDecimal && number != nullptr) {
                row[i] = ReadDecimal(*number, i);
            }
        }
    }

  private:
    static constexpr int kNoDecimal = -1;

    /** Of DECIMAL(18,3). */
    static int ReadScale(const std::string& type_name) {
        int scale = kNoDecimal;
        const std::size_t comma = type_name.find(',');
        if (comma != std::string::npos) {
            std::from_chars(&type_name[comma + 1], type_name.data() + type_name.size(), scale);
        }
        return scale;
    }

    Datum ReadDecimal(double number, uint32_t column) {
        const int scale = scales_[column];
        if (scale <= kMostExactScale && std::abs(number) * std::pow(10.0, scale) < kFirstInexact) {
            return {Decimal{number, scale, {}}};
        }
        std::string digits = ToUtf8(decimals_->get_DecimalText(column));
        // DuckDB writes .5 for 0.5 if the type has no digits before the point, which is not JSON.
        if (const std::size_t point = digits.find('.'); point == 0 || (point == 1 && digits[0] == '-')) {
            digits.insert(point, 1, '0');
        }
        // DuckDB has no text for a number with too many digits for its type, which files may contain.
        return digits.empty() ? Datum{number} : Datum{Decimal{number, scale, std::move(digits)}};
    }

    I_DuckDBCursor& cursor_;
    nbx::mrsql::I_ExactDecimals* decimals_;
    std::vector<int> scales_;
};

/** Returns false when the printing was stopped before the end. */
bool PrintRows(I_DuckDBCursor& cursor, Printer& printer, const StopTest& is_stopped) {
    RowReader reader(cursor);
    Row row;
    bool is_complete = true;
    while (is_complete && cursor.NextRecord()) {
        reader.Read(row);
        printer.Add(row);
        is_complete = !is_stopped || !is_stopped();
    }
    return is_complete;
}

}  // namespace

void PrintCursor(const smart_ptr<I_DuckDBCursor>& cursor, Printer& printer, const StopTest& is_stopped) {
    printer.Begin(DescribeColumns(*cursor));
    bool is_complete = false;
    try {
        is_complete = PrintRows(*cursor, printer, is_stopped);
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

void RequireAllRows(I_DuckDBCursor& cursor) {
    const std::string failure = DescribeFetchFailure(cursor);
    if (!failure.empty()) {
        throw xFetchError(failure);
    }
}

}  // namespace mduckdb_host
