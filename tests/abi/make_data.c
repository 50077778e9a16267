/* Writes the Parquet files and DuckDB databases of the tests into a folder, replacing existing ones:
   make_data FOLDER. */

#include <duckdb.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static void fail(const char* what, const char* text) {
    fprintf(stderr, "make_data: %s: %s\n", what, text != NULL ? text : "?");
    exit(1);
}

static void run(duckdb_connection connection, const char* sql) {
    duckdb_result result;
    if (duckdb_query(connection, sql, &result) != DuckDBSuccess) {
        fail(sql, duckdb_result_error(&result));
    }
    duckdb_destroy_result(&result);
}

static void run_all(const char* path, const char* const* statements) {
    duckdb_database database = NULL;
    duckdb_connection connection = NULL;
    if (duckdb_open(path, &database) != DuckDBSuccess ||
        duckdb_connect(database, &connection) != DuckDBSuccess) {
        fail("open", path);
    }
    for (; *statements != NULL; ++statements) {
        run(connection, *statements);
    }
    duckdb_disconnect(&connection);
    duckdb_close(&database);
}

/* A row in which every column depends on the row number i, for types that the host does not know too. */
#define WIDE_ROWS                                                                                   \
    "SELECT i::BIGINT AS i, 'text ' || i || repeat('x', (i % 30)::INTEGER) AS t,"                   \
    " (i % 1000 / 10.0)::DECIMAL(4,1) AS d4, (i / 100.0)::DECIMAL(9,2) AS d9,"                      \
    " (i / 1000.0)::DECIMAL(18,3) AS d18, (i / 1000.0)::DECIMAL(38,3) AS d38,"                      \
    " [i, i + 1] AS l, {'a': i, 'b': 'v' || i} AS s, MAP {'k': i} AS m,"                            \
    " (CASE i % 2 WHEN 0 THEN 'even' ELSE 'odd' END)::ENUM('even', 'odd') AS e,"                    \
    " to_days(i::INTEGER) AS iv, (i * 1000000000000)::HUGEINT AS h, ('00000000-0000-0000-0000-' ||" \
    " lpad(i::VARCHAR, 12, '0'))::UUID AS u, epoch_ms(i * 1000)::TIMESTAMP_MS AS ms,"               \
    " epoch_ms(i * 1000)::TIMESTAMP_NS AS ns, '01:02:03+00'::TIMETZ AS tz,"                         \
    " CASE WHEN i % 3 = 0 THEN NULL ELSE i::INTEGER END AS n FROM range(10000) r(i)"

static const char* const kParquetFiles[] = {
    "COPY (SELECT * FROM (VALUES (1, 'one', 1.5::DOUBLE), (2, 'two', 2.5::DOUBLE), (3, NULL, NULL)) v(a, b, "
    "c))"
    " TO 'plain.parquet'",
    "COPY (SELECT 1 AS a) TO 'it''s.parquet'",
    "COPY (SELECT 1 AS \"x,y\", 2 AS \"say \"\"hi\"\"\", 3 AS plain) TO 'names.parquet'",
    "COPY (SELECT 1 AS a WHERE false) TO 'empty.parquet'",
    "COPY (SELECT i::BIGINT AS i FROM range(6000000000) r(i) LIMIT 20000) TO 'rows.parquet' (ROW_GROUP_SIZE "
    "3000)",
    "COPY (SELECT true AS c1, (-128)::TINYINT AS c2, (-32768)::SMALLINT AS c3, (-2147483648)::INTEGER AS c4,"
    " (-9223372036854775807 - 1)::BIGINT AS c5, 255::UTINYINT AS c6, 65535::USMALLINT AS c7,"
    " 4294967295::UINTEGER AS c8, 18446744073709551615::UBIGINT AS c9, 1.5::FLOAT AS c10, (-2.25)::DOUBLE AS "
    "c11,"
    " TIMESTAMP '2024-03-15 13:14:15.678901' AS c12, DATE '2024-03-15' AS c13, TIME '23:59:58.999999' AS c14,"
    " 'a longer text than twelve bytes' AS c17, '\\x00\\xFFab'::BLOB AS c18"
    " UNION ALL SELECT NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, "
    "NULL,"
    " NULL) TO 'types.parquet'",
    "COPY (" WIDE_ROWS ") TO 'wide.parquet' (ROW_GROUP_SIZE 3000)",
    "COPY (SELECT 1.5::DECIMAL(9,2) AS dec, TIMESTAMP_MS '2024-03-15 01:02:03' AS ms, [1, 2] AS l, "
    "TIMESTAMP_NS '2024-03-15 01:02:03' AS ns) TO"
    " 'schema.parquet'",
    NULL,
};

