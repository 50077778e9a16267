"""Inserts the first rows of a query as parameters: executemany.py DATABASE ROWS < SQL. Prints DuckDB's version, rows
and seconds, those of the transaction around executemany."""

import sys
import time

import duckdb

database, count = sys.argv[1:3]
sql = sys.stdin.read()
source = duckdb.connect(database, read_only=True, config={"threads": "1"})
version = source.execute("SELECT version()").fetchone()[0]
rows = source.execute(f"SELECT * FROM ({sql}) LIMIT {count}").fetchall()

connection = duckdb.connect(config={"threads": "1"})
columns = source.execute(f"DESCRIBE {sql}").fetchall()
connection.execute(f"CREATE TABLE items ({', '.join(f'{name} {kind}' for name, kind, *_ in columns)})")
insert = f"INSERT INTO items VALUES ({', '.join('?' for _ in columns)})"
start = time.perf_counter()
connection.execute("BEGIN")
connection.executemany(insert, rows)
connection.execute("COMMIT")
seconds = time.perf_counter() - start
if connection.execute("SELECT count(*) FROM items").fetchone()[0] != len(rows):
    sys.exit("rows are missing")
print(version, len(rows), seconds)
