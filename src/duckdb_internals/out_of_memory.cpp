#include "duckdb_internals/out_of_memory.h"

#include <duckdb/common/exception.hpp>
#include <new>

namespace mduckdb {

void ThrowIfOutOfMemory() {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const duckdb::OutOfMemoryException&) {
        throw std::bad_alloc();
    } catch (...) {  // The caller's to deal with.
    }
}

}  // namespace mduckdb
