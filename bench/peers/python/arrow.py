"""Reads a query's record batches to the end with pyarrow: arrow.py DATABASE MODE RUNS < SQL. Prints DuckDB's version, the cells
and the seconds of the fastest of the runs after the first. A VARIANT is read as JSON, since this client exports none."""

import sys
import time

import duckdb
import pyarrow  # noqa: F401, loaded before the clock starts

database, mode, runs = sys.argv[1:4]
sql = sys.stdin.read()
connection = duckdb.connect(database, read_only=True, config={"threads": "1"})
version = connection.execute("SELECT version()").fetchone()[0]
columns = connection.execute(f"DESCRIBE {sql}").fetchall()
items = [f"{name}::JSON AS {name}" if kind == "VARIANT" else name for name, kind, *_ in columns]
sql = f"SELECT {', '.join(items)} FROM ({sql})"


def read(query):
    result = connection.execute(query)
    if mode == "to_arrow_table":
        table = result.to_arrow_table()
        return table.num_rows * table.num_columns
    return sum(batch.num_rows * batch.num_columns for batch in result.to_arrow_reader())


read(sql)
seconds = []
for _ in range(int(runs) - 1):
    start = time.perf_counter()
    cells = read(sql)
    seconds.append(time.perf_counter() - start)
print(version, cells, min(seconds))
