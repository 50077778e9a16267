// Reads every cell of a query: read.mjs DATABASE < SQL. Prints cells and seconds.
import { DuckDBInstance } from '@duckdb/node-api';
import { readFileSync } from 'node:fs';

const sql = readFileSync(0, 'utf8');
const instance = await DuckDBInstance.create(process.argv[2], { access_mode: 'READ_ONLY', threads: '1' });
const connection = await instance.connect();
await (await connection.run(`SELECT * FROM (${sql}) LIMIT 10000`)).getRows();

const start = performance.now();
const rows = await (await connection.run(sql)).getRows();
let cells = 0;
for (const row of rows) {
  for (const value of row) {
    if (value !== undefined) cells++;
  }
}
console.log(cells, (performance.now() - start) / 1000);
