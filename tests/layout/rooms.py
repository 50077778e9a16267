"""The rooms of the tree, and which room may use which. The build enforces it: rooms_test.py compares the two, so that
an edge cannot appear in a CMakeLists.txt without being written down here.

A room is a folder of sources. Its headers are included by the name of the room: "values/kinds.h".
"""

# Each room with the rooms that it may use; the rooms below those are included.
SRC = {
    "base": (),
    "duckdb_internals": ("base",),
    "backup": ("base", "duckdb_internals"),
    "engines": ("base", "duckdb_internals"),
    "values": ("base", "duckdb_internals"),
    "objects": ("base", "backup", "duckdb_internals", "engines", "values"),
    "procedures": ("base", "duckdb_internals", "engines"),
    "extension": ("base", "backup", "engines", "objects", "procedures"),
}
HOST = {
    "text": (),
    "data": ("text",),
    "print": ("data",),
    "table": ("print",),
    "databases": ("table",),
    "shell": ("databases",),
    "commands": ("shell",),
}
# Folder of the tree -> its rooms.
PARTS = {"src": SRC, "host": HOST}
# The rooms that may include DuckDB's C++ headers.
ON_DUCKDB_CPP = ("duckdb_internals",)


def visible(rooms, room):
    """The rooms whose headers a source of `room` may include, itself among them."""
    seen = {room}
    for used in rooms[room]:
        seen |= visible(rooms, used)
    return seen
