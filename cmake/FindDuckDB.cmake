# Finds the DuckDB library and its C and C++ headers. Both must be the pinned version, because the plain functions use
# C++ classes whose layout belongs to one version.
#
#   DuckDB_ROOT   (variable or environment) a folder with the library in it or in lib/, and the headers in
#                 it or in include/. Without it: the cache folder that scripts/setup fills.
#
# Defines DuckDB::DuckDB (library, C and C++ headers), DuckDB::C (the library with duckdb.h alone) and DuckDB_VERSION.

# Which DuckDB: NAME of a scripts/duckdb-NAME.pin.
if("$ENV{MDUCKDB_DUCKDB}" STREQUAL "")
    set(_default 1.5)
else()
    set(_default "$ENV{MDUCKDB_DUCKDB}")
endif()
set(MDUCKDB_DUCKDB "${_default}" CACHE STRING "The DuckDB to build on: NAME of a file scripts/duckdb-NAME.pin")
set(_duckdb_pin ${CMAKE_CURRENT_LIST_DIR}/../scripts/duckdb-${MDUCKDB_DUCKDB}.pin)
if(NOT EXISTS ${_duckdb_pin})
    message(FATAL_ERROR "Unknown DuckDB '${MDUCKDB_DUCKDB}': scripts/duckdb-${MDUCKDB_DUCKDB}.pin does not exist.")
