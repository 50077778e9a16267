module mduckdb/bench/peer

go 1.24

require github.com/duckdb/duckdb-go/v2 v2.10506.0
