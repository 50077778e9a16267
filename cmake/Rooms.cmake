# A room is a folder of sources that may use only the rooms that it names. Includes name the room ("values/variant.h").
# Each room has its own include root, a folder of the build tree that contains only a link with the room's name. A
# target sees the roots of the rooms that it links, so an include in the wrong direction does not compile. tests/layout
# checks this for every pair of rooms.

# mduckdb_include_root(TARGET ROOM FOLDER): FOLDER becomes visible as ROOM/ to TARGET and to all that link it.
function(mduckdb_include_root target room folder)
    set(root ${PROJECT_BINARY_DIR}/include_roots/${target})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK ${folder} ${root}/${room} SYMBOLIC)
    target_include_directories(${target} PUBLIC ${root})
endfunction()

# mduckdb_room(TARGET ROOM SOURCES source... [USES target...] [PRIVATELY target...])
#
# An object library of the current folder. Rooms that use it also see what it USES, but not what it uses PRIVATELY.
function(mduckdb_room target room)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;USES;PRIVATELY")
    add_library(${target} OBJECT ${arg_SOURCES})
    mduckdb_include_root(${target} ${room} ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${target} PUBLIC ${arg_USES} PRIVATE ${arg_PRIVATELY} mduckdb_warnings)
endfunction()
