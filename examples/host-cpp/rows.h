#pragma once

#include <nbx/arrow_c_data.h>
#include <nbx/mrsql/duckdb_arrow.h>
#include <nbx/mrsql/duckdb_database.h>
#include <nbx/mrsql/duckdb_streaming.h>

#include <cstdint>
#include <iostream>
#include <numeric>

/** Rows while DuckDB computes them. */
inline void ShowStream(nbx::mrsql::I_DuckDBDatabase& database) {
    using nbx::FromUtf8;
    // docs: stream
    auto* streaming = static_cast<nbx::mrsql::I_DuckDBStreaming*>(
        database.QueryInterface(nbx::mrsql::kDuckDBStreamingInterfaceId));
    const auto cursor = streaming->OpenStream(FromUtf8("SELECT i FROM range(1000000000000) r(i)"), nullptr);
    int64_t sum = 0;
    for (int row = 0; row < 1000 && cursor->NextRecord(); ++row) {
        sum += cursor->get_Value(0)->get_LLong();
    }
    cursor->Close();
    // docs: end
    std::cout << "stream: the first 1000 rows add up to " << sum << '\n';
}

/** Rows as Arrow vectors. */
inline void ShowArrow(nbx::mrsql::I_DuckDBDatabase& database) {
    using nbx::FromUtf8;
    using nbx::mrsql::kServerCursor;
    // docs: arrow
    const auto cursor =
        database.SqlSelect(FromUtf8("SELECT range AS n FROM range(5000)"), kServerCursor, nullptr);
    ArrowArrayStream stream{};
    static_cast<nbx::mrsql::I_DuckDBArrow*>(cursor->QueryInterface(nbx::mrsql::kDuckDBArrowInterfaceId))
        ->ExportStream(stream);
    int64_t sum = 0;
    for (ArrowArray array{}; stream.get_next(&stream, &array) == 0 && array.release != nullptr;) {
        const auto* numbers = static_cast<const int64_t*>(array.children[0]->buffers[1]);
        sum = std::accumulate(numbers, numbers + array.length, sum);
        array.release(&array);
    }
    stream.release(&stream);
    // docs: end
    std::cout << "arrow: the numbers add up to " << sum << '\n';
}
