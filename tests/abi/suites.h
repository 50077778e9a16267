#ifndef MDUCKDB_TESTS_ABI_SUITES_H
#define MDUCKDB_TESTS_ABI_SUITES_H

#include <stdbool.h>

/* Whether the module under test casts the types that the host does not know. */
extern bool gCastsModule;

void test_registration(void);
void test_refused_registration(void);
void test_other_library(const char* text);
void test_arguments(void);
void test_fetch_parquet(void);
void test_descriptions(void);
void test_fetch_duckdb(void);
void test_cursors(void);
void test_bad_input(void);
void test_foreign_types(void);

#endif
