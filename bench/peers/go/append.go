// Appends the rows of a query to a table in memory, row by row. A line each of standard input: the statements that attach the
// query's database and make the tables `warm_up` and `items`, the query, and a query of DuckDB's version and of the number of
// rows that `items` then has as they should be.
package main

import (
	"bufio"
	"context"
	"database/sql"
	"database/sql/driver"
	"fmt"
	"os"
	"time"

	"github.com/duckdb/duckdb-go/v2"
)

func readLine(lines *bufio.Reader) string {
	line, err := lines.ReadString('\n')
	check(err)
	return line
}

func readRows(conn *sql.Conn, query string) [][]driver.Value {
	rows, err := conn.QueryContext(context.Background(), query)
	check(err)
	defer rows.Close()
	names, err := rows.Columns()
	check(err)
	var all [][]driver.Value
	places := make([]any, len(names))
	for rows.Next() {
		row := make([]driver.Value, len(names))
		for i := range row {
			places[i] = &row[i]
		}
		check(rows.Scan(places...))
		all = append(all, row)
	}
	check(rows.Err())
	return all
}

func appendAll(conn *sql.Conn, table string, rows [][]driver.Value) {
	check(conn.Raw(func(raw any) error {
		appender, err := duckdb.NewAppenderFromConn(raw.(driver.Conn), "", table)
		check(err)
		for _, row := range rows {
			check(appender.AppendRow(row...))
		}
		return appender.Close()
	}))
}

func appendRows() {
	lines := bufio.NewReader(os.Stdin)
	db, err := sql.Open("duckdb", "?threads=1")
	check(err)
	conn, err := db.Conn(context.Background())
	check(err)
	_, err = conn.ExecContext(context.Background(), readLine(lines))
	check(err)
	rows := readRows(conn, readLine(lines))
	appendAll(conn, "warm_up", rows)
	start := time.Now()
	appendAll(conn, "items", rows)
	seconds := time.Since(start).Seconds()
	var version string
	var stored int
	check(conn.QueryRowContext(context.Background(), readLine(lines)).Scan(&version, &stored))
	fmt.Println(version, stored, seconds)
}