static const char* const kItemsDatabase[] = {
    "CREATE TABLE items AS SELECT i::INTEGER AS id, 'item ' || i AS name FROM range(5) r(i)",
    "CREATE SCHEMA \"my.schema\"",
    "CREATE TABLE \"my.schema\".\"odd \"\"name\"\"\" AS SELECT 7 AS seven",
    "CREATE VIEW few AS SELECT * FROM items WHERE id < 2",
    "CREATE VIEW fewer AS SELECT * FROM few WHERE id < 1",
    "CREATE VIEW of_file AS SELECT a, b FROM read_parquet('plain.parquet')",
    "CREATE TYPE shade AS ENUM ('even', 'odd')",
    "CREATE TABLE wide AS " WIDE_ROWS,
    "CREATE TABLE rare AS SELECT '101'::BIT AS b, 123::BIGNUM AS n, [1,2,3]::INTEGER[3] AS a,"
    " union_value(k := 1) AS u, 5::UHUGEINT AS uh, '{\"a\": 1}'::JSON AS j, '01:02:03.000000001'::TIME_NS AS "
    "tn,"
    " TIMESTAMPTZ '2024-03-15 00:00:00+00' AS tz, TIMESTAMP_S '2024-03-15 01:02:03' AS sec",
    NULL,
};

/* Rows that are only in the write-ahead log. */
static const char* const kLogOnly[] = {
    "PRAGMA disable_checkpoint_on_shutdown",
    "SET wal_autocheckpoint = '1GB'",
    "CREATE TABLE pending AS SELECT i::INTEGER AS id FROM range(3) r(i)",
    NULL,
};

/* --- numbers that their type does not allow --- */

static const int64_t kHostile[] = {0, INT64_MAX, INT64_MIN, INT64_MIN + 1, -1, INT64_C(86400000001), 1};
#define HOSTILE_ROWS (sizeof kHostile / sizeof kHostile[0])

/* Bits and big numbers are texts: a padding of nine bits, one byte alone, and no bytes. */
static const struct {
    const char* bytes;
    idx_t length;
} kHostileBytes[] = {{"\x00\x01", 2},     {"\x09\x01", 2}, {"\x00", 1},    {"", 0},
                     {"\xff\xff\xff", 3}, {"\x08\x00", 2}, {"\x07\xff", 2}};

static void append_raw(duckdb_connection connection, const char* table, duckdb_type type) {
    duckdb_logical_type logical = duckdb_create_logical_type(type);
    duckdb_data_chunk chunk = duckdb_create_data_chunk(&logical, 1);
    duckdb_vector vector = duckdb_data_chunk_get_vector(chunk, 0);
    void* data = duckdb_vector_get_data(vector);
    for (size_t i = 0; i < HOSTILE_ROWS; ++i) {
        if (type == DUCKDB_TYPE_BIT) {
            duckdb_unsafe_vector_assign_string_element_len(vector, i, kHostileBytes[i].bytes,
                                                           kHostileBytes[i].length);
        } else if (type == DUCKDB_TYPE_DATE) {
            ((int32_t*)data)[i] = (int32_t)(kHostile[i] == INT64_MAX       ? INT32_MAX
                                            : kHostile[i] == INT64_MIN     ? INT32_MIN
                                            : kHostile[i] == INT64_MIN + 1 ? INT32_MIN + 1
                                                                           : kHostile[i] % 1000000);
        } else {
            ((int64_t*)data)[i] = kHostile[i];
        }
    }
    duckdb_data_chunk_set_size(chunk, HOSTILE_ROWS);
    duckdb_appender appender = NULL;
    if (duckdb_appender_create(connection, NULL, table, &appender) != DuckDBSuccess ||
        duckdb_append_data_chunk(appender, chunk) != DuckDBSuccess ||
        duckdb_appender_close(appender) != DuckDBSuccess) {
        fail("append", table);
    }
    duckdb_appender_destroy(&appender);
    duckdb_destroy_data_chunk(&chunk);
    duckdb_destroy_logical_type(&logical);
}

