#pragma once

#include "nbx/export.h"

/** The owner of the ELF note (type NT_VERSION, a NUL-terminated text) that states a module's version. It is a
    note because the contract allows a module only two exports, and a macro because the assembler reads
    it. */
#define NBX_VERSION_NOTE_OWNER "mduckdb"

namespace nbx {

/** The version of the mshared library that this process has loaded, such as "0.1.0": NUL-terminated, static
    text. */
NBX_API const char* get_LibraryVersion() noexcept;

}  // namespace nbx
