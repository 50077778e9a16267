#pragma once

namespace mduckdb {

/** To be called by every handler here that makes something else of an exception: an empty text, a null
    handle, another way. When memory ran out, ours or DuckDB's, it throws `std::bad_alloc`, which the caller
   of the module gets; otherwise it returns. */
void ThrowIfOutOfMemory();

}  // namespace mduckdb
