# A room is a folder of sources that may use the rooms it names, and no other. Includes name the room
# ("values/kinds.h"), and each room has an include root of its own, a folder of the build tree that holds nothing
# but a link with the room's name. A target sees the roots of the rooms that it links, so an include that
# goes the wrong way does not compile.

# mduckdb_include_root(TARGET ROOM FOLDER): FOLDER becomes visible as ROOM/ to TARGET and to all that link it.
function(mduckdb_include_root target room folder)
    set(root ${PROJECT_BINARY_DIR}/include_roots/${target})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK ${folder} ${root}/${room} SYMBOLIC)
    target_include_directories(${target} PUBLIC ${root})
endfunction()

# mduckdb_room(TARGET ROOM SOURCES source... [USES target...] [PRIVATELY target...])
#
# An object library of the current folder. What it uses, those that use it see too, but for what it uses privately.
function(mduckdb_room target room)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;USES;PRIVATELY")
    add_library(${target} OBJECT ${arg_SOURCES})
    mduckdb_include_root(${target} ${room} ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${target} PUBLIC ${arg_USES} PRIVATE ${arg_PRIVATELY} mduckdb_warnings)
endfunction()
