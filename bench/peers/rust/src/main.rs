// Reads every cell of a query: peer DATABASE < SQL. Prints DuckDB's version, cells and seconds.
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

fn main() -> Result<(), Box<dyn Error>> {
    let sql = read_to_string(stdin())?;
    let config = Config::default().access_mode(AccessMode::ReadOnly)?.threads(1)?;
    let connection = Connection::open_with_flags(env::args().nth(1).ok_or("no database")?, config)?;
    let version: String = connection.query_row("SELECT version()", [], |row| row.get(0))?;
    read(&connection, &format!("SELECT * FROM ({sql}) LIMIT 10000"))?;
    let start = Instant::now();
    let cells = read(&connection, &sql)?;
    println!("{} {} {}", version, cells, start.elapsed().as_secs_f64());
    Ok(())
}
