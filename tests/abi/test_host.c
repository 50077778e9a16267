#include "test_host.h"

#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

test_host_log gLog;
mirona_procedure_def gProcedures[TEST_MAX_PROCEDURES];
int gProcedureCount = 0;
uint32_t gRegisterStatus = 0;
uint32_t gCreateCursorStatus = 0;
uint32_t gCreateTableCursorStatus = 0;
bool gGivesNullTexts = false;

/* The call handle that procedures receive: a mark and the number of arguments. */
typedef struct test_call {
    uint32_t mark;
    uint32_t count;
} test_call;
#define CALL_MARK UINT32_C(0x43414C4C)

static test_call gCall = {CALL_MARK, 0};
static int gHost;
static int gMadeValues, gFreedValues, gMadeCursors, gFreedCursors;

static void fail_host(const char* what) {
    ++gLog.unexpected_calls;
    fprintf(stderr, "host: %s\n", what);
}

/* --- values --- */

static test_value* new_value(uint32_t type) {
    test_value* value = calloc(1, sizeof *value);
    if (value == NULL) {
        abort();
    }
    value->type = type;
    ++gMadeValues;
    return value;
}

static test_value* new_bytes(uint32_t type, const void* bytes, uint64_t length) {
    test_value* value = new_value(type);
    value->bytes = malloc(length + 1);
    if (value->bytes == NULL) {
        abort();
    }
    if (length != 0) {
        memcpy(value->bytes, bytes, length);
    }
    value->bytes[length] = '\0';
    value->length = length;
    return value;
}

test_value* make_null(void) {
    return new_value(MIRONA_TYPE_NULL);
}
test_value* make_text(const char* text) {
    return new_bytes(MIRONA_TYPE_TEXT, text, strlen(text));
}
test_value* make_text_of(const char* text, uint64_t length) {
    return new_bytes(MIRONA_TYPE_TEXT, text, length);
}

test_value* make_int(int64_t number) {
    test_value* value = new_value(MIRONA_TYPE_INT64);
    value->int64 = number;
    return value;
}

test_value* make_uint(uint64_t number) {
    test_value* value = new_value(MIRONA_TYPE_UINT64);
    value->uint64 = number;
    return value;
}

test_value* make_array(uint32_t count, test_value** items) {
    test_value* value = new_value(MIRONA_TYPE_ARRAY);
    value->items = calloc(count + 1, sizeof *value->items);
    if (value->items == NULL) {
        abort();
    }
    for (uint32_t i = 0; i < count; ++i) {
        value->items[i] = items[i];
    }
    value->item_count = count;
    return value;
}

void free_value(test_value* value) {
    if (value == NULL) {
        return;
    }
    for (uint32_t i = 0; i < value->item_count; ++i) {
        free_value(value->items[i]);
    }
    free(value->items);
    free(value->bytes);
    free(value);
    ++gFreedValues;
}

int test_live_values(void) {
    return gMadeValues - gFreedValues;
}
int test_live_cursors(void) {
    return gMadeCursors - gFreedCursors;
}
int test_made_values(void) {
    return gMadeValues;
}
int test_made_cursors(void) {
    return gMadeCursors;
}

/* --- the functions of the table --- */

static void check_call(mirona_call call) {
    if (call != &gCall || gCall.mark != CALL_MARK) {
        fail_host("a handle that is no call");
    }
}

static uint32_t register_procedure(mirona_host host, const mirona_procedure_def* def) {
    if (host != &gHost || gProcedureCount == TEST_MAX_PROCEDURES) {
        fail_host("register_procedure out of order");
        return 1;
    }
    gProcedures[gProcedureCount++] = *def;
    return gRegisterStatus;
}

static uint32_t arg_count(mirona_call call) {
    check_call(call);
    return gCall.count;
}

