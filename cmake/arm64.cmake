# Cross-compiles for arm64 with Debian's compiler. What the programs link is in MDUCKDB_SYSROOT, which
# `scripts/setup --arch arm64` fills; an emulator runs the programs.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MDUCKDB_SYSROOT)
if(NOT IS_DIRECTORY "${MDUCKDB_SYSROOT}/usr")
    message(FATAL_ERROR "No libraries for arm64 in '${MDUCKDB_SYSROOT}'. Build with scripts/test --duckdb NAME --arch arm64, "
                        "or give -DMDUCKDB_SYSROOT=FOLDER with the file system of an arm64 machine.")
endif()
set(CMAKE_SYSROOT ${MDUCKDB_SYSROOT})
# Debian's name of the processor; the packages that the sysroot was made of, for the .deb's dependencies.
set(MDUCKDB_DEBIAN_ARCHITECTURE arm64)
set(MDUCKDB_SYSROOT_PACKAGES ${MDUCKDB_SYSROOT}/../packages)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${MDUCKDB_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
