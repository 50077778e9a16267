#pragma once

#include <cstdint>

namespace mduckdb {

/** The number of this process: 0 in the one that has loaded the library, another one in the child of a fork.
    What was opened under another number belongs to the parent, with the file's lock and DuckDB's threads. Any
    thread; costs no system call. */
uint32_t get_ProcessNumber() noexcept;

}  // namespace mduckdb
