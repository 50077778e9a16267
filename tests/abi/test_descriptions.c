#include <stddef.h>

#include "check.h"
#include "suites.h"
#include "test_host.h"

static const char* count_of(const char* file, test_value* where) {
    test_cursor* cursor = call_procedure("parquet_count", 2, make_text(file), where);
    const char* text = "(refused)";
    if (cursor != NULL) {
        CHECK_INT(cursor_rows(cursor), 1);
        CHECK_INT(cursor_columns(cursor), 1);
        CHECK_TEXT(column_name(cursor, 0), "count");
        CHECK_INT(cursor->def.columns[0].host_type, MIRONA_TYPE_INT64);
        CHECK(next_row(cursor));
        text = cell_text(cursor, 0);
    }
    close_cursor(cursor);
    return text;
}

static void test_count(void) {
    check_begin("rows are counted, all or those of a condition");
    CHECK_TEXT(count_of("plain.parquet", make_text("a >= 2")), "2");
    CHECK_TEXT(count_of("plain.parquet", make_text("   ")), "3");
    CHECK_TEXT(count_of("plain.parquet", make_null()), "3");
    CHECK_TEXT(count_of("empty.parquet", make_null()), "0");
    test_cursor* cursor = call_procedure("parquet_count", 1, make_text("rows.parquet"));
    if (CHECK(cursor != NULL) && CHECK(next_row(cursor))) {
        CHECK_TEXT(cell_text(cursor, 0), "20000");
    }
    close_cursor(cursor);
}

static const char* const kSchemaColumns[] = {"ordinal",      "name",        "duckdb_type",
                                             "runtime_type", "mirona_type", "mirona_type_name"};
/* TIMESTAMP_MS has become TIMESTAMP when DuckDB reads it back from a Parquet file. */
static const char* const kSchemaRows[][6] = {
    {"1", "dec", "DECIMAL", "DOUBLE", "6", "double"},
    {"2", "ms", "TIMESTAMP", "TIMESTAMP", "5", "datetime"},
    {"3", "l", "LIST", "VARCHAR", "10", "text"},
    {"4", "ns", "TIMESTAMP_NS", "TIMESTAMP", "5", "datetime"},
};

static void test_schema(void) {
    check_begin("the schema has a row a column, with both types and their host type");
    test_cursor* cursor = call_procedure("parquet_schema", 1, make_text("schema.parquet"));
    if (!CHECK(cursor != NULL)) {
        return;
    }
    CHECK(cursor->is_table);
    CHECK_INT(cursor->columns, 6);
    CHECK_INT(cursor->rows, 4);
    for (uint32_t column = 0; column < 6; ++column) {
        CHECK_TEXT(column_name(cursor, column), kSchemaColumns[column]);
        for (uint32_t row = 0; row < 4; ++row) {
            const test_value* value = cursor->values[row * 6 + column];
            CHECK_TEXT(value_as_text(value), kSchemaRows[row][column]);
            CHECK_INT(value->type, column % 4 == 0 ? MIRONA_TYPE_INT64 : MIRONA_TYPE_TEXT);
        }
    }
    close_cursor(cursor);

    check_begin("a table cursor that the host refuses is an error, and nothing is left over");
    gCreateTableCursorStatus = 7;
    CHECK(call_procedure("parquet_schema", 1, make_text("schema.parquet")) == NULL);
    CHECK_TEXT(gLog.report, "Unable to create cursor.");
    CHECK_INT(gLog.reports, 1);
    gCreateTableCursorStatus = 0;
}

static void test_metadata(void) {
    check_begin("the metadata has a row for each column of each row group");
    test_cursor* cursor = call_procedure("parquet_metadata", 1, make_text("rows.parquet"));
    if (!CHECK(cursor != NULL)) {
        return;
    }
    CHECK_TEXT(column_name(cursor, 0), "file_name");
    CHECK(cursor_columns(cursor) > 10);
    uint64_t rows = 0;
    while (next_row(cursor)) {
        CHECK_TEXT(cell_text(cursor, 0), "rows.parquet");
        for (uint32_t i = 0; i < cursor_columns(cursor); ++i) {
            free_value(get_cell(cursor, (int32_t)i));
        }
        ++rows;
    }
    CHECK(rows > 1);
    CHECK_INT(rows, cursor_rows(cursor));
    close_cursor(cursor);
}

void test_descriptions(void) {
    test_count();
    test_schema();
    test_metadata();
}
