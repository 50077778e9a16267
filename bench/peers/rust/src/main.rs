// Reads every cell of a query, or appends rows: peer DATABASE < SQL, peer append < STATEMENTS. Prints DuckDB's version, cells or
// rows, and seconds.
mod append;

use duckdb::{types::Value, AccessMode, Config, Connection};
use std::{env, error::Error, hint::black_box, io::read_to_string, io::stdin, time::Instant};

fn read(connection: &Connection, sql: &str) -> Result<usize, Box<dyn Error>> {
    let mut statement = connection.prepare(sql)?;
    let mut rows = statement.query([])?;
    let columns = rows.as_ref().map_or(0, |s| s.column_count());
    let mut cells = 0;
    while let Some(row) = rows.next()? {
        for column in 0..columns {
            black_box(row.get::<_, Value>(column)?);
        }
        cells += columns;
    }
    Ok(cells)
}

/** DuckDB's version, cells, seconds. */
fn read_cells(database: &str) -> Result<(String, usize, f64), Box<dyn Error>> {
    let sql = read_to_string(stdin())?;
    let config = Config::default().access_mode(AccessMode::ReadOnly)?.threads(1)?;
    let connection = Connection::open_with_flags(database, config)?;
    let version = connection.query_row("SELECT version()", [], |row| row.get(0))?;
    read(&connection, &format!("SELECT * FROM ({sql}) LIMIT 10000"))?;
    let start = Instant::now();
    let cells = read(&connection, &sql)?;
    Ok((version, cells, start.elapsed().as_secs_f64()))
}

fn main() -> Result<(), Box<dyn Error>> {
    let what = env::args().nth(1).ok_or("no database")?;
    let (version, units, seconds) = if what == "append" { append::append_rows()? } else { read_cells(&what)? };
    println!("{version} {units} {seconds}");
    Ok(())
}