static void report_error(void* call_or_host, const char* text, uint64_t length) {
    if (gLog.reports < 8) {
        snprintf(gLog.first_reports[gLog.reports], sizeof gLog.first_reports[0], "%.*s", (int)length, text);
    }
    ++gLog.reports;
    gLog.reported_to = call_or_host;
    gLog.report_length = length;
    const uint64_t kept = length < TEST_REPORT_SIZE - 1 ? length : TEST_REPORT_SIZE - 1;
    memcpy(gLog.report, text, kept);
    gLog.report[kept] = '\0';
}

static test_cursor* new_cursor(void) {
    test_cursor* cursor = calloc(1, sizeof *cursor);
    if (cursor == NULL) {
        abort();
    }
    ++gMadeCursors;
    return cursor;
}

static void free_table(test_cursor* cursor) {
    for (uint64_t i = 0; i < cursor->columns; ++i) {
        free(cursor->names[i]);
    }
    for (uint64_t i = 0; i < cursor->columns * cursor->rows; ++i) {
        free_value(cursor->values[i]);
    }
    free(cursor->names);
    free(cursor->values);
}

static uint32_t create_table_cursor(mirona_call call, uint64_t columns, uint64_t rows,
                                    const char* const* names, const mirona_value* values,
                                    mirona_cursor* out) {
    check_call(call);
    test_cursor* cursor = new_cursor();
    cursor->is_table = true;
    cursor->columns = columns;
    cursor->rows = rows;
    cursor->names = calloc(columns + 1, sizeof *cursor->names);
    cursor->values = calloc(columns * rows + 1, sizeof *cursor->values);
    if (cursor->names == NULL || cursor->values == NULL) {
        abort();
    }
    for (uint64_t i = 0; i < columns; ++i) {
        cursor->names[i] = strdup(names[i]);
    }
    for (uint64_t i = 0; i < columns * rows; ++i) {
        cursor->values[i] = values[i];
    }
    if (gCreateTableCursorStatus != 0) {
        close_cursor(cursor);
    } else {
        *out = cursor;
    }
    return gCreateTableCursorStatus;
}

static uint32_t create_cursor(mirona_call call, const mirona_cursor_def* def, mirona_cursor* out) {
    check_call(call);
    if (gCreateCursorStatus != 0) {
        return gCreateCursorStatus;
    }
    test_cursor* cursor = new_cursor();
    cursor->def = *def;
    *out = cursor;
    return 0;
}

static mirona_value make_blob_value(mirona_call call, const void* bytes, uint32_t length, uint32_t zero) {
    check_call(call);
    if (zero != 0) {
        fail_host("make_blob_value with a last argument that is not 0");
    }
    return new_bytes(MIRONA_TYPE_BINARY, bytes, length);
}

static mirona_value make_text_value(mirona_call call, const char* text, uint32_t length, uint32_t zero) {
    check_call(call);
    if (zero != 0) {
        fail_host("make_text_value with a last argument that is not 0");
    }
    return new_bytes(MIRONA_TYPE_TEXT, text, length);
}

static mirona_value new_number(mirona_call call, uint32_t type, uint64_t number) {
    check_call(call);
    test_value* value = new_value(type);
    value->uint64 = number;
    return value;
}

static mirona_value make_bool_value(mirona_call call, uint8_t flag) {
    if (flag > 1) {
        fail_host("a boolean that is neither 0 nor 1");
    }
    return new_number(call, MIRONA_TYPE_BOOL, flag);
}

static mirona_value make_date_value(mirona_call call, uint32_t packed) {
    return new_number(call, MIRONA_TYPE_DATE, packed);
}
static mirona_value make_datetime_value(mirona_call call, uint64_t packed) {
    return new_number(call, MIRONA_TYPE_DATETIME, packed);
}
static mirona_value make_time_value(mirona_call call, uint32_t packed) {
    return new_number(call, MIRONA_TYPE_TIME, packed);
}
static mirona_value make_uint_value(mirona_call call, uint64_t number) {
    return new_number(call, MIRONA_TYPE_UINT64, number);
}

