# What Debian hardens its own programs with. Sanitizers replace it, and _FORTIFY_SOURCE needs an optimising build.
set(MDUCKDB_FORTIFY "")
set(MDUCKDB_STACK_PROTECTION "")
if(NOT MDUCKDB_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    add_link_options(-Wl,-z,relro -Wl,-z,now)
    # Position-independent programs, also where the compiler does not link them by default.
    include(CheckPIESupported)
    check_pie_supported()
    set(MDUCKDB_FORTIFY -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    # Only for mduckdb-host: measured together with -fcf-protection, these added 5 to 20% to the instructions that the
    # modules take to read a cell or to bind a value.
    set(MDUCKDB_STACK_PROTECTION -fstack-protector-strong -fstack-clash-protection)
endif()
