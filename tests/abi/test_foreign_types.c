#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include "check.h"
#include "suites.h"
#include "test_host.h"

/* Types that the host does not know, read from the first cell to the last. */

#define WIDE_ROWS 10000

/* Reads every cell and counts the values of each column that are not null. */
static void read_all(test_cursor* cursor, int64_t* filled) {
    while (next_row(cursor)) {
        for (uint32_t i = 0; i < cursor_columns(cursor); ++i) {
            test_value* cell = get_cell(cursor, (int32_t)i);
            filled[i] += cell != NULL;
            free_value(cell);
        }
    }
}

static int32_t column_of(const test_cursor* cursor, const char* name) {
    for (uint32_t i = 0; i < cursor_columns(cursor); ++i) {
        if (strcmp(column_name(cursor, i), name) == 0) {
            return (int32_t)i;
        }
    }
    CHECK_TEXT("no such column", name);
    return -1;
}

static void check_cell(test_cursor* cursor, const char* name, const char* expected) {
    CHECK_TEXT(cell_text(cursor, column_of(cursor, name)), expected);
}

static void check_own_types(test_cursor* cursor, int64_t row) {
    char text[128];
    snprintf(text, sizeof text, "%" PRId64, row);
    check_cell(cursor, "i", text);
    check_cell(cursor, "n", row % 3 == 0 ? "NULL" : text);
}

/* Row 4998 of the data, after the casts. */
static void check_cast_row(test_cursor* cursor) {
    check_cell(cursor, "d4", "99.799999999999997");
    check_cell(cursor, "d9", "49.979999999999997");
    check_cell(cursor, "d18", "4.9980000000000002");
    check_cell(cursor, "d38", "4.9980000000000002");
    check_cell(cursor, "l", "[4998, 4999]");
    check_cell(cursor, "s", "{'a': 4998, 'b': v4998}");
    check_cell(cursor, "m", "{k=4998}");
    check_cell(cursor, "e", "even");
    check_cell(cursor, "iv", "4998 days");
    check_cell(cursor, "u", "00000000-0000-0000-0000-000000004998");
    check_cell(cursor, "ms", "1970-01-01 01:23:18.000");
    check_cell(cursor, "ns", "1970-01-01 01:23:18.000");
    check_cell(cursor, "tz", "01:02:03.000");
}

/* The same row as DuckDB stores it: cells that do not fit the vector's memory, or are not text, are null. */
static void check_stored_row(test_cursor* cursor) {
    static const char* const kUnreadable[] = {"d4", "d9", "l", "s", "m", "iv", "u"};
    for (size_t i = 0; i < sizeof kUnreadable / sizeof kUnreadable[0]; ++i) {
        check_cell(cursor, kUnreadable[i], "NULL");
    }
    /* The bits of the 64-bit number 4998, which DECIMAL(18,3) stores, read as a double. */
    const int64_t stored = 4998;
    double as_double;
    char text[64];
    memcpy(&as_double, &stored, sizeof as_double);
    snprintf(text, sizeof text, "%.17g", as_double);
    check_cell(cursor, "d18", text);
}

static void test_wide(const char* procedure, const char* file, const char* table) {
    test_cursor* cursor = table == NULL ? call_procedure(procedure, 1, make_text(file))
                                        : call_procedure(procedure, 2, make_text(file), make_text(table));
    if (!CHECK(cursor != NULL)) {
        fprintf(stderr, "%s\n", gLog.report);
        return;
    }
    int64_t filled[64] = {0};
    read_all(cursor, filled);
    CHECK_INT(cursor_rows(cursor), WIDE_ROWS);
    CHECK_INT(filled[column_of(cursor, "t")], WIDE_ROWS);
    CHECK_INT(filled[column_of(cursor, "n")], WIDE_ROWS - 3334);
    static const char* const kForeign[] = {"d4", "d9", "l", "s", "m", "iv", "u"};
    for (size_t i = 0; i < sizeof kForeign / sizeof kForeign[0]; ++i) {
        CHECK_INT(filled[column_of(cursor, kForeign[i])], gCastsModule ? WIDE_ROWS : 0);
    }
    CHECK(go_to_row(cursor, 4998));
    check_own_types(cursor, 4998);
    (gCastsModule ? check_cast_row : check_stored_row)(cursor);
    close_cursor(cursor);
}