static void make_hostile(void) {
    static const struct {
        const char* name;
        duckdb_type type;
    } kFiles[] = {
        {"TIME", DUCKDB_TYPE_TIME},
        {"TIME_NS", DUCKDB_TYPE_TIME_NS},
        {"DATE", DUCKDB_TYPE_DATE},
        {"TIMESTAMP", DUCKDB_TYPE_TIMESTAMP},
        {"TIMESTAMP_S", DUCKDB_TYPE_TIMESTAMP_S},
        {"TIMESTAMP_MS", DUCKDB_TYPE_TIMESTAMP_MS},
        {"TIMESTAMP_NS", DUCKDB_TYPE_TIMESTAMP_NS},
        {"TIMESTAMPTZ", DUCKDB_TYPE_TIMESTAMP_TZ},
        {"TIMETZ", DUCKDB_TYPE_TIME_TZ},
        {"BIT", DUCKDB_TYPE_BIT},
    };
    duckdb_database database = NULL;
    duckdb_connection connection = NULL;
    if (duckdb_open("hostile.db", &database) != DuckDBSuccess ||
        duckdb_connect(database, &connection) != DuckDBSuccess) {
        fail("open", "hostile.db");
    }
    for (size_t i = 0; i < sizeof kFiles / sizeof kFiles[0]; ++i) {
        char sql[256];
        snprintf(sql, sizeof sql, "CREATE TABLE \"h_%s\" (v %s)", kFiles[i].name, kFiles[i].name);
        run(connection, sql);
        snprintf(sql, sizeof sql, "h_%s", kFiles[i].name);
        append_raw(connection, sql, kFiles[i].type);
        snprintf(sql, sizeof sql,
                 "CREATE TABLE \"n_%s\" AS SELECT [v] AS l, {'a': v} AS s, MAP {1: v} AS m, [{'a': [v]}] AS d"
                 " FROM \"h_%s\"",
                 kFiles[i].name, kFiles[i].name);
        run(connection, sql);
    }
    /* DuckDB writes the numbers as they are, and reads them so. */
    run(connection, "COPY n_TIME TO 'hostile.parquet'");
    duckdb_disconnect(&connection);
    duckdb_close(&database);
}

/* The first half of a good file. */
static void make_truncated(void) {
    static char bytes[1 << 20];
    FILE* in = fopen("types.parquet", "rb");
    FILE* out = fopen("truncated.parquet", "wb");
    if (in == NULL || out == NULL) {
        fail("truncated.parquet", NULL);
    }
    const size_t length = fread(bytes, 1, sizeof bytes, in);
    fwrite(bytes, 1, length / 2, out);
    fclose(in);
    fclose(out);
}

int main(int argc, char** argv) {
    if (argc != 2 || (mkdir(argv[1], 0777), chdir(argv[1])) != 0) {
        fail("usage", "make_data FOLDER");
    }
    mkdir("folder.parquet", 0777);
    run_all(NULL, kParquetFiles);
    unlink("items.db");
    run_all("items.db", kItemsDatabase);
    unlink("log.db");
    unlink("log.db.wal");
    run_all("log.db", kLogOnly);
    unlink("hostile.db");
    make_hostile();
    make_truncated();
    fclose(fopen("done", "w")); /* also a file that is neither a database nor Parquet */
    return 0;
}
