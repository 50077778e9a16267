#include <stddef.h>

#include "check.h"
#include "suites.h"
#include "test_host.h"

/* The call must fail with one report that is not empty. Takes ownership of the arguments. */
static void check_fails(const char* procedure, uint32_t count, test_value* first, test_value* second,
                        test_value* third) {
    test_value* arguments[3] = {first, second, third};
    test_cursor* cursor = call_with(procedure, count, arguments);
    CHECK(cursor == NULL);
    CHECK_INT(gLog.reports, 1);
    CHECK(gLog.report_length > 0);
    CHECK(gLog.reported_to != NULL && gLog.reported_to != test_host_handle());
    close_cursor(cursor);
}

void test_bad_input(void) {
    static const char* const kBadFiles[] = {"missing.parquet", "truncated.parquet",
                                            "folder.parquet",  "done",
                                            "items.db",        "no/such/folder/*.parquet"};
    static const char* const kProcedures[] = {"fetch_parquet", "parquet_schema", "parquet_metadata",
                                              "parquet_count"};
    check_begin("a file that is missing, cut short, a folder or no Parquet file is DuckDB's error");
    for (size_t i = 0; i < sizeof kBadFiles / sizeof kBadFiles[0]; ++i) {
        for (size_t j = 0; j < sizeof kProcedures / sizeof kProcedures[0]; ++j) {
            check_fails(kProcedures[j], 1, make_text(kBadFiles[i]), NULL, NULL);
        }
    }
    check_begin("an unknown column and a bad condition are DuckDB's errors");
    check_fails("fetch_parquet", 2, make_text("plain.parquet"), make_text("nope"), NULL);
    check_fails("fetch_parquet", 3, make_text("plain.parquet"), make_null(), make_text("a >"));
    check_fails("fetch_parquet", 3, make_text("plain.parquet"), make_null(), make_text("nope = 1"));
    check_fails("fetch_parquet", 3, make_text("plain.parquet"), make_null(), make_text("b::INTEGER = 1"));
    check_fails("parquet_count", 2, make_text("plain.parquet"), make_text(")"), NULL);

    check_begin("text that is cut by a NUL character never passes for a whole query");
    check_fails("fetch_parquet", 1, make_text_of("plain.parquet\0", 14), NULL, NULL);
    check_fails("fetch_parquet", 3, make_text("plain.parquet"), make_null(), make_text_of("a > 1\0", 6));
    check_fails("parquet_schema", 1, make_text_of("plain.parquet\0", 14), NULL, NULL);

    check_begin("a good call after bad ones works");
    test_cursor* cursor = call_procedure("fetch_parquet", 1, make_text("plain.parquet"));
    CHECK(cursor != NULL);
    CHECK_INT(gLog.reports, 0);
    close_cursor(cursor);
}
