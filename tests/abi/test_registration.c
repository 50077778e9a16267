#include <stdio.h>
#include <string.h>

#include "check.h"
#include "suites.h"
#include "test_host.h"

static const struct {
    const char* name;
    uint32_t min_args;
    uint32_t max_args;
    const char* signature;
    const char* description;
} kExpected[] = {
    {"fetch_parquet", 1, 4, "uri [, columns [, where [, limit]]]", "Reads a parquet file."},
    {"parquet_schema", 1, 1, "uri", "Returns parquet column schema."},
    {"parquet_metadata", 1, 1, "uri", "Returns parquet file metadata."},
    {"parquet_count", 1, 2, "uri [, where]", "Returns parquet row count."},
    {"fetch_duckdb", 2, 3, "uri, table_or_view [, limit]", "Returns rows from a DuckDB table or view."},
};

static void check_records(void) {
    CHECK_INT(gProcedureCount, 5);
    for (int i = 0; i < gProcedureCount && i < 5; ++i) {
        CHECK_TEXT(gProcedures[i].name, kExpected[i].name);
        CHECK_INT(gProcedures[i].min_args, kExpected[i].min_args);
        CHECK_INT(gProcedures[i].max_args, kExpected[i].max_args);
        CHECK_TEXT(gProcedures[i].signature, kExpected[i].signature);
        CHECK_TEXT(gProcedures[i].description, kExpected[i].description);
        CHECK(gProcedures[i].reserved1 == NULL);
        CHECK(gProcedures[i].reserved2 == NULL);
        CHECK(gProcedures[i].handler != NULL);
    }
}

void test_registration(void) {
    check_begin("five procedures are registered in order, with their texts and bounds");
    check_records();
    CHECK_INT(gLog.reports, 0);
}

void test_refused_registration(void) {
    check_begin("every refused registration is reported to the host, and the next one tried");
    check_records();
    CHECK_INT(gLog.reports, 5);
    CHECK(gLog.reported_to == test_host_handle());
    CHECK_TEXT(gLog.report, "Cannot register fetch_duckdb procedure.");
    CHECK_INT(gLog.report_length, strlen(gLog.report));
    for (int i = 0; i < 5 && i < gLog.reports; ++i) {
        char text[128];
        snprintf(text, sizeof text, "Cannot register %s procedure.", kExpected[i].name);
        CHECK_TEXT(gLog.first_reports[i], text);
    }
}

void test_other_library(const char* text) {
    check_begin("another DuckDB library is reported to the host once, and nothing is registered");
    CHECK_INT(gProcedureCount, 0);
    CHECK_INT(gLog.reports, 1);
    CHECK(gLog.reported_to == test_host_handle());
    CHECK_TEXT(gLog.report, text);
}
