# The installed tree. It works from any folder: programs and libraries find each other through $ORIGIN, the CMake and
# pkg-config files through their own location.
#
#   bin/mduckdb-host
#   lib/libmshared.so*            the host foundation
#   lib/mduckdb/                  both modules, and the DuckDB library that they are built on
#   include/nbx, include/mirona   headers of the foundation and of the function table
#   lib/cmake, lib/pkgconfig, share/man, share/doc, completions for bash, zsh and fish
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# A multiarch folder would break the relative paths between packages and tree.
set(MDUCKDB_LIBDIR lib)
set(MDUCKDB_MODULEDIR ${MDUCKDB_LIBDIR}/mduckdb)

set_target_properties(mduckdb mduckdb_casts PROPERTIES INSTALL_RPATH "$ORIGIN:$ORIGIN/..")
set_target_properties(mshared PROPERTIES INSTALL_RPATH "")

install(TARGETS mshared EXPORT mshared-targets
    LIBRARY DESTINATION ${MDUCKDB_LIBDIR}
    INCLUDES DESTINATION include)
install(DIRECTORY mshared/include/ DESTINATION include FILES_MATCHING PATTERN "*.h")
install(TARGETS mduckdb mduckdb_casts EXPORT mduckdb-targets
    LIBRARY DESTINATION ${MDUCKDB_MODULEDIR})
install(FILES ${DuckDB_LIBRARY} DESTINATION ${MDUCKDB_MODULEDIR})
# A stripped installation, as in the packages, strips DuckDB too: CMake strips only its own targets.
get_filename_component(_duckdb_file ${DuckDB_LIBRARY} NAME)
install(CODE "if(CMAKE_INSTALL_DO_STRIP)
    execute_process(COMMAND \"${CMAKE_STRIP}\" \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${MDUCKDB_MODULEDIR}/${_duckdb_file}\"
                    COMMAND_ERROR_IS_FATAL ANY)
endif()")
if(MDUCKDB_HOST)
    set_target_properties(mduckdb-host PROPERTIES INSTALL_RPATH "$ORIGIN/../${MDUCKDB_LIBDIR}")
    install(TARGETS mduckdb-host RUNTIME DESTINATION bin)
    # Compressed, as Debian requires; `man` reads compressed pages everywhere.
    find_program(MDUCKDB_GZIP_PROGRAM gzip REQUIRED)
    mark_as_advanced(MDUCKDB_GZIP_PROGRAM)
    set(_manual ${PROJECT_SOURCE_DIR}/host/mduckdb-host.1)
    add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/package/mduckdb-host.1.gz
        COMMAND ${MDUCKDB_GZIP_PROGRAM} -9nc ${_manual} > mduckdb-host.1.gz
        DEPENDS ${_manual} WORKING_DIRECTORY ${PROJECT_BINARY_DIR}/package VERBATIM)
    add_custom_target(mduckdb-host-manual DEPENDS ${PROJECT_BINARY_DIR}/package/mduckdb-host.1.gz)
    add_dependencies(mduckdb-host mduckdb-host-manual)
    install(FILES ${PROJECT_BINARY_DIR}/package/mduckdb-host.1.gz DESTINATION share/man/man1)
    install(FILES host/completions/mduckdb-host.bash
        DESTINATION share/bash-completion/completions RENAME mduckdb-host)
    install(FILES host/completions/_mduckdb-host DESTINATION share/zsh/site-functions)
    install(FILES host/completions/mduckdb-host.fish DESTINATION share/fish/vendor_completions.d)
endif()

# find_package(mshared) defines mshared::mshared; find_package(mduckdb) defines the modules' files as mduckdb::mduckdb
# and mduckdb::mduckdb_casts.
foreach(package IN ITEMS mshared mduckdb)
    set(destination ${MDUCKDB_LIBDIR}/cmake/${package})
    install(EXPORT ${package}-targets NAMESPACE ${package}:: DESTINATION ${destination})
    configure_package_config_file(cmake/package/${package}-config.cmake.in
        ${PROJECT_BINARY_DIR}/package/${package}-config.cmake
        INSTALL_DESTINATION ${destination} NO_SET_AND_CHECK_MACRO)
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/${package}-config-version.cmake
        COMPATIBILITY SameMinorVersion)
    install(FILES ${PROJECT_BINARY_DIR}/package/${package}-config.cmake
                  ${PROJECT_BINARY_DIR}/package/${package}-config-version.cmake
        DESTINATION ${destination})
endforeach()
configure_file(cmake/package/mshared.pc.in ${PROJECT_BINARY_DIR}/package/mshared.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/mshared.pc DESTINATION ${MDUCKDB_LIBDIR}/pkgconfig)

install(FILES README.md CHANGELOG.md DESTINATION share/doc/mduckdb)
install(DIRECTORY docs examples DESTINATION share/doc/mduckdb USE_SOURCE_PERMISSIONS)
install(FILES cmake/package/copyright DESTINATION share/doc/mduckdb)

# The tests are not installed, so a package need not build them.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CPACK_PACKAGE_NAME mduckdb)
set(CPACK_PACKAGE_VENDOR "mduckdb")
set(CPACK_PACKAGE_CONTACT "mduckdb maintainers <mduckdb@localhost>" CACHE STRING "Maintainer that the package names")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "DuckDB for the Mirona database server")
set(CPACK_PACKAGE_DESCRIPTION
    "An extension module through which the SQL of the Mirona database server
reads Parquet files and creates, reads, backs up and restores DuckDB
databases, with the DuckDB library that it is built on.

Also the foundation library mshared with the headers for hosts in C and C++,
mduckdb-host, a small host for the terminal, documentation and examples.")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION database)
# Empty for the processor of this machine.
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${MDUCKDB_DEBIAN_ARCHITECTURE})
set(CPACK_MDUCKDB_SYSROOT_PACKAGES ${MDUCKDB_SYSROOT_PACKAGES})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
# A package of a host that links mshared gets its dependency on this package from this file.
file(CONFIGURE OUTPUT package/shlibs CONTENT "libmshared 0 mduckdb (>= @PROJECT_VERSION@)\n")
# The dynamic linker's cache knows libmshared after the installation.
file(WRITE ${PROJECT_BINARY_DIR}/package/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_BINARY_DIR}/package/shlibs ${PROJECT_BINARY_DIR}/package/triggers)
# Files of the Debian package alone, see cmake/package/cpack.cmake.
set(CPACK_MDUCKDB_DEBIAN_FILES ${PROJECT_BINARY_DIR}/package/debian_files)
configure_file(cmake/package/changelog.in ${PROJECT_BINARY_DIR}/package/changelog @ONLY)
file(MAKE_DIRECTORY ${CPACK_MDUCKDB_DEBIAN_FILES}/share/doc/mduckdb)
execute_process(COMMAND gzip -9nc ${PROJECT_BINARY_DIR}/package/changelog
                OUTPUT_FILE ${CPACK_MDUCKDB_DEBIAN_FILES}/share/doc/mduckdb/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
configure_file(cmake/package/lintian-overrides ${CPACK_MDUCKDB_DEBIAN_FILES}/share/lintian/overrides/mduckdb COPYONLY)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/package/cpack.cmake)
include(CPack)
