#include <stddef.h>

#include "check.h"
#include "suites.h"
#include "test_host.h"

/* Checks the names of the columns that a column list selects; ends with a null pointer. */
static void check_columns(const char* file, test_value* list, const char* const* names) {
    test_cursor* cursor = call_procedure("fetch_parquet", 2, make_text(file), list);
    if (!CHECK(cursor != NULL)) {
        return;
    }
    uint32_t count = 0;
    for (; names[count] != NULL; ++count) {
        CHECK_TEXT(column_name(cursor, count), names[count]);
    }
    CHECK_INT(cursor_columns(cursor), count);
    close_cursor(cursor);
}

static void test_column_lists(void) {
    static const char* const kAll[] = {"a", "b", "c", NULL};
    static const char* const kTwo[] = {"b", "a", NULL};
    static const char* const kComma[] = {"x,y", "say \"hi\"", NULL};
    const char* file = "plain.parquet";

    check_begin("a star, blanks, null and arrays of nothing select every column");
    check_columns(file, make_text("*"), kAll);
    check_columns(file, make_text(" * "), kAll);
    check_columns(file, make_text(""), kAll);
    check_columns(file, make_text("   "), kAll);
    check_columns(file, make_text(" , ,"), kAll);
    check_columns(file, make_null(), kAll);
    check_columns(file, NULL, kAll);
    check_columns(file, make_array(0, NULL), kAll);
    test_value* nothing[] = {make_null(), NULL, make_text(""), make_text("  ")};
    check_columns(file, make_array(4, nothing), kAll);

    check_begin("a text list is split at commas and trimmed, and keeps its order");
    check_columns(file, make_text(" b , , a "), kTwo);
    test_value* names[] = {make_text(" b "), make_null(), make_text("a")};
    check_columns(file, make_array(3, names), kTwo);

    check_begin("an array names columns with commas and quotes");
    test_value* odd[] = {make_text("x,y"), make_text("say \"hi\"")};
    check_columns("names.parquet", make_array(2, odd), kComma);

    check_begin("a name that was given quoted is quoted again and so is not found");
    CHECK(call_procedure("fetch_parquet", 2, make_text(file), make_text("\"a\"")) == NULL);
    CHECK_INT(gLog.reports, 1);
}

static int64_t rows_where(test_value* where) {
    test_cursor* cursor = call_procedure("fetch_parquet", 3, make_text("plain.parquet"), make_null(), where);
    const int64_t rows = cursor != NULL ? (int64_t)cursor_rows(cursor) : -1;
    close_cursor(cursor);
    return rows;
}

static void test_conditions(void) {
    check_begin("a condition is taken as it stands, a blank one is none");
    CHECK_INT(rows_where(make_text("a > 1")), 2);
    CHECK_INT(rows_where(make_text("  b = 'two'  ")), 1);
    CHECK_INT(rows_where(make_text("   ")), 3);
    CHECK_INT(rows_where(make_null()), 3);
    CHECK_INT(rows_where(NULL), 3);

    check_begin("a condition may name a column that is not selected");
    test_cursor* cursor =
        call_procedure("fetch_parquet", 3, make_text("plain.parquet"), make_text("b"), make_text("a = 2"));
    if (CHECK(cursor != NULL) && CHECK(next_row(cursor))) {
        CHECK_TEXT(cell_text(cursor, 0), "two");
    }
    close_cursor(cursor);
}

typedef struct expected_column {
    const char* name;
    uint32_t duckdb_type;
    uint32_t host_type;
    const char* text;
} expected_column;

