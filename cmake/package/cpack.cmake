# The archive can be unpacked anywhere; the Debian package has a fixed location.
if(CPACK_GENERATOR STREQUAL "TGZ")
    set(CPACK_PACKAGING_INSTALL_PREFIX /)
endif()
