#include "nbx/version.h"

// The module's version, in a segment that is loaded with it and that stripping keeps. Written in assembler,
// since every byte of a note has a fixed place, and compilers and their sanitizers pad data.
__asm__(R"(
    .pushsection .note.mduckdb, "a", %note
    .balign 4
    .long 2f - 1f, 4f - 3f, 1  /* the type NT_VERSION */
1:  .asciz ")" NBX_VERSION_NOTE_OWNER R"("
2:  .balign 4
3:  .asciz ")" MDUCKDB_VERSION R"("
4:  .balign 4
    .popsection
)");
