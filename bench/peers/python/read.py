"""Reads every cell of a query: read.py DATABASE MODE < SQL. Prints DuckDB's version, cells and seconds."""

import sys
import time

import duckdb

database, mode = sys.argv[1:3]
sql = sys.stdin.read()
connection = duckdb.connect(database, read_only=True, config={"threads": "1"})
version = connection.execute("SELECT version()").fetchone()[0]
connection.execute(f"SELECT * FROM ({sql}) LIMIT 10000").fetchall()

start = time.perf_counter()
cursor = connection.execute(sql)
cells = 0
if mode == "fetchall":
    rows = cursor.fetchall()
    cells = len(rows) * len(rows[0])
else:
    while rows := cursor.fetchmany(2048):
        for row in rows:
            for value in row:
                cells += 1
print(version, cells, time.perf_counter() - start)
