# The archive can be unpacked anywhere; the Debian package has a fixed location, and files that only Debian reads.
if(CPACK_GENERATOR STREQUAL "TGZ")
    set(CPACK_PACKAGING_INSTALL_PREFIX /)
endif()
if(CPACK_GENERATOR STREQUAL "DEB")
    list(APPEND CPACK_INSTALLED_DIRECTORIES ${CPACK_MDUCKDB_DEBIAN_FILES} ${CPACK_PACKAGING_INSTALL_PREFIX})
    # It is compressed when it is complete.
    set(CPACK_DEBIAN_COMPRESSION_TYPE none)
    set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/rebuild_deb.cmake)
endif()
