// Reads every cell of a query: read.mjs DATABASE MODE < SQL. Prints DuckDB's version, cells and seconds.
import { DuckDBInstance } from '@duckdb/node-api';
import { readFileSync } from 'node:fs';

const [database, mode] = process.argv.slice(2);
const sql = readFileSync(0, 'utf8');
const instance = await DuckDBInstance.create(database, { access_mode: 'READ_ONLY', threads: '1' });
const connection = await instance.connect();

function count(rows) {
  let cells = 0;
  for (const row of rows) {
    for (const value of row) {
      if (value !== undefined) cells++;
    }
  }
  return cells;
}

async function read(query) {
  if (mode === 'getRows') return count(await (await connection.run(query)).getRows());
  let cells = 0;
  for await (const rows of (await connection.stream(query)).yieldRows()) cells += count(rows);
  return cells;
}

const version = (await (await connection.run('SELECT version()')).getRows())[0][0];
await read(`SELECT * FROM (${sql}) LIMIT 10000`);
const start = performance.now();
const cells = await read(sql);
console.log(version, cells, (performance.now() - start) / 1000);
