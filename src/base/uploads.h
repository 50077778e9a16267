#pragma once

#include <sys/types.h>

#include <cstdint>

#include "base/thread_facts.h"

namespace mduckdb {

/* DuckDB's httpfs sends the parts of a file to an object store on threads that it starts for each part, while
   the statement's thread waits inside the object that they share, the upload. No thread knows which one has
   started it. So memory must prove for which upload a thread works; where its contents are arranged in
   another way than here, nothing is proven. */

/** The upload inside which lies the address of a futex; 0 if there is none. The answer counts if a thread has
    waited for the futex all the time. */
uint64_t FindUpload(uint64_t futex) noexcept;
/** Whether the thread, which waits in this call, was started to send a part of the upload. The answer counts
    if the thread has waited and the upload existed all the time. What an earlier thread has left over on the
    same stack proves nothing. */
bool SendsPartOf(uint64_t upload, pid_t thread, const SystemCall& call) noexcept;

}  // namespace mduckdb
