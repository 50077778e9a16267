#pragma once

#include <thread>

namespace mduckdb {

/** Starts a thread of this library, which handles none of the host's signals. The name has at most 15
    characters. Throws `std::system_error` if no thread can be started. */
std::thread StartOwnThread(const char* name, void (*run)(void* context) noexcept, void* context);

}  // namespace mduckdb
