# Finds the DuckDB library and its C and C++ headers, both of the pinned version.
#
#   DuckDB_ROOT   a folder with the library in it or in lib/, and the headers in it or in include/. Without
#                 it: the cache folder that scripts/ fills.
#
# Gives DuckDB::DuckDB (library and duckdb.h) and DuckDB_VERSION.

file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/../scripts/duckdb.pin _pin REGEX "^DUCKDB_VERSION=")
string(REPLACE "DUCKDB_VERSION=" "" DuckDB_PINNED_VERSION "${_pin}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/../scripts/duckdb.pin)

if(NOT DuckDB_ROOT)
    if(DEFINED ENV{XDG_CACHE_HOME} AND NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
        set(_cache "$ENV{XDG_CACHE_HOME}")
    else()
        set(_cache "$ENV{HOME}/.cache")
    endif()
    set(_root "${_cache}/mduckdb/duckdb-${DuckDB_PINNED_VERSION}")
else()
    set(_root "${DuckDB_ROOT}")
endif()

find_path(DuckDB_INCLUDE_DIR duckdb.h PATHS ${_root} PATH_SUFFIXES include src/include NO_DEFAULT_PATH)
find_library(DuckDB_LIBRARY duckdb PATHS ${_root} PATH_SUFFIXES lib NO_DEFAULT_PATH)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(DuckDB
    REQUIRED_VARS DuckDB_LIBRARY DuckDB_INCLUDE_DIR
    REASON_FAILURE_MESSAGE "No DuckDB ${DuckDB_PINNED_VERSION} in '${_root}'. Run scripts/setup, or give \
-DDuckDB_ROOT=FOLDER with lib/libduckdb.so and the DuckDB C and C++ headers in include/.")

if(DuckDB_FOUND AND NOT TARGET DuckDB::DuckDB)
    add_library(DuckDB::DuckDB SHARED IMPORTED)
    set_target_properties(DuckDB::DuckDB PROPERTIES
        IMPORTED_LOCATION ${DuckDB_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${DuckDB_INCLUDE_DIR}
        INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${DuckDB_INCLUDE_DIR})
endif()
