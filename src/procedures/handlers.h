#pragma once

#include "mirona/extension_api.h"
#include "procedures/arguments.h"

namespace mduckdb {

/* The procedures. `Run` throws; `HandleCall` wraps it into a function that the host may call. */

struct FetchParquet {
    static constexpr const char* kName = "fetch_parquet";
    static constexpr const char* kUnexpectedText = "Unexpected error while reading parquet file.";
    static mirona_cursor Run(mirona_call call, const Arguments& arguments);
};

struct FetchDuckDB {
    static constexpr const char* kName = "fetch_duckdb";
    static constexpr const char* kUnexpectedText = "Unexpected error while reading DuckDB table or view.";
    static mirona_cursor Run(mirona_call call, const Arguments& arguments);
};

struct ParquetMetadata {
    static constexpr const char* kName = "parquet_metadata";
    static constexpr const char* kUnexpectedText = "Unexpected error while reading parquet metadata.";
    static mirona_cursor Run(mirona_call call, const Arguments& arguments);
};

struct ParquetCount {
    static constexpr const char* kName = "parquet_count";
    static constexpr const char* kUnexpectedText = "Unexpected error while counting parquet rows.";
    static mirona_cursor Run(mirona_call call, const Arguments& arguments);
};

struct ParquetSchema {
    static constexpr const char* kName = "parquet_schema";
    static constexpr const char* kUnexpectedText = "Unexpected error while reading parquet schema.";
    static mirona_cursor Run(mirona_call call, const Arguments& arguments);
};

}  // namespace mduckdb
