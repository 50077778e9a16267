/* A host in C that knows nothing of the module but its function table: it loads the module, lets it
   register its procedures, calls one, and prints the rows.

     host-c [--module FILE] PROCEDURE [TEXT...] */

#include <dlfcn.h>
#include <mirona/extension_api.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifndef DEFAULT_MODULE
#define DEFAULT_MODULE "libmduckdb_casts.so"
#endif

/* The host's values: its own type, its own memory. The module sees them as handles. */
typedef struct Value {
    uint32_t type; /* mirona_type */
    union {
        int64_t integer;
        uint64_t natural; /* also a truth value, a packed date or time, the length of a text */
        double number;
    } as;
    char bytes[]; /* of a text or binary value, followed by a NUL */
} Value;

static Value* make_value(uint32_t type, const void* bytes, uint64_t length) {
    Value* value = calloc(1, sizeof *value + length + 1);
    if (value == NULL) {
        abort();
    }
    value->type = type;
    value->as.natural = length;
    if (length > 0) {
        memcpy(value->bytes, bytes, length);
    }
    return value;
}

static void print_date(uint32_t packed) {
    printf("%04d-%02u-%02u", (int32_t)packed >> 9, packed >> 5 & 15, packed & 31);
}

static void print_time(uint32_t packed) {
    printf("%02u:%02u:%02u.%03u", packed >> 27, packed >> 21 & 63, packed >> 15 & 63, packed & 0x7fff);
}

static void print_value(const Value* value) {
    switch (value != NULL ? value->type : MIRONA_TYPE_NULL) {
        case MIRONA_TYPE_NULL:
            printf("NULL");
            break;
        case MIRONA_TYPE_BOOL:
            printf("%s", value->as.natural ? "true" : "false");
            break;
        case MIRONA_TYPE_INT64:
            printf("%lld", (long long)value->as.integer);
            break;
        case MIRONA_TYPE_UINT64:
            printf("%llu", (unsigned long long)value->as.natural);
            break;
        case MIRONA_TYPE_DOUBLE:
            printf("%.15g", value->as.number);
            break;
        case MIRONA_TYPE_DATE:
            print_date((uint32_t)value->as.natural);
            break;
        case MIRONA_TYPE_TIME:
            print_time((uint32_t)value->as.natural);
            break;
        case MIRONA_TYPE_DATETIME:
            print_date((uint32_t)(value->as.natural >> 32));
            printf(" ");
            print_time((uint32_t)value->as.natural);
            break;
        case MIRONA_TYPE_TEXT:
            printf("%s", value->bytes);
            break;
        default:
            printf("(%llu bytes)", (unsigned long long)value->as.natural);
    }
}

/* What the module registered; the texts live as long as the module. */
enum { MAX_PROCEDURES = 16 };
static mirona_procedure_def procedures[MAX_PROCEDURES];
static uint32_t procedure_count;

/* One call of a procedure, and its cursor, if that was one of callbacks. */
typedef struct Call {
    uint32_t arg_count;
    mirona_cursor_def cursor;
} Call;

static uint32_t register_procedure(mirona_host host, const mirona_procedure_def* def) {
    (void)host;
    if (procedure_count == MAX_PROCEDURES) {
        return 1;
    }
    procedures[procedure_count++] = *def;
    return 0;
}

static uint32_t arg_count(mirona_call call) {
    return ((Call*)call)->arg_count;
}

static void report_error(void* call_or_host, const char* text, uint64_t length) {
    (void)call_or_host;
    fprintf(stderr, "%.*s\n", (int)length, text);
}

static uint32_t create_cursor(mirona_call call, const mirona_cursor_def* def, mirona_cursor* out) {
    ((Call*)call)->cursor = *def;
    *out = call;
    return 0;
}

/* A finished table. This host keeps no rows, so it prints them at once. */
static uint32_t create_table_cursor(mirona_call call, uint64_t columns, uint64_t rows,
                                    const char* const* names, const mirona_value* values,
                                    mirona_cursor* out) {
    for (uint64_t i = 0; i < columns; ++i) {
        printf("%s%s", i == 0 ? "" : "\t", names[i]);
    }
    for (uint64_t i = 0; i < columns * rows; ++i) {
        printf("%s", i % columns == 0 ? "\n" : "\t");
        print_value(values[i]);
        free(values[i]);
    }
    printf("\n%llu rows\n", (unsigned long long)rows);
    *out = call;
    return 0;
}

static mirona_value make_blob_value(mirona_call call, const void* bytes, uint32_t length, uint32_t zero) {
    (void)call, (void)zero;
    return make_value(MIRONA_TYPE_BINARY, bytes, length);
}

static mirona_value make_text_value(mirona_call call, const char* text, uint32_t length, uint32_t zero) {
    (void)call, (void)zero;
    return make_value(MIRONA_TYPE_TEXT, text, length);
}

/* A function of the table that creates a value from one plain content. */
#define MAKER(name, type, content_type, member)                        \
    static mirona_value name(mirona_call call, content_type content) { \
        Value* value = make_value(type, NULL, 0);                      \
        (void)call;                                                    \
        value->as.member = content;                                    \
        return value;                                                  \
    }