static const expected_column kExpectedColumns[] = {
    {"c1", 1, MIRONA_TYPE_BOOL, "true"},
    {"c2", 2, MIRONA_TYPE_INT64, "-128"},
    {"c3", 3, MIRONA_TYPE_INT64, "-32768"},
    {"c4", 4, MIRONA_TYPE_INT64, "-2147483648"},
    {"c5", 5, MIRONA_TYPE_INT64, "-9223372036854775808"},
    {"c6", 6, MIRONA_TYPE_UINT64, "255"},
    {"c7", 7, MIRONA_TYPE_UINT64, "65535"},
    {"c8", 8, MIRONA_TYPE_UINT64, "4294967295"},
    {"c9", 9, MIRONA_TYPE_UINT64, "18446744073709551615"},
    {"c10", 10, MIRONA_TYPE_DOUBLE, "1.5"},
    {"c11", 11, MIRONA_TYPE_DOUBLE, "-2.25"},
    {"c12", 12, MIRONA_TYPE_DATETIME, "2024-03-15 13:14:15.678"},
    {"c13", 13, MIRONA_TYPE_DATE, "2024-03-15"},
    {"c14", 14, MIRONA_TYPE_TIME, "23:59:58.999"},
    {"c17", 17, MIRONA_TYPE_TEXT, "a longer text than twelve bytes"},
};
#define TYPE_COUNT ((uint32_t)(sizeof kExpectedColumns / sizeof kExpectedColumns[0]))

static void check_blob(test_cursor* cursor) {
    test_value* blob = get_cell(cursor, TYPE_COUNT);
    if (CHECK(blob != NULL)) {
        CHECK_INT(blob->type, MIRONA_TYPE_BINARY);
        CHECK_INT(blob->length, 4);
        CHECK(blob->bytes[0] == '\0' && blob->bytes[1] == '\xFF' && blob->bytes[2] == 'a' &&
              blob->bytes[3] == 'b');
    }
    free_value(blob);
}

static void test_types(void) {
    check_begin("every type that the host knows arrives as itself, and NULL as null");
    test_cursor* cursor = call_procedure("fetch_parquet", 1, make_text("types.parquet"));
    if (!CHECK(cursor != NULL)) {
        return;
    }
    CHECK_INT(cursor_columns(cursor), TYPE_COUNT + 1);
    CHECK(next_row(cursor));
    for (uint32_t i = 0; i < TYPE_COUNT; ++i) {
        CHECK_TEXT(column_name(cursor, i), kExpectedColumns[i].name);
        CHECK_INT(cursor->def.columns[i].duckdb_type, kExpectedColumns[i].duckdb_type);
        CHECK_INT(cursor->def.columns[i].host_type, kExpectedColumns[i].host_type);
        CHECK_TEXT(cell_text(cursor, (int32_t)i), kExpectedColumns[i].text);
        test_value* cell = get_cell(cursor, (int32_t)i);
        CHECK_INT(cell != NULL ? cell->type : 0, kExpectedColumns[i].host_type);
        free_value(cell);
    }
    check_blob(cursor);
    CHECK(next_row(cursor));
    for (uint32_t i = 0; i <= TYPE_COUNT; ++i) {
        CHECK(get_cell(cursor, (int32_t)i) == NULL);
    }
    CHECK(!next_row(cursor));
    close_cursor(cursor);
}

static void test_packed_date(void) {
    check_begin("a date is packed as day, month and year from the lowest bit up");
    test_cursor* cursor = call_procedure("fetch_parquet", 2, make_text("types.parquet"), make_text("c13"));
    if (CHECK(cursor != NULL) && CHECK(next_row(cursor))) {
        test_value* date = get_cell(cursor, 0);
        CHECK_INT(date != NULL ? date->uint64 : 0, 2024 << 9 | 3 << 5 | 15);
        free_value(date);
    }
    close_cursor(cursor);
}

void test_fetch_parquet(void) {
    test_column_lists();
    test_conditions();
    test_types();
    test_packed_date();

    check_begin("a quote in the uri is part of the file's name");
    test_cursor* cursor = call_procedure("fetch_parquet", 1, make_text("it's.parquet"));
    if (CHECK(cursor != NULL)) {
        CHECK_INT(cursor_rows(cursor), 1);
    }
    close_cursor(cursor);
}
