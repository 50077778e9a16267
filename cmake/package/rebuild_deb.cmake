# Runs after cpack has built the .deb: removes the scripts that call ldconfig, which cpack always adds. The trigger of
# the package does it, as Debian wants it.
find_program(_dpkg_deb dpkg-deb REQUIRED)
foreach(_file IN LISTS CPACK_PACKAGE_FILES)
    if(_file MATCHES "\\.deb$")
        set(_tree ${CPACK_TEMPORARY_DIRECTORY}/rebuilt)
        file(REMOVE_RECURSE ${_tree})
        execute_process(COMMAND ${_dpkg_deb} --raw-extract ${_file} ${_tree} COMMAND_ERROR_IS_FATAL ANY)
        file(REMOVE ${_tree}/DEBIAN/postinst ${_tree}/DEBIAN/postrm)
        execute_process(COMMAND ${_dpkg_deb} --root-owner-group -Zgzip --build ${_tree} ${_file}
                        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
        file(REMOVE_RECURSE ${_tree})
    endif()
endforeach()
