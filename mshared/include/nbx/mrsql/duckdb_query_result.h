#pragma once

#include <cstdint>

#include "nbx/export.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/string.h"
#include "nbx/unknown.h"

namespace nbx::mrsql {

/** Bits of `I_DuckDBQueryResult::get_Flags`. */
enum QueryResultFlags : uint32_t {
    kHasCursor = 1,
    kHasRowsChanged = 2,
    kHasError = 4,
};

/** Number of `I_DuckDBQueryResult` for `QueryInterface`. */
constexpr uint32_t kDuckDBQueryResultInterfaceId = 7260;

/** The outcome of one executed statement, and the way to the outcome of the next statement of its script. All
    statements have run when the first outcome is returned.

    The getters take no lock and work after `Close`; only the cursor is gone then. A result is for one thread
    at a time. When its database closes, the result is closed too. */
class NBX_API I_DuckDBQueryResult : public I_Unknown {
  public:
    I_DuckDBQueryResult() = default;
    ~I_DuckDBQueryResult() override;

    /** 0 if the statement does not report changed rows; see `kHasRowsChanged`. */
    virtual int64_t get_RowsChanged() const = 0;
    /** The statement's rows, the same cursor each time. Null if the statement is not one that returns rows,
        and after `Close`. */
    virtual smart_ptr<I_DuckDBCursor> get_Cursor() const = 0;
    /** `QueryResultFlags`. */
    virtual uint32_t get_Flags() const = 0;
    /** Byte offset of the error in the SQL text, as UTF-8; -1 if unknown. */
    virtual int64_t get_ErrorPosition() const = 0;
    /** DuckDB's text; empty if there is no error. */
    virtual String get_ErrorMessage() const = 0;
    /** DuckDB's name of the kind of error, such as "Parser"; empty if unknown. */
    virtual String get_ErrorType() const = 0;
    /** The outcome of the next statement. Null after the last one, at a repeated call, and after `Close`.
        Takes the engine lock. */
    virtual smart_ptr<I_DuckDBQueryResult> NextResult() = 0;
    /** Releases the cursor and all DuckDB objects of this outcome and of those that follow and were not
        requested. Takes the engine lock. Can be repeated. */
    virtual void Close() = 0;
};

}  // namespace nbx::mrsql
