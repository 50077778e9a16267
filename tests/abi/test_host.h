#ifndef MDUCKDB_TESTS_ABI_TEST_HOST_H
#define MDUCKDB_TESTS_ABI_TEST_HOST_H

/* A host in plain C that knows nothing of the module but extension_api.h: its values, its cursors and its
   function table. It counts what it created, so that a test can check that nothing was left over. */

#include <stddef.h>

#include "mirona/extension_api.h"

/* A host value. `type` is a mirona_type; the matching field is set. Texts and blobs have a terminator after
   their length. */
typedef struct test_value {
    uint32_t type;
    int64_t int64;
    uint64_t uint64; /* also packed dates and times, and booleans */
    double number;
    char* bytes;
    uint64_t length;
    struct test_value** items;
    uint32_t item_count;
} test_value;

typedef struct test_cursor {
    bool is_table;
    mirona_cursor_def def;
    /* of a table cursor */
    uint64_t columns;
    uint64_t rows;
    char** names;
    test_value** values;
} test_cursor;

#define TEST_REPORT_SIZE 4096
#define TEST_MAX_PROCEDURES 16

/* What the module did to the host since the last reset. */
typedef struct test_host_log {
    int reports;
    void* reported_to; /* call or host of the last report */
    char report[TEST_REPORT_SIZE];
    uint64_t report_length;
    char first_reports[8][128]; /* the first ones, cut */
    int unexpected_calls;
} test_host_log;

extern test_host_log gLog;
extern mirona_procedure_def gProcedures[TEST_MAX_PROCEDURES];
extern int gProcedureCount;

/* Faults that a test can switch on in the host. */
extern uint32_t gRegisterStatus;
extern uint32_t gCreateCursorStatus;
extern uint32_t gCreateTableCursorStatus;
extern bool gGivesNullTexts;

const mirona_extension_api* test_host_api(void);
void* test_host_handle(void);
/* Live objects: values of arguments and cells, cursors. */
int test_live_values(void);
int test_live_cursors(void);
int test_made_values(void);
int test_made_cursors(void);

test_value* make_null(void);
test_value* make_text(const char* text);
test_value* make_text_of(const char* text, uint64_t length);
test_value* make_int(int64_t value);
test_value* make_uint(uint64_t value);
/* Takes ownership of the items; an item may be a null pointer. */
test_value* make_array(uint32_t count, test_value** items);
void free_value(test_value* value);

/* Calls a registered procedure and releases the arguments. The cursor is null when the call failed; then
   gLog holds the report. */
test_cursor* call_procedure(const char* name, uint32_t count, ...);
test_cursor* call_with(const char* name, uint32_t count, test_value** arguments);
void close_cursor(test_cursor* cursor);

uint64_t cursor_rows(test_cursor* cursor);
uint32_t cursor_columns(const test_cursor* cursor);
/* The name with a terminator, valid until the next call; "" for a column that does not exist. */
const char* column_name(const test_cursor* cursor, uint32_t column);
bool go_to_row(test_cursor* cursor, int64_t row);
bool next_row(test_cursor* cursor);
/* The cell of the current row; free it. */
test_value* get_cell(test_cursor* cursor, int32_t column);
/* The cell as text, valid until the next four calls: numbers in digits, null as NULL, dates as
   2024-03-15. */
const char* cell_text(test_cursor* cursor, int32_t column);
const char* value_as_text(const test_value* value);

#endif