MAKER(make_bool_value, MIRONA_TYPE_BOOL, uint8_t, natural)
MAKER(make_date_value, MIRONA_TYPE_DATE, uint32_t, natural)
MAKER(make_datetime_value, MIRONA_TYPE_DATETIME, uint64_t, natural)
MAKER(make_time_value, MIRONA_TYPE_TIME, uint32_t, natural)
MAKER(make_uint_value, MIRONA_TYPE_UINT64, uint64_t, natural)
MAKER(make_int_value, MIRONA_TYPE_INT64, int64_t, integer)
MAKER(make_double_value, MIRONA_TYPE_DOUBLE, double, number)

/* The arguments of this host are texts, so the functions that describe them are simple; those for numbers and
   arrays are never called. */
static bool value_is_null(mirona_value value) {
    return value == NULL;
}

static uint32_t value_type(mirona_value value) {
    return ((Value*)value)->type;
}

static const char* value_text(mirona_call call, mirona_value value, uint64_t* length) {
    (void)call;
    *length = ((Value*)value)->as.natural;
    return ((Value*)value)->bytes;
}

static void unused_position(void) {
    fprintf(stderr, "The module called a position of the function table that is not in use.\n");
    abort();
}

/* The table: every position has a function, even those that no module calls. */
static mirona_extension_api make_table(void) {
    mirona_extension_api api;
    void (*positions[MIRONA_EXTENSION_API_POSITIONS])(void);
    for (int i = 0; i < MIRONA_EXTENSION_API_POSITIONS; ++i) {
        positions[i] = &unused_position;
    }
    memcpy(&api, positions, sizeof api);
    api.register_procedure = &register_procedure;
    api.arg_count = &arg_count;
    api.report_error = &report_error;
    api.create_table_cursor = &create_table_cursor;
    api.create_cursor = &create_cursor;
    api.make_blob_value = &make_blob_value;
    api.make_bool_value = &make_bool_value;
    api.make_date_value = &make_date_value;
    api.make_datetime_value = &make_datetime_value;
    api.make_double_value = &make_double_value;
    api.make_int_value = &make_int_value;
    api.make_text_value = &make_text_value;
    api.make_time_value = &make_time_value;
    api.make_uint_value = &make_uint_value;
    api.value_is_null = &value_is_null;
    api.value_type = &value_type;
    api.value_text = &value_text;
    return api;
}

/* Walks a cursor of callbacks from the first row to the last and closes it. */
static void print_cursor(Call* call) {
    const mirona_cursor_def* cursor = &call->cursor;
    for (uint32_t i = 0; i < cursor->column_count; ++i) {
        const mirona_column* column = &cursor->columns[i];
        printf("%s%.*s", i == 0 ? "" : "\t", (int)column->name_length, column->name);
    }
    printf("\n");
    while (cursor->next_row(cursor->state) == MIRONA_ROW_OK) {
        for (uint32_t i = 0; i < cursor->column_count; ++i) {
            Value* value = cursor->get_value(call, cursor->state, (int32_t)i);
            printf("%s", i == 0 ? "" : "\t");
            print_value(value);
            free(value);
        }
        printf("\n");
    }
    printf("%llu rows\n", (unsigned long long)cursor->row_count(cursor->state));
    cursor->close(cursor->state);
}

static int call_procedure(const mirona_procedure_def* procedure, int count, char** texts) {
    if (count < (int)procedure->min_args || count > (int)procedure->max_args) {
        fprintf(stderr, "usage: %s %s\n", procedure->name, procedure->signature);
        return 2;
    }
    Call call = {.arg_count = (uint32_t)count};
    mirona_value* arguments = calloc((size_t)count + 1, sizeof *arguments);
    if (arguments == NULL) {
        abort();
    }
    for (int i = 0; i < count; ++i) {
        arguments[i] = make_value(MIRONA_TYPE_TEXT, texts[i], strlen(texts[i]));
    }
    const bool is_done = procedure->handler(&call, arguments) != NULL;
    if (is_done && call.cursor.close != NULL) {
        print_cursor(&call);
    }
    for (int i = 0; i < count; ++i) {
        free(arguments[i]);
    }
    free(arguments);
    return is_done ? 0 : 1;
}

/* The module stays loaded until the process ends, since the cursors and texts that it returned point into
   it. */
static int load_module(const char* file, const mirona_extension_api* api) {
    void* module = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (module == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 0;
    }
    void (*bind_api)(const mirona_extension_api*);
    void (*init)(mirona_host);
    *(void**)&bind_api = dlsym(module, "mirona_extension_bind_api");
    *(void**)&init = dlsym(module, "mirona_extension_init");
    if (bind_api == NULL || init == NULL) {
        fprintf(stderr, "%s is no extension module\n", file);
        return 0;
    }
    bind_api(api);
    init(NULL);
    return 1;
}

int main(int argc, char** argv) {
    const char* file = DEFAULT_MODULE;
    if (argc > 2 && strcmp(argv[1], "--module") == 0) {
        file = argv[2];
        argc -= 2;
        argv += 2;
    }
    const mirona_extension_api api = make_table();
    if (!load_module(file, &api)) {
        return 1;
    }
    for (uint32_t i = 0; i < procedure_count; ++i) {
        if (argc > 1 && strcmp(procedures[i].name, argv[1]) == 0) {
            return call_procedure(&procedures[i], argc - 2, argv + 2);
        }
    }
    fprintf(stderr, "usage: host-c [--module FILE] PROCEDURE [TEXT...]; the procedures:\n");
    for (uint32_t i = 0; i < procedure_count; ++i) {
        fprintf(stderr, "  %s %s\n", procedures[i].name, procedures[i].signature);
    }
    return 2;
}
