#ifndef MDUCKDB_TESTS_ABI_CHECK_H
#define MDUCKDB_TESTS_ABI_CHECK_H

/* Checks of the plain C tests: a failed check is printed and counted, and the test continues. */

#include <stdbool.h>
#include <stdint.h>

bool check_that(bool holds, const char* what, const char* file, int line);
bool check_int(int64_t found, int64_t expected, const char* what, const char* file, int line);
bool check_text(const char* found, const char* expected, const char* what, const char* file, int line);

#define CHECK(condition) check_that((condition), #condition, __FILE__, __LINE__)
#define CHECK_INT(found, expected) \
    check_int((int64_t)(found), (int64_t)(expected), #found, __FILE__, __LINE__)
#define CHECK_TEXT(found, expected) check_text((found), (expected), #found, __FILE__, __LINE__)

/* Prints what is being tested when a check fails; the text must stay. */
void check_begin(const char* test_name);
int check_failures(void);
int check_count(void);

#endif
