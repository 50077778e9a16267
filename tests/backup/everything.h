#pragma once

namespace mduckdb {

/** Creates one of everything that a DuckDB file can hold. The file's storage version must support VARIANT. */
inline constexpr const char* kEverything = R"sql(
CREATE SCHEMA "s x";
CREATE TYPE mood AS ENUM ('sad', 'it''s');
COMMENT ON TYPE mood IS 'a type';
CREATE SEQUENCE q INCREMENT BY 3 START 7;
COMMENT ON SEQUENCE q IS 'a sequence';
CREATE TABLE parent (id INTEGER PRIMARY KEY, name VARCHAR NOT NULL UNIQUE DEFAULT 'x', CHECK (id > 0));
CREATE TABLE child (id INTEGER DEFAULT nextval('q'), parent INTEGER REFERENCES parent (id), m mood,
    twice INTEGER GENERATED ALWAYS AS (id * 2));
INSERT INTO parent SELECT i, 'n' || i FROM range(1, 1000) r(i);
INSERT INTO child (parent, m) SELECT i, CASE WHEN i % 3 = 0 THEN NULL ELSE 'it''s' END FROM range(1, 1000) r(i);
CREATE TABLE "s x"."t"".é" ("a ""b" INTEGER, "select" VARCHAR);
INSERT INTO "s x"."t"".é" VALUES (1, 'a' || chr(0) || 'b'), (NULL, NULL), (NULL, '');
COMMENT ON TABLE "s x"."t"".é" IS 'it''s a table';
COMMENT ON COLUMN "s x"."t"".é"."select" IS 'a column';
CREATE INDEX ix ON child (parent);
COMMENT ON INDEX ix IS 'an index';
CREATE VIEW late AS SELECT count(*) AS n FROM parent;
CREATE VIEW early AS SELECT n FROM late;
COMMENT ON VIEW early IS 'a view';
CREATE MACRO plus(a, b := 2) AS a + b;
CREATE MACRO rows_of(n) AS TABLE SELECT * FROM range(n);
COMMENT ON MACRO plus IS 'a macro';
CREATE TABLE types AS SELECT * EXCLUDE (small_enum, medium_enum, large_enum) FROM test_all_types();
CREATE TABLE enums AS SELECT small_enum, medium_enum FROM test_all_types();
CREATE TABLE hard (i INTERVAL, z TIMETZ, d DOUBLE, f FLOAT, s STRUCT(i INTERVAL, l INTEGER[]),
    m MAP(VARCHAR, INTERVAL), u UNION(a INTEGER, b VARCHAR), a INTEGER[2], v VARIANT, n TIMESTAMP_NS);
INSERT INTO hard VALUES
    (INTERVAL 1 month, '10:00:00+01', -0.0, 0, {'i': INTERVAL 1 day, 'l': [1, NULL]}, MAP {'a': INTERVAL 1 day}, 1,
        [1, 2], {'a': [1, 2]}::VARIANT, '2024-01-01 00:00:00.123456789'),
    (INTERVAL 1 microsecond, '09:00:00+00', 'nan', '-inf', {'i': NULL, 'l': []}, MAP {}, 'x', NULL, 1::VARIANT, NULL),
    (NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL);
CREATE TABLE only_generated (i INTEGER, j INTEGER GENERATED ALWAYS AS (i + 1));
CREATE TABLE empty (i INTEGER);
)sql";

}  // namespace mduckdb
