/* A module in plain C that knows the function table and nothing else: what the program does with a
   module's values, cursors and errors is tested with it, without DuckDB. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mirona/extension_api.h"

static const mirona_extension_api* gApi;

#define TEXT(text) text, sizeof(text) - 1

/* values(): one row with a value of every kind, and a null. */
#define VALUE_COLUMNS 10
struct value_state {
    int64_t position;
    int64_t rows;
};

static void CloseValues(void* state) {
    free(state);
}

static mirona_value GetValue(mirona_call call, void* state, int32_t column) {
    (void)state;
    switch (column) {
        case 0:
            return gApi->make_bool_value(call, 1);
        case 1:
            return gApi->make_int_value(call, INT64_MIN);
        case 2:
            return gApi->make_uint_value(call, UINT64_MAX);
        case 3:
            return gApi->make_double_value(call, 0.1);
        case 4:
            return gApi->make_text_value(call, TEXT("t\xc3\xa4xt \xff"), 0);
        case 5:
            return gApi->make_blob_value(call, "\x00\xab", 2, 0);
        case 6:
            return gApi->make_date_value(call, 2024U << 9 | 3U << 5 | 15U);
        case 7:
            return gApi->make_datetime_value(call, (uint64_t)(2024U << 9 | 3U << 5 | 15U) << 32 |
                                                       (12U << 27 | 34U << 21 | 56U << 15 | 789U));
        case 8:
            return gApi->make_time_value(call, 23U << 27 | 59U << 21 | 1U << 15 | 7U);
        default:
            return NULL;
    }
}

static uint32_t GoToRow(void* state, int64_t row) {
    struct value_state* const values = state;
    if (row < 0 || row >= values->rows) {
        return MIRONA_ROW_END;
    }
    values->position = row;
    return MIRONA_ROW_OK;
}

static uint32_t NextRow(void* state) {
    return GoToRow(state, ((struct value_state*)state)->position + 1);
}
static uint64_t RowCount(void* state) {
    return (uint64_t)((struct value_state*)state)->rows;
}

static const mirona_column kValueColumns[VALUE_COLUMNS] = {
    {TEXT("bool"), 1, MIRONA_TYPE_BOOL},   {TEXT("int"), 5, MIRONA_TYPE_INT64},
    {TEXT("uint"), 9, MIRONA_TYPE_UINT64}, {TEXT("double"), 11, MIRONA_TYPE_DOUBLE},
    {TEXT("text"), 17, MIRONA_TYPE_TEXT},  {TEXT("blob"), 18, MIRONA_TYPE_BINARY},
    {TEXT("date"), 13, MIRONA_TYPE_DATE},  {TEXT("datetime"), 12, MIRONA_TYPE_DATETIME},
    {TEXT("time"), 14, MIRONA_TYPE_TIME},  {TEXT("null"), 17, MIRONA_TYPE_TEXT},
};

static mirona_cursor Values(mirona_call call, const mirona_value* arguments) {
    struct value_state* const state = malloc(sizeof *state);
    mirona_cursor cursor = NULL;
    mirona_cursor_def def = {state,   CloseValues, GetValue,      GoToRow,
                             NextRow, RowCount,    VALUE_COLUMNS, kValueColumns};
    state->position = -1;
    state->rows = gApi->arg_count(call) > 0 ? gApi->value_int64(arguments[0]) : 1;
    gApi->create_cursor(call, &def, &cursor);
    return cursor;
}

/* arguments(...): what reached the module, a row for each argument and each element of an array. */
static void Describe(mirona_call call, mirona_value value, mirona_value* out) {
    uint64_t length = 0;
    const char* const text = gApi->value_text(call, value, &length);
    out[0] = gApi->make_int_value(call, (int64_t)gApi->value_type(value));
    out[1] = text == NULL ? NULL : gApi->make_text_value(call, text, (uint32_t)length, 0);
    out[2] = gApi->make_bool_value(call, gApi->value_is_null(value));
    out[3] = gApi->make_int_value(call, gApi->value_int64(value));
    out[4] = gApi->make_uint_value(call, gApi->value_uint64(value));
}

static mirona_cursor Arguments(mirona_call call, const mirona_value* arguments) {
    enum { kMost = 64, kColumns = 5 };
    static const char* const kNames[kColumns] = {"type", "text", "is_null", "int64", "uint64"};
    mirona_value values[kMost * kColumns];
    mirona_cursor cursor = NULL;
    uint64_t rows = 0;
    for (uint32_t i = 0; i < gApi->arg_count(call); ++i) {
        Describe(call, arguments[i], values + kColumns * rows++);
        for (uint32_t k = 0; k < gApi->array_length(arguments[i]) && rows < kMost; ++k) {
            Describe(call, gApi->array_element(arguments[i], k), values + kColumns * rows++);
        }
    }
    gApi->create_table_cursor(call, kColumns, rows, kNames, values, &cursor);
    return cursor;
}

static mirona_cursor Fail(mirona_call call, const mirona_value* arguments) {
    (void)arguments;
    gApi->report_error(call, TEXT("It did not work: \xc3\xa4"));
    return NULL;
}

static mirona_cursor FailSilently(mirona_call call, const mirona_value* arguments) {
    (void)call;
    (void)arguments;
    return NULL;
}

static mirona_cursor CallUnused(mirona_call call, const mirona_value* arguments) {
    gApi->reserved_37_41[2]();
    return Values(call, arguments + 1);
}

void mirona_extension_bind_api(const mirona_extension_api* api) {
    gApi = api;
}

void mirona_extension_init(mirona_host host) {
    static const mirona_procedure_def kProcedures[] = {
        {"values", 0, 1, "[rows]", "Every kind of value.", NULL, NULL, Values},
        {"arguments", 0, 8, "...", "What reached the module.", NULL, NULL, Arguments},
        {"fail", 0, 0, "", "Reports an error.", NULL, NULL, Fail},
        {"fail_silently", 0, 0, "", "Gives no cursor and no error.", NULL, NULL, FailSilently},
        {"call_unused", 0, 0, "", "Calls a position that is not in use.", NULL, NULL, CallUnused},
    };
    for (size_t i = 0; i < sizeof kProcedures / sizeof kProcedures[0]; ++i) {
        gApi->register_procedure(host, &kProcedures[i]);
    }
    if (getenv("SAMPLE_MODULE_INIT_ERROR") != NULL) {
        gApi->report_error(host, TEXT("Cannot register something."));
    }
}
