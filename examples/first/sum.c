/* A first host in C: adds up a column of a Parquet file.

     sum MODULE FILE COLUMN [WHERE] */

#include <dlfcn.h>
#include <mirona/extension_api.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The host decides what a value is. Here an argument is a text and a cell is a number. */
static double cell;

static mirona_value make_double(mirona_call call, double number) {
    cell = number;
    return &cell;
}

static mirona_value make_int(mirona_call call, int64_t number) {
    return make_double(call, (double)number);
}

static mirona_value make_uint(mirona_call call, uint64_t number) {
    return make_double(call, (double)number);
}

static bool is_null(mirona_value value) {
    return value == NULL;
}

static uint32_t type_of(mirona_value value) {
    return MIRONA_TYPE_TEXT; /* the module asks only about arguments */
}

static const char* text_of(mirona_call call, mirona_value value, uint64_t* length) {
    *length = strlen(value);
    return value;
}

/* The procedure that this host uses, and the rows that a call of it returns. */
static mirona_procedure_handler fetch_parquet;
static mirona_cursor_def rows;

static uint32_t register_procedure(mirona_host host, const mirona_procedure_def* def) {
    if (strcmp(def->name, "fetch_parquet") == 0) {
        fetch_parquet = def->handler;
    }
    return 0;
}

/* The host also decides what a call is. Here it is the number of its arguments. */
static uint32_t arg_count(mirona_call call) {
    return *(uint32_t*)call;
}

static uint32_t create_cursor(mirona_call call, const mirona_cursor_def* def, mirona_cursor* out) {
    rows = *def;
    *out = &rows;
    return 0;
}

static void report_error(void* call_or_host, const char* text, uint64_t length) {
    fprintf(stderr, "%.*s\n", (int)length, text);
}

static void not_in_use(void) {
    abort();
}

static union {
    void (*positions[MIRONA_EXTENSION_API_POSITIONS])(void);
    mirona_extension_api api;
} table;

static void fill_table(void) {
    for (int i = 0; i < MIRONA_EXTENSION_API_POSITIONS; ++i) {
        table.positions[i] = not_in_use;
    }
    table.api.register_procedure = register_procedure;
    table.api.arg_count = arg_count;
    table.api.create_cursor = create_cursor;
    table.api.report_error = report_error;
    table.api.make_double_value = make_double;
    table.api.make_int_value = make_int;
    table.api.make_uint_value = make_uint;
    table.api.value_is_null = is_null;
    table.api.value_type = type_of;
    table.api.value_text = text_of;
}

int main(int argc, char** argv) {
    if (argc < 4 || argc > 5) {
        fprintf(stderr, "usage: sum MODULE FILE COLUMN [WHERE]\n");
        return 2;
    }
    /* docs: main */
    fill_table();
    void* module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    void (*bind_api)(const mirona_extension_api*) =
        module ? dlsym(module, "mirona_extension_bind_api") : NULL;
    void (*init)(mirona_host) = bind_api ? dlsym(module, "mirona_extension_init") : NULL;
    if (init == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    bind_api(&table.api);
    init(NULL); /* the module calls register_procedure */

    uint32_t call = (uint32_t)argc - 2;
    mirona_value arguments[] = {argv[2], argv[3], argv[4]};
    if (fetch_parquet == NULL || fetch_parquet(&call, arguments) == NULL) {
        return 1; /* report_error has printed why */
    }
    const uint32_t type = rows.columns[0].host_type;
    if (type != MIRONA_TYPE_INT64 && type != MIRONA_TYPE_UINT64 && type != MIRONA_TYPE_DOUBLE) {
        fprintf(stderr, "%s holds no numbers\n", argv[3]);
        return 1;
    }
    double sum = 0;
    uint64_t count = 0;
    for (; rows.next_row(rows.state) == MIRONA_ROW_OK; ++count) {
        const double* number = rows.get_value(&call, rows.state, 0);
        sum += number != NULL ? *number : 0;
    }
    rows.close(rows.state);
    printf("%.2f in %llu rows\n", sum, (unsigned long long)count);
    /* docs: end */
    return 0;
}