static mirona_value make_double_value(mirona_call call, double number) {
    check_call(call);
    test_value* value = new_value(MIRONA_TYPE_DOUBLE);
    value->number = number;
    return value;
}

static mirona_value make_int_value(mirona_call call, int64_t number) {
    check_call(call);
    return make_int(number);
}

static bool value_is_null(mirona_value value) {
    return ((test_value*)value)->type == MIRONA_TYPE_NULL;
}
static uint32_t value_type(mirona_value value) {
    return ((test_value*)value)->type;
}
static int64_t value_int64(mirona_value value) {
    return ((test_value*)value)->int64;
}
static uint64_t value_uint64(mirona_value value) {
    return ((test_value*)value)->uint64;
}

static uint32_t array_length(mirona_value value) {
    if (value_type(value) != MIRONA_TYPE_ARRAY) {
        fail_host("array_length of a value that is no array");
    }
    return ((test_value*)value)->item_count;
}

static mirona_value array_element(mirona_value value, uint64_t index) {
    const test_value* array = value;
    if (array->type != MIRONA_TYPE_ARRAY || index >= array->item_count) {
        fail_host("array_element outside the array");
        return NULL;
    }
    return array->items[index];
}

/* Writes 32 bits of the length only, as a host with a narrower length would: the rest must have been 0. */
static const char* value_text(mirona_call call, mirona_value value, uint64_t* length) {
    check_call(call);
    if (*length != 0) {
        fail_host("value_text with a length that was not set to 0");
    }
    const test_value* text = value;
    if (gGivesNullTexts || text->bytes == NULL) {
        return NULL;
    }
    const uint32_t short_length = (uint32_t)text->length;
    memcpy(length, &short_length, sizeof short_length);
    return text->bytes;
}

/* --- the table --- */

static void unexpected_position(void) {
    fail_host("a position of the table was called that no one may call");
}

const mirona_extension_api* test_host_api(void) {
    static union {
        void (*positions[MIRONA_EXTENSION_API_POSITIONS])(void);
        mirona_extension_api api;
    } table;
    _Static_assert(sizeof table.positions == sizeof table.api, "46 positions, each a function pointer");
    for (size_t i = 0; i < MIRONA_EXTENSION_API_POSITIONS; ++i) {
        table.positions[i] = unexpected_position;
    }
    /* By number, so that the test detects a position that moved in the header. */
#define AT(position, function) table.positions[position] = (void (*)(void))(function)
    AT(2, register_procedure);
    AT(6, arg_count);
    AT(10, report_error);
    AT(15, create_table_cursor);
    AT(17, create_cursor);
    AT(20, make_blob_value);
    AT(21, make_bool_value);
    AT(22, make_date_value);
    AT(23, make_datetime_value);
    AT(24, make_double_value);
    AT(25, make_int_value);
    AT(28, make_text_value);
    AT(30, make_time_value);
    AT(31, make_uint_value);
    AT(33, value_is_null);
    AT(34, value_type);
    AT(35, array_length);
    AT(36, array_element);
    AT(42, value_int64);
    AT(44, value_uint64);
    AT(45, value_text);
#undef AT
    return &table.api;
}

void* test_host_handle(void) {
    return &gHost;
}

/* --- calls and cursors --- */

test_cursor* call_with(const char* name, uint32_t count, test_value** arguments) {
    memset(&gLog, 0, sizeof gLog);
    test_cursor* cursor = NULL;
    int found = 0;
    gCall.count = count;
    for (int i = 0; i < gProcedureCount; ++i) {
        if (strcmp(gProcedures[i].name, name) == 0) {
            cursor = gProcedures[i].handler(&gCall, (const mirona_value*)(void*)arguments);
            ++found;
        }
    }
    if (found != 1) {
        fail_host("no such procedure");
    }
    for (uint32_t i = 0; i < count; ++i) {
        free_value(arguments[i]);
    }
    return cursor;
}

