-- How the files of this folder were made, with DuckDB 1.5.6, in an empty folder.
SET threads = 1;
ATTACH 'small.db' AS small (BLOCK_SIZE 16384);
CREATE TABLE small.t (i INTEGER PRIMARY KEY, s VARCHAR, d DECIMAL(18,3), l INTEGER[], u STRUCT(a DATE, b VARCHAR), e ENUM('a','b'));
INSERT INTO small.t SELECT range, 'text ' || range, range / 3, [range, NULL], {'a': DATE '2024-01-31', 'b': 'x'}, CASE WHEN range % 2 = 0 THEN 'a' ELSE 'b' END FROM range(300);
CREATE VIEW small.v AS SELECT i, s FROM small.t WHERE i < 100;
CREATE INDEX by_text ON small.t (s);
CREATE SEQUENCE small.q;
CREATE MACRO small.m(x) AS x + 1;
DELETE FROM small.t WHERE i % 7 = 0;
CHECKPOINT small;
COPY (SELECT range::INTEGER AS i, 'text ' || range AS s, (range / 3)::DECIMAL(18,3) AS d, [range, NULL] AS l, {'a': DATE '2024-01-31', 'b': TIME '12:00:00'} AS u, '\x00\xFF'::BLOB AS b, TIMESTAMPTZ '2024-01-31 12:00:00+00' AS z FROM range(40)) TO 'small.parquet' (ROW_GROUP_SIZE 2048);
DETACH small;
