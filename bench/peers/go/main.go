// Reads every cell of a query, or appends rows: peer DATABASE < SQL, peer append < STATEMENTS. Prints DuckDB's version,
// cells or rows, and seconds.
package main

import (
	"database/sql"
	"fmt"
	"io"
	"log"
	"os"
	"time"

	_ "github.com/duckdb/duckdb-go/v2"
)

func check(err error) {
	if err != nil {
		log.Fatal(err)
	}
}

func read(db *sql.DB, query string) int {
	rows, err := db.Query(query)
	check(err)
	defer rows.Close()
	names, err := rows.Columns()
	check(err)
	values := make([]any, len(names))
	places := make([]any, len(names))
	for i := range values {
		places[i] = &values[i]
	}
	cells := 0
	for rows.Next() {
		check(rows.Scan(places...))
		cells += len(values)
	}
	check(rows.Err())
	return cells
}

func readCells(database string) {
	query, err := io.ReadAll(os.Stdin)
	check(err)
	db, err := sql.Open("duckdb", database+"?access_mode=read_only&threads=1")
	check(err)
	var version string
	check(db.QueryRow("SELECT version()").Scan(&version))
	read(db, "SELECT * FROM ("+string(query)+") LIMIT 10000")
	start := time.Now()
	cells := read(db, string(query))
	fmt.Println(version, cells, time.Since(start).Seconds())
}

func main() {
	if os.Args[1] == "append" {
		appendRows()
	} else {
		readCells(os.Args[1])
	}
}
