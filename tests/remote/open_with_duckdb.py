"""Opens a database with DuckDB's C library as its own file, and reads a table.

  open_with_duckdb.py LIBRARY DATABASE EXTENSION_FOLDER SECRET_FOLDER QUERY
"""

import ctypes
import sys


def main():
    library, database, extensions, secrets, query = sys.argv[1:]
    duckdb = ctypes.CDLL(library)
    config, engine, connection = ctypes.c_void_p(), ctypes.c_void_p(), ctypes.c_void_p()
    error = ctypes.c_char_p()
    duckdb.duckdb_create_config(ctypes.byref(config))
    for key, value in (("access_mode", "READ_ONLY"), ("extension_directory", extensions), ("secret_directory", secrets)):
        duckdb.duckdb_set_config(config, key.encode(), value.encode())
    if duckdb.duckdb_open_ext(database.encode(), ctypes.byref(engine), config, ctypes.byref(error)) != 0:
        sys.exit(error.value.decode())
    duckdb.duckdb_connect(engine, ctypes.byref(connection))
    if duckdb.duckdb_query(connection, query.encode(), None) != 0:
        sys.exit("The query failed.")
    duckdb.duckdb_disconnect(ctypes.byref(connection))
    duckdb.duckdb_close(ctypes.byref(engine))


if __name__ == "__main__":
    main()
