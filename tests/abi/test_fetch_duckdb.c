#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "check.h"
#include "suites.h"
#include "test_host.h"

static int64_t rows_of(const char* file, const char* name) {
    test_cursor* cursor = call_procedure("fetch_duckdb", 2, make_text(file), make_text(name));
    CHECK((cursor == NULL) == (gLog.reports == 1));
    const int64_t rows = cursor != NULL ? (int64_t)cursor_rows(cursor) : -1;
    close_cursor(cursor);
    return rows;
}

static void test_names(void) {
    check_begin("a table or view is found by its plain, qualified or quoted name");
    CHECK_INT(rows_of("items.db", "items"), 5);
    CHECK_INT(rows_of("items.db", "main.items"), 5);
    CHECK_INT(rows_of("items.db", " main . items "), 5);
    CHECK_INT(rows_of("items.db", "\"main\".\"items\""), 5);
    CHECK_INT(rows_of("items.db", "items.main.items"), 5);
    CHECK_INT(rows_of("items.db", "\"my.schema\".\"odd \"\"name\"\"\""), 1);
    CHECK_INT(rows_of("items.db", "few"), 2);
    CHECK_INT(rows_of("items.db", "fewer"), 1);
    CHECK_INT(rows_of("items.db", "of_file"), 3);

    check_begin("a name with an empty part or an open quote is refused");
    static const char* const kBad[] = {".items", "items.", "main..items", "\"items", "main.\"items", " . "};
    for (size_t i = 0; i < sizeof kBad / sizeof kBad[0]; ++i) {
        CHECK_INT(rows_of("items.db", kBad[i]), -1);
        CHECK_TEXT(gLog.report, "Invalid DuckDB table or view name.");
    }
    CHECK_INT(rows_of("items.db", "   "), -1);
    CHECK_TEXT(gLog.report, "fetch_duckdb requires DuckDB table or view name.");
    CHECK_INT(rows_of("items.db", ""), -1);
    CHECK_TEXT(gLog.report, "fetch_duckdb requires a text argument.");

    check_begin("a table that is not there is DuckDB's error");
    CHECK_INT(rows_of("items.db", "nothing"), -1);
    CHECK(strstr(gLog.report, "nothing") != NULL);
    CHECK_INT(rows_of("items.db", "nowhere.items"), -1);

    check_begin("a name cannot end the query and start another");
    CHECK_INT(rows_of("items.db", "items; DROP TABLE items"), -1);
    CHECK_INT(rows_of("items.db", "items"), 5);
}

static void test_limit(void) {
    check_begin("the third argument limits the rows");
    test_cursor* cursor =
        call_procedure("fetch_duckdb", 3, make_text("items.db"), make_text("items"), make_text(" 2 "));
    if (CHECK(cursor != NULL)) {
        CHECK_INT(cursor_rows(cursor), 2);
    }
    close_cursor(cursor);
}

static char* read_file(const char* path, size_t* length) {
    char* bytes = malloc(4 << 20);
    FILE* file = fopen(path, "rb");
    if (bytes == NULL || file == NULL) {
        fprintf(stderr, "cannot read %s\n", path);
        abort();
    }
    *length = fread(bytes, 1, 4 << 20, file);
    fclose(file);
    return bytes;
}

static void test_untouched(void) {
    size_t length, log_length, length_after, log_length_after;
    check_begin("a database with a pending log is read whole, and file and log stay as they were");
    char* before = read_file("log.db", &length);
    char* log_before = read_file("log.db.wal", &log_length);
    CHECK(log_length > 0);
    CHECK_INT(rows_of("log.db", "pending"), 3);
    CHECK_INT(rows_of("log.db", "nothing"), -1);
    char* after = read_file("log.db", &length_after);
    char* log_after = read_file("log.db.wal", &log_length_after);
    CHECK(length == length_after && memcmp(before, after, length) == 0);
    CHECK(log_length == log_length_after && memcmp(log_before, log_after, log_length) == 0);
    free(before);
    free(log_before);
    free(after);
    free(log_after);
}

static void test_unopenable(void) {
    check_begin("a file that is not there is refused and not made");
    CHECK_INT(rows_of("missing.db", "items"), -1);
    CHECK_TEXT(gLog.report, "Unable to open DuckDB database.");
    CHECK(access("missing.db", F_OK) != 0);
    CHECK(access("missing.db.wal", F_OK) != 0);

    check_begin("what is no database is refused");
    CHECK_INT(rows_of("folder.parquet", "items"), -1);
    CHECK_TEXT(gLog.report, "Unable to open DuckDB database.");
    CHECK_INT(rows_of("done", "items"), -1);
    CHECK_TEXT(gLog.report, "Unable to open DuckDB database.");

    check_begin("a path is not cut at a NUL character");
    CHECK(call_procedure("fetch_duckdb", 2, make_text_of("items.db\0x", 10), make_text("items")) == NULL);
    CHECK_TEXT(gLog.report, "Unable to open DuckDB database.");
}

static void test_two_at_once(void) {
    check_begin("two cursors read one file at the same time, and a third after one is closed");
    test_cursor* first = call_procedure("fetch_duckdb", 2, make_text("items.db"), make_text("items"));
    test_cursor* second = call_procedure("fetch_duckdb", 2, make_text("file:items.db"), make_text("few"));
    CHECK(second == NULL); /* not a file URL: a relative path */
    second = call_procedure("fetch_duckdb", 2, make_text("./items.db"), make_text("few"));
    close_cursor(first);
    first = call_procedure("fetch_duckdb", 2, make_text("items.db"), make_text("items"));
    if (CHECK(first != NULL && second != NULL)) {
        CHECK(next_row(first) && next_row(first) && next_row(second));
        CHECK_TEXT(cell_text(first, 1), "item 1");
        CHECK_TEXT(cell_text(second, 1), "item 0");
    }
    close_cursor(second);
    close_cursor(first);
}

void test_fetch_duckdb(void) {
    test_names();
    test_limit();
    test_untouched();
    test_unopenable();
    test_two_at_once();
}
