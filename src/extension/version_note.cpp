#include "nbx/version.h"

// The module's version, in a segment that is loaded with it and that stripping leaves alone. In assembler,
// since a note is laid out to the byte, and compilers pad their data as it suits them and their sanitizers.
__asm__(R"(
    .pushsection .note.mduckdb, "a", %note
    .balign 4
    .long 2f - 1f, 4f - 3f, 1  # the type NT_VERSION
1:  .asciz ")" NBX_VERSION_NOTE_OWNER R"("
2:  .balign 4
3:  .asciz ")" MDUCKDB_VERSION R"("
4:  .balign 4
    .popsection
)");
