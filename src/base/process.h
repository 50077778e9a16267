#pragma once

#include <cstdint>
#include <vector>

namespace mduckdb {

/** The number of this process: 0 in the one that has loaded the library, another one in the child of a fork.
    What was opened under another number belongs to the parent, with the file's lock and DuckDB's threads. Any
    thread; costs no system call. */
uint32_t get_ProcessNumber() noexcept;

/** The file descriptors of this process. Other threads may have closed some of them since, and reused the
   numbers. Empty without /proc. Any thread; throws `std::bad_alloc`. */
std::vector<int> ListDescriptors();

}  // namespace mduckdb
