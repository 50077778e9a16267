#include <stdio.h>
#include <stdlib.h>

#include "check.h"
#include "suites.h"
#include "test_host.h"

#define ROWS 20000

static test_cursor* open_rows(void) {
    return call_procedure("fetch_parquet", 1, make_text("rows.parquet"));
}

/* Whether the current row is the one with this number: the file counts its rows. */
static bool stands_on(test_cursor* cursor, int64_t row) {
    test_value* cell = get_cell(cursor, 0);
    const bool is_there = cell != NULL && cell->int64 == row;
    free_value(cell);
    return is_there;
}

static void test_start_and_end(test_cursor* cursor) {
    check_begin("a new cursor stands on no row");
    CHECK_INT(cursor_rows(cursor), ROWS);
    CHECK(get_cell(cursor, 0) == NULL);

    check_begin("a column that is not there is null");
    CHECK(next_row(cursor));
    CHECK(stands_on(cursor, 0));
    CHECK(get_cell(cursor, 1) == NULL);
    CHECK(get_cell(cursor, -1) == NULL);
    CHECK(get_cell(cursor, INT32_MAX) == NULL);
    CHECK(get_cell(cursor, INT32_MIN) == NULL);

    check_begin("a row that is not there is the end and leaves the position");
    CHECK(go_to_row(cursor, 17));
    CHECK(!go_to_row(cursor, -1));
    CHECK(!go_to_row(cursor, ROWS));
    CHECK(!go_to_row(cursor, INT64_MAX));
    CHECK(!go_to_row(cursor, INT64_MIN));
    CHECK(!go_to_row(cursor, (INT64_C(1) << 32) + 3));
    CHECK(stands_on(cursor, 17));
    CHECK(next_row(cursor));
    CHECK(stands_on(cursor, 18));
    CHECK(go_to_row(cursor, ROWS - 1));
    CHECK(!next_row(cursor));
    CHECK(!next_row(cursor));
    CHECK(stands_on(cursor, ROWS - 1));
}

static void test_walks(test_cursor* cursor) {
    int64_t good = 0;
    check_begin("rows are found forward, backward and in any order over many chunks");
    CHECK(go_to_row(cursor, 0));
    for (int64_t row = 0; row < ROWS; ++row) {
        good += stands_on(cursor, row);
        CHECK_INT(next_row(cursor), row + 1 < ROWS);
    }
    CHECK_INT(good, ROWS);
    for (int64_t row = ROWS - 1; row >= 0; --row) {
        good += go_to_row(cursor, row) && stands_on(cursor, row);
    }
    CHECK_INT(good, 2 * ROWS);
    uint32_t random = 12345;
    for (int i = 0; i < 2000; ++i) {
        random = random * 1664525 + 1013904223;
        const int64_t row = random % ROWS;
        good += go_to_row(cursor, row) && stands_on(cursor, row);
    }
    CHECK_INT(good, 2 * ROWS + 2000);
    static const int64_t kEdges[] = {2047, 2048, 2049, 2047, 0, 4095, 4096, 2999, 3000, 3001, ROWS - 1, 0};
    for (size_t i = 0; i < sizeof kEdges / sizeof kEdges[0]; ++i) {
        CHECK(go_to_row(cursor, kEdges[i]));
        CHECK(stands_on(cursor, kEdges[i]));
    }
}

static void test_sizes(void) {
    static const int64_t kSizes[] = {1, 2047, 2048, 2049, 4096};
    check_begin("results around the size of a chunk are read to their last row");
    for (size_t i = 0; i < sizeof kSizes / sizeof kSizes[0]; ++i) {
        test_cursor* cursor = call_procedure("fetch_parquet", 4, make_text("rows.parquet"), make_null(),
                                             make_null(), make_int(kSizes[i]));
        if (CHECK(cursor != NULL)) {
            int64_t rows = 0;
            while (next_row(cursor)) {
                CHECK(stands_on(cursor, rows));
                ++rows;
            }
            CHECK_INT(rows, kSizes[i]);
            CHECK(!go_to_row(cursor, kSizes[i]));
        }
        close_cursor(cursor);
    }
}

static void test_empty(void) {
    check_begin("a result without rows is at its end at once and keeps its columns");
    test_cursor* cursor = call_procedure("fetch_parquet", 1, make_text("empty.parquet"));
    if (CHECK(cursor != NULL)) {
        CHECK_INT(cursor_rows(cursor), 0);
        CHECK_INT(cursor_columns(cursor), 1);
        CHECK(!next_row(cursor));
        CHECK(!go_to_row(cursor, 0));
        CHECK(get_cell(cursor, 0) == NULL);
    }
    close_cursor(cursor);
}

static void test_refused_cursor(void) {
    check_begin("a cursor that the host refuses is an error, and everything is given back");
    gCreateCursorStatus = 3;
    CHECK(open_rows() == NULL);
    CHECK_INT(gLog.reports, 1);
    CHECK_TEXT(gLog.report, "Unable to create DuckDB cursor.");
    CHECK(call_procedure("fetch_duckdb", 2, make_text("items.db"), make_text("items")) == NULL);
    CHECK_TEXT(gLog.report, "Unable to create DuckDB cursor.");
    gCreateCursorStatus = 0;
}

void test_cursors(void) {
    check_begin("a cursor of many chunks opens");
    test_cursor* cursor = open_rows();
    if (CHECK(cursor != NULL)) {
        test_start_and_end(cursor);
        test_walks(cursor);
    }
    close_cursor(cursor);
    test_sizes();
    test_empty();
    test_refused_cursor();

    check_begin("a cursor can be closed before its first row");
    close_cursor(open_rows());
}
