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

/** The outcome of one executed statement, and the way to that of the next statement of its script. */
class NBX_API I_DuckDBQueryResult : public I_Unknown {
  public:
    I_DuckDBQueryResult() = default;
    ~I_DuckDBQueryResult() override;

    /** 0 when the statement reports no changed rows. */
    virtual int64_t get_RowsChanged() const = 0;
    /** Null when the statement returned no rows, and after `Close`. */
    virtual smart_ptr<I_DuckDBCursor> get_Cursor() const = 0;
    /** `QueryResultFlags`. */
    virtual uint32_t get_Flags() const = 0;
    /** Byte offset of the error in the SQL text; -1 when unknown. */
    virtual int64_t get_ErrorPosition() const = 0;
    virtual String get_ErrorMessage() const = 0;
    virtual String get_ErrorType() const = 0;
    /** The outcome of the next statement; null after the last one. Can be asked once. */
    virtual smart_ptr<I_DuckDBQueryResult> NextResult() = 0;
    /** Releases the cursor and everything of DuckDB's, of the results that follow too. */
    virtual void Close() = 0;
};

}  // namespace nbx::mrsql