test_cursor* call_procedure(const char* name, uint32_t count, ...) {
    test_value* arguments[8] = {NULL};
    va_list list;
    va_start(list, count);
    for (uint32_t i = 0; i < count && i < 8; ++i) {
        arguments[i] = va_arg(list, test_value*);
    }
    va_end(list);
    return call_with(name, count, arguments);
}

void close_cursor(test_cursor* cursor) {
    if (cursor == NULL) {
        return;
    }
    if (cursor->is_table) {
        free_table(cursor);
    } else {
        cursor->def.close(cursor->def.state);
    }
    free(cursor);
    ++gFreedCursors;
}

uint64_t cursor_rows(test_cursor* cursor) {
    return cursor->is_table ? cursor->rows : cursor->def.row_count(cursor->def.state);
}

uint32_t cursor_columns(const test_cursor* cursor) {
    return cursor->is_table ? (uint32_t)cursor->columns : cursor->def.column_count;
}

const char* column_name(const test_cursor* cursor, uint32_t column) {
    static char name[512];
    if (column >= cursor_columns(cursor)) {
        return "";
    }
    if (cursor->is_table) {
        return cursor->names[column];
    }
    const mirona_column* found = &cursor->def.columns[column];
    snprintf(name, sizeof name, "%.*s", (int)found->name_length, found->name);
    return name;
}

bool go_to_row(test_cursor* cursor, int64_t row) {
    return cursor->def.go_to_row(cursor->def.state, row) == MIRONA_ROW_OK;
}

bool next_row(test_cursor* cursor) {
    return cursor->def.next_row(cursor->def.state) == MIRONA_ROW_OK;
}

test_value* get_cell(test_cursor* cursor, int32_t column) {
    return cursor->def.get_value(&gCall, cursor->def.state, column);
}

static void print_date(char* out, size_t size, uint32_t packed) {
    snprintf(out, size, "%d-%02u-%02u", (int32_t)packed >> 9, packed >> 5 & 15, packed & 31);
}

static void print_time(char* out, size_t size, uint32_t packed) {
    snprintf(out, size, "%02u:%02u:%02u.%03u", packed >> 27, packed >> 21 & 63, packed >> 15 & 63,
             packed & 0x7FFF);
}

const char* value_as_text(const test_value* value) {
    static char texts[4][1024];
    static unsigned turn;
    char* out = texts[turn++ % 4];
    const size_t size = sizeof texts[0];
    char date[64], time[64];
    if (value == NULL) {
        return "NULL";
    }
    switch (value->type) {
        case MIRONA_TYPE_BOOL:
            snprintf(out, size, "%s", value->uint64 != 0 ? "true" : "false");
            break;
        case MIRONA_TYPE_INT64:
            snprintf(out, size, "%" PRId64, value->int64);
            break;
        case MIRONA_TYPE_UINT64:
            snprintf(out, size, "%" PRIu64, value->uint64);
            break;
        case MIRONA_TYPE_DOUBLE:
            snprintf(out, size, "%.17g", value->number);
            break;
        case MIRONA_TYPE_DATE:
            print_date(out, size, (uint32_t)value->uint64);
            break;
        case MIRONA_TYPE_TIME:
            print_time(out, size, (uint32_t)value->uint64);
            break;
        case MIRONA_TYPE_DATETIME:
            print_date(date, sizeof date, (uint32_t)(value->uint64 >> 32));
            print_time(time, sizeof time, (uint32_t)value->uint64);
            snprintf(out, size, "%s %s", date, time);
            break;
        default:
            snprintf(out, size, "%s", value->bytes != NULL ? value->bytes : "(no text)");
            break;
    }
    return out;
}

const char* cell_text(test_cursor* cursor, int32_t column) {
    test_value* cell = get_cell(cursor, column);
    const char* text = value_as_text(cell);
    free_value(cell);
    return text;
}
