# mduckdb_warnings: the interface target that every target of this project links.
add_library(mduckdb_warnings INTERFACE)
target_compile_options(mduckdb_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2 -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety -Werror=thread-safety -Wextra-semi>
    $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op>
    # GCC 12 mistakes `"x" + std::string` for an overlapping copy (GCC bug 105651).
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
    $<$<BOOL:${MDUCKDB_WERROR}>:-Werror>)
