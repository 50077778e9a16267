#pragma once

#include "nbx/export.h"

/** The owner of the ELF note (type NT_VERSION, a NUL-terminated text) in which a module tells its version: a
    third export would be against the contract. A macro, since an assembler reads it. */
#define NBX_VERSION_NOTE_OWNER "mduckdb"

namespace nbx {

/** The version of the mshared library that this process has loaded, as 0.1.0. */
NBX_API const char* get_LibraryVersion() noexcept;

}  // namespace nbx