endif()
file(STRINGS ${_duckdb_pin} _pin REGEX "^DUCKDB_VERSION=")
string(REPLACE "DUCKDB_VERSION=" "" DuckDB_PINNED_VERSION "${_pin}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${_duckdb_pin})

if(DuckDB_ROOT)
    set(_root "${DuckDB_ROOT}")
elseif(NOT "$ENV{DuckDB_ROOT}" STREQUAL "")
    set(_root "$ENV{DuckDB_ROOT}")
else()
    if(NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
        set(_cache "$ENV{XDG_CACHE_HOME}")
    else()
        set(_cache "$ENV{HOME}/.cache")
    endif()
    set(_root "${_cache}/mduckdb/duckdb-${DuckDB_PINNED_VERSION}")
endif()

# Forget what was found under another root.
if(NOT "${_root}" STREQUAL "${_DuckDB_FOUND_IN}")
    unset(DuckDB_INCLUDE_DIR CACHE)
    unset(DuckDB_LIBRARY CACHE)
    unset(_DuckDB_LIBRARY_VERSION CACHE)
    set(_DuckDB_FOUND_IN "${_root}" CACHE INTERNAL "")
endif()

find_path(DuckDB_INCLUDE_DIR duckdb.h PATHS ${_root} PATH_SUFFIXES include src/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_library(DuckDB_LIBRARY duckdb PATHS ${_root} PATH_SUFFIXES lib NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
mark_as_advanced(DuckDB_INCLUDE_DIR DuckDB_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(DuckDB
    REQUIRED_VARS DuckDB_LIBRARY DuckDB_INCLUDE_DIR
    REASON_FAILURE_MESSAGE "No DuckDB ${DuckDB_PINNED_VERSION} in '${_root}'. Run scripts/setup, or give \
-DDuckDB_ROOT=FOLDER with lib/libduckdb.so and the DuckDB C and C++ headers in include/.")

# The version of the headers: the file that scripts/setup wrote next to them after checking their source. Headers from
# elsewhere have only what duckdb.h states, which is wrong if duckdb_v2.h is next to it: the duckdb.h of 2.0.0 calls
# itself 1.5.6.
function(_duckdb_header_version result)
    if(EXISTS ${DuckDB_INCLUDE_DIR}/duckdb_source_version.h)
        file(STRINGS ${DuckDB_INCLUDE_DIR}/duckdb_source_version.h line REGEX "^#define DUCKDB_SOURCE_VERSION")
        string(REGEX REPLACE "^[^\"]*\"([^\"]*)\".*$" "\\1" version "${line}")
        set(${result} "${version}" PARENT_SCOPE)
        return()
    endif()
    if(EXISTS ${DuckDB_INCLUDE_DIR}/duckdb_v2.h)
        set(${result} "unknown" PARENT_SCOPE)
        return()
    endif()
    set(parts "")
    foreach(part MAJOR MINOR PATCH)
        file(STRINGS ${DuckDB_INCLUDE_DIR}/duckdb.h line
             REGEX "^#define DUCKDB_API_VERSION_${part} [0-9]+" LIMIT_COUNT 1)
        string(REGEX MATCH "[0-9]+$" number "${line}")
        list(APPEND parts "${number}")
    endforeach()
    list(JOIN parts "." version)
    set(${result} "${version}" PARENT_SCOPE)
endfunction()

# The version that the library reports, queried once for each root.
function(_duckdb_library_version)
    set(source ${CMAKE_BINARY_DIR}/CMakeFiles/duckdb_version.c)
    file(WRITE ${source} "#include <stdio.h>\nextern const char *duckdb_library_version(void);\n"
                         "int main(void) { return puts(duckdb_library_version()) < 0; }\n")
    try_run(run_code is_built ${CMAKE_BINARY_DIR}/CMakeFiles/duckdb_version ${source}
            LINK_LIBRARIES ${DuckDB_LIBRARY}
            RUN_OUTPUT_VARIABLE output COMPILE_OUTPUT_VARIABLE compile_output)
    if(NOT is_built OR NOT run_code EQUAL 0)
        message(FATAL_ERROR "${DuckDB_LIBRARY} cannot be loaded:\n${compile_output}${output}")
    endif()
    string(STRIP "${output}" output)
    string(REGEX REPLACE "^v" "" output "${output}")
    set(_DuckDB_LIBRARY_VERSION "${output}" CACHE INTERNAL "")
endfunction()

if(DuckDB_FOUND)
    _duckdb_header_version(DuckDB_VERSION)
    if(NOT DEFINED CACHE{_DuckDB_LIBRARY_VERSION})
        _duckdb_library_version()
    endif()
    if(NOT DuckDB_VERSION STREQUAL _DuckDB_LIBRARY_VERSION)
        message(FATAL_ERROR "The DuckDB headers in ${DuckDB_INCLUDE_DIR} are of version ${DuckDB_VERSION}, "
                            "and ${DuckDB_LIBRARY} is ${_DuckDB_LIBRARY_VERSION}. Both must be the same. Where the "
                            "headers are known to be right, a file duckdb_source_version.h beside them says so: "
                            "#define DUCKDB_SOURCE_VERSION \"${_DuckDB_LIBRARY_VERSION}\"")
    endif()
    if(NOT DuckDB_VERSION STREQUAL DuckDB_PINNED_VERSION)
        message(FATAL_ERROR "DuckDB ${DuckDB_PINNED_VERSION} is needed (scripts/duckdb-${MDUCKDB_DUCKDB}.pin), and "
                            "${_root} has ${DuckDB_VERSION}.")
    endif()
    if(NOT EXISTS ${DuckDB_INCLUDE_DIR}/duckdb/main/capi/capi_internal.hpp)
        message(FATAL_ERROR "${DuckDB_INCLUDE_DIR} has duckdb.h, but not the C++ headers beside it "
                            "(duckdb/main/capi/capi_internal.hpp and the rest of DuckDB's src/include).")
    endif()
endif()

if(DuckDB_FOUND AND NOT TARGET DuckDB::DuckDB)
    # The headers have the same path in every build folder, so that an object that uses none of them is the same too.
    set(_duckdb_all ${PROJECT_BINARY_DIR}/include_roots/duckdb)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/include_roots)
    file(CREATE_LINK ${DuckDB_INCLUDE_DIR} ${_duckdb_all} SYMBOLIC)
    add_library(DuckDB::DuckDB SHARED IMPORTED)
    set_target_properties(DuckDB::DuckDB PROPERTIES
        IMPORTED_LOCATION ${DuckDB_LIBRARY}
        IMPORTED_SONAME libduckdb.so
        INTERFACE_INCLUDE_DIRECTORIES ${_duckdb_all}
        INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${_duckdb_all})
endif()

if(DuckDB_FOUND AND NOT TARGET DuckDB::C)
    set(_duckdb_c ${PROJECT_BINARY_DIR}/include_roots/duckdb_c)
    file(MAKE_DIRECTORY ${_duckdb_c})
    file(CREATE_LINK ${DuckDB_INCLUDE_DIR}/duckdb.h ${_duckdb_c}/duckdb.h SYMBOLIC)
    if(EXISTS ${DuckDB_INCLUDE_DIR}/duckdb_source_version.h)
        file(CREATE_LINK ${DuckDB_INCLUDE_DIR}/duckdb_source_version.h ${_duckdb_c}/duckdb_source_version.h SYMBOLIC)
    else()
        file(CONFIGURE OUTPUT ${_duckdb_c}/duckdb_source_version.h
             CONTENT "#define DUCKDB_SOURCE_VERSION \"${DuckDB_VERSION}\"\n")
    endif()
    add_library(DuckDB::C SHARED IMPORTED)
    set_target_properties(DuckDB::C PROPERTIES
        IMPORTED_LOCATION ${DuckDB_LIBRARY}
        IMPORTED_SONAME libduckdb.so
        INTERFACE_INCLUDE_DIRECTORIES ${_duckdb_c}
        INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${_duckdb_c})
endif()
