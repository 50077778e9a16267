// Appends the rows of a query to a table in memory, row by row: append.mjs < STATEMENTS. Prints DuckDB's version, rows and
// seconds. The statements are those of append.go.
import { DuckDBInstance, DuckDBTypeId } from '@duckdb/node-api';
import { readFileSync } from 'node:fs';

const [prepare, query, verify] = readFileSync(0, 'utf8').split('\n');
const METHODS = {
  [DuckDBTypeId.SMALLINT]: 'appendSmallInt',
  [DuckDBTypeId.INTEGER]: 'appendInteger',
  [DuckDBTypeId.BIGINT]: 'appendBigInt',
  [DuckDBTypeId.DOUBLE]: 'appendDouble',
  [DuckDBTypeId.DECIMAL]: 'appendDecimal',
  [DuckDBTypeId.DATE]: 'appendDate',
  [DuckDBTypeId.VARCHAR]: 'appendVarchar',
};

async function append(connection, table, rows) {
  const appender = await connection.createAppender(table);
  const methods = rows[0].map((_, column) => METHODS[appender.columnType(column).typeId]);
  for (const row of rows) {
    for (let column = 0; column < row.length; column++) appender[methods[column]](row[column]);
    appender.endRow();
  }
  appender.closeSync();
}

const instance = await DuckDBInstance.create(':memory:', { threads: '1' });
const connection = await instance.connect();
await connection.run(prepare);
const rows = await (await connection.run(query)).getRows();
await append(connection, 'warm_up', rows);
const start = performance.now();
await append(connection, 'items', rows);
const seconds = (performance.now() - start) / 1000;
const [[version, stored]] = await (await connection.run(verify)).getRows();
console.log(version, Number(stored), seconds);
