// Appends the rows of a query to a table in memory, row by row: peer append < STATEMENTS. The statements are those of append.go.
use duckdb::{appender_params_from_iter, types::Value, Config, Connection};
use std::{error::Error, io::stdin, time::Instant};

fn read_line() -> Result<String, Box<dyn Error>> {
    let mut line = String::new();
    stdin().read_line(&mut line)?;
    Ok(line)
}

fn read_rows(connection: &Connection, sql: &str) -> duckdb::Result<Vec<Vec<Value>>> {
    let mut statement = connection.prepare(sql)?;
    let mut rows = statement.query([])?;
    let columns = rows.as_ref().map_or(0, |s| s.column_count());
    let mut all = Vec::new();
    while let Some(row) = rows.next()? {
        all.push((0..columns).map(|column| row.get(column)).collect::<duckdb::Result<Vec<Value>>>()?);
    }
    Ok(all)
}

fn append(connection: &Connection, table: &str, rows: &[Vec<Value>]) -> duckdb::Result<()> {
    let mut appender = connection.appender(table)?;
    appender.append_rows(rows.iter().map(appender_params_from_iter))?;
    appender.flush()
}

/** DuckDB's version, rows, seconds. */
pub fn append_rows() -> Result<(String, usize, f64), Box<dyn Error>> {
    let connection = Connection::open_in_memory_with_flags(Config::default().threads(1)?)?;
    connection.execute_batch(&read_line()?)?;
    let rows = read_rows(&connection, &read_line()?)?;
    append(&connection, "warm_up", &rows)?;
    let start = Instant::now();
    append(&connection, "items", &rows)?;
    let seconds = start.elapsed().as_secs_f64();
    let (version, stored) = connection.query_row(&read_line()?, [], |row| Ok((row.get(0)?, row.get(1)?)))?;
    Ok((version, stored, seconds))
}
