# The archive is a tree to unpack anywhere; the Debian package has its fixed place.
if(CPACK_GENERATOR STREQUAL "TGZ")
    set(CPACK_PACKAGING_INSTALL_PREFIX /)
endif()