static void test_rare(void) {
    check_begin("rare types are delivered, or null where they cannot be read");
    test_cursor* cursor = call_procedure("fetch_duckdb", 2, make_text("items.db"), make_text("rare"));
    if (!CHECK(cursor != NULL) || !CHECK(next_row(cursor))) {
        fprintf(stderr, "%s\n", gLog.report);
        return;
    }
    check_cell(cursor, "j", "{\"a\": 1}");
    check_cell(cursor, "a", gCastsModule ? "[1, 2, 3]" : "NULL");
    check_cell(cursor, "u", gCastsModule ? "1" : "NULL");
    check_cell(cursor, "uh", gCastsModule ? "5" : "NULL");
    if (gCastsModule) {
        check_cell(cursor, "b", "101");
        check_cell(cursor, "n", "123");
        check_cell(cursor, "tn", "01:02:03.000");
        check_cell(cursor, "sec", "2024-03-15 01:02:03.000");
    }
    int64_t filled[64] = {0};
    CHECK(go_to_row(cursor, 0));
    read_all(cursor, filled);
    close_cursor(cursor);
}

/* The cells are 0, three numbers that the type does not allow, -1, a microsecond more than a day, and 1. */
static void test_hostile_cells(const char* name, test_cursor* cursor) {
    if (!CHECK(cursor != NULL)) {
        fprintf(stderr, "%s: %s\n", name, gLog.report);
        return;
    }
    const uint32_t columns = cursor_columns(cursor);
    int64_t rows = 0;
    while (next_row(cursor)) {
        for (uint32_t column = 0; column < columns; ++column) {
            test_value* cell = get_cell(cursor, (int32_t)column);
            CHECK((rows != 0 && rows != 6) || cell != NULL);
            CHECK(rows != 1 || cell == NULL);
            free_value(cell);
        }
        ++rows;
    }
    CHECK_INT(rows, 7);
    close_cursor(cursor);
}

static void test_hostile_table(const char* kind, const char* type) {
    char table[32];
    snprintf(table, sizeof table, "%s_%s", kind, type);
    test_hostile_cells(table, call_procedure("fetch_duckdb", 2, make_text("hostile.db"), make_text(table)));
}

static void test_hostile(void) {
    static const char* const kTypes[] = {"TIME",         "TIME_NS",     "DATE",
                                         "TIMESTAMP",    "TIMESTAMP_S", "TIMESTAMP_MS",
                                         "TIMESTAMP_NS", "TIMESTAMPTZ", "TIMETZ"};
    check_begin("numbers that are no values of their type are null, and the cells beside them are right");
    for (size_t i = 0; i < sizeof kTypes / sizeof kTypes[0]; ++i) {
        test_hostile_table("h", kTypes[i]);
    }
}

/* DuckDB converts dates and timestamps outside their range, and the module without casts has no nested cells.
 */
static void test_hostile_nested(void) {
    static const char* const kTypes[] = {"TIME", "TIME_NS", "TIMETZ", "BIT"};
    check_begin("a nested cell that holds no value of its type is null, and the cells beside it are right");
    for (size_t i = 0; i < sizeof kTypes / sizeof kTypes[0]; ++i) {
        test_hostile_table("n", kTypes[i]);
    }
    test_hostile_table("h", "BIT");
    test_cursor* cursor = call_procedure("fetch_parquet", 1, make_text("hostile.parquet"));
    if (cursor != NULL || strstr(gLog.report, "TIME values must be within a day") == NULL) {
        test_hostile_cells("hostile.parquet", cursor); /* DuckDB 2.0 refuses such a file */
    }
}

void test_foreign_types(void) {
    check_begin("a Parquet file of types that the host does not know is read to its last cell");
    test_wide("fetch_parquet", "wide.parquet", NULL);
    check_begin("a table of types that the host does not know is read to its last cell");
    test_wide("fetch_duckdb", "items.db", "wide");
    test_rare();
    test_hostile();
    if (gCastsModule) {
        test_hostile_nested();
    }
}
