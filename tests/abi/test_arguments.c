#include <stdlib.h>
#include <string.h>

#include "check.h"
#include "suites.h"
#include "test_host.h"

/* Rows of plain.parquet under a limit; -1 when the call was refused. Takes ownership of the argument. */
static int64_t rows_under(test_value* limit) {
    test_cursor* cursor =
        call_procedure("fetch_parquet", 4, make_text("plain.parquet"), make_null(), make_null(), limit);
    CHECK((cursor == NULL) == (gLog.reports == 1));
    const int64_t rows = cursor != NULL ? (int64_t)cursor_rows(cursor) : -1;
    close_cursor(cursor);
    return rows;
}

static void test_limits(void) {
    check_begin("a limit is a number or a text of one");
    CHECK_INT(rows_under(make_text(" 2 ")), 2);
    CHECK_INT(rows_under(make_text("12")), 3);
    CHECK_INT(rows_under(make_text("+1")), 1);
    CHECK_INT(rows_under(make_text("002")), 2);
    CHECK_INT(rows_under(make_int(0)), 0);
    CHECK_INT(rows_under(make_int(2)), 2);
    CHECK_INT(rows_under(make_uint(1)), 1);
    CHECK_INT(rows_under(make_null()), 3);
    CHECK_INT(rows_under(NULL), 3);

    check_begin("a limit that is no number is refused with its text");
    CHECK_INT(rows_under(make_text("12abc")), -1);
    CHECK_TEXT(gLog.report, "limit must be an integer");
    CHECK_INT(rows_under(make_text("abc")), -1);
    CHECK_TEXT(gLog.report, "invalid stoll argument");
    CHECK_INT(rows_under(make_text("")), -1);
    CHECK_TEXT(gLog.report, "invalid stoll argument");
    CHECK_INT(rows_under(make_text(" \t ")), -1);
    CHECK_TEXT(gLog.report, "invalid stoll argument");
    CHECK_INT(rows_under(make_text("9223372036854775808")), -1);
    CHECK_TEXT(gLog.report, "stoll argument out of range");
    CHECK_INT(rows_under(make_text_of("1\0002", 3)), -1);
    CHECK_TEXT(gLog.report, "limit must be an integer");
    CHECK_INT(rows_under(make_int(-1)), -1);
    CHECK_TEXT(gLog.report, "limit must not be negative");
    CHECK_INT(rows_under(make_text("-1")), -1);
    CHECK_TEXT(gLog.report, "limit must not be negative");

    check_begin("an unsigned limit is passed on whatever its size");
    CHECK_INT(rows_under(make_uint(INT64_MAX)), 3);
}

static void check_requires_text(const char* procedure, uint32_t count, test_value* uri, const char* report) {
    test_value* arguments[2] = {uri, count > 1 ? make_text("items") : NULL};
    CHECK(call_with(procedure, count, arguments) == NULL);
    CHECK_INT(gLog.reports, 1);
    CHECK_TEXT(gLog.report, report);
    CHECK_INT(gLog.report_length, strlen(report));
}

static void test_missing_texts(void) {
    static const struct {
        const char* procedure;
        uint32_t count;
        const char* report;
    } kCases[] = {
        {"fetch_parquet", 1, "fetch_parquet requires a text argument."},
        {"parquet_schema", 1, "parquet_schema requires a text argument."},
        {"parquet_metadata", 1, "parquet_metadata requires a text argument."},
        {"parquet_count", 1, "parquet_count requires a text argument."},
        {"fetch_duckdb", 2, "fetch_duckdb requires a text argument."},
    };
    check_begin("a null or empty uri is refused by every procedure under its own name");
    for (size_t i = 0; i < sizeof kCases / sizeof kCases[0]; ++i) {
        check_requires_text(kCases[i].procedure, kCases[i].count, make_null(), kCases[i].report);
        check_requires_text(kCases[i].procedure, kCases[i].count, make_text(""), kCases[i].report);
        check_requires_text(kCases[i].procedure, kCases[i].count, NULL, kCases[i].report);
        gGivesNullTexts = true;
        check_requires_text(kCases[i].procedure, kCases[i].count, make_text("x"), kCases[i].report);
        gGivesNullTexts = false;
    }
}

static void check_refused(const char* procedure, uint32_t count, const char* report) {
    test_value* arguments[2] = {count > 0 ? make_text("items.db") : NULL, NULL};
    CHECK(call_with(procedure, count, arguments) == NULL);
    CHECK_INT(gLog.reports, 1);
    CHECK_TEXT(gLog.report, report);
}

static void test_too_few(void) {
    check_begin("a call with too few arguments is refused and reads none that is not there");
    check_refused("fetch_parquet", 0, "fetch_parquet requires parquet file path.");
    check_refused("fetch_duckdb", 0, "fetch_duckdb requires database URI and DuckDB table or view name.");
    check_refused("fetch_duckdb", 1, "fetch_duckdb requires database URI and DuckDB table or view name.");
    check_refused("parquet_schema", 0, "parquet_schema requires a text argument.");
    check_refused("parquet_metadata", 0, "parquet_metadata requires a text argument.");
    check_refused("parquet_count", 0, "parquet_count requires a text argument.");
}

static void test_large_argument(void) {
    const uint64_t length = 1024 * 1024;
    char* text = malloc(length + 1);
    if (text == NULL) {
        abort();
    }
    check_begin("an argument of a megabyte arrives whole");
    memset(text, 'a', length);
    text[length] = '\0';
    CHECK(call_procedure("fetch_parquet", 1, make_text(text)) == NULL);
    CHECK_INT(gLog.reports, 1);

    memset(text, ' ', length);
    memcpy(text + length - 5, "a > 2", 5);
    test_cursor* cursor =
        call_procedure("fetch_parquet", 3, make_text("plain.parquet"), make_null(), make_text(text));
    if (CHECK(cursor != NULL)) {
        CHECK_INT(cursor_rows(cursor), 1);
    }
    close_cursor(cursor);
    free(text);
}

void test_arguments(void) {
    test_limits();
    test_missing_texts();
    test_too_few();
    test_large_argument();
}
