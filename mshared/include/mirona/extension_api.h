#ifndef MIRONA_EXTENSION_API_H
#define MIRONA_EXTENSION_API_H

/* The plain-function interface between the Mirona server and an extension module that offers SQL procedures.
   Plain C, without C++.

   The host owns the table and keeps it for the life of the process; the module keeps a pointer to it.
   Texts are UTF-8; lengths are in bytes, without a terminator. No exception and no longjmp may cross a
   call in either direction. */

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque handles of the host. */
typedef void* mirona_host;
typedef void* mirona_call;
typedef void* mirona_value;
typedef void* mirona_cursor;

/* Return values of `go_to_row` and `next_row`. */
#define MIRONA_ROW_OK UINT32_C(0)
#define MIRONA_ROW_END UINT32_C(0xFFFFFFFF)

/* Type codes of arguments and columns. */
enum mirona_type {
    MIRONA_TYPE_UNKNOWN = 0,
    MIRONA_TYPE_ARRAY = 1,
    MIRONA_TYPE_BOOL = 2,
    MIRONA_TYPE_BINARY = 3,
    MIRONA_TYPE_DATE = 4,
    MIRONA_TYPE_DATETIME = 5,
    MIRONA_TYPE_DOUBLE = 6,
    MIRONA_TYPE_INT64 = 7,
    MIRONA_TYPE_MONEY = 8,
    MIRONA_TYPE_NULL = 9,
    MIRONA_TYPE_TEXT = 10,
    MIRONA_TYPE_TIME = 11,
    MIRONA_TYPE_UINT64 = 12,
    MIRONA_TYPE_VARIANT = 13
};

/* Body of a procedure. Returns a cursor, or null after one call of `report_error`. */
typedef mirona_cursor (*mirona_procedure_handler)(mirona_call call, const mirona_value* arguments);

/* Registration of one procedure. The texts are static; the record lives for the call only. */
typedef struct mirona_procedure_def {
    const char* name;
    uint32_t min_args;
    uint32_t max_args; /* inclusive */
    const char* signature;
    const char* description;
    void* reserved1; /* null */
    void* reserved2; /* null */
    mirona_procedure_handler handler;
} mirona_procedure_def;

/* One column of a cursor; the name need not be NUL-terminated. */
typedef struct mirona_column {
    const char* name;
    uint64_t name_length;
    uint32_t duckdb_type; /* the DuckDB type code by which the cells are read */
    uint32_t host_type;   /* mirona_type */
} mirona_column;

/* A cursor made of callbacks. The host copies the record during `create_cursor` and owns the state from then
   on: it calls `close` once, and nothing after it. One thread at a time. Row numbers count from 0; a new
   cursor is before row 0. The host owns a value that `get_value` returns. */
typedef struct mirona_cursor_def {
    void* state;
    void (*close)(void* state);
    /* Cell of the current row; null for NULL and when there is no such cell. */
    mirona_value (*get_value)(mirona_call call, void* state, int32_t column);
    uint32_t (*go_to_row)(void* state, int64_t row);
    /* Does not change the position at the end. */
    uint32_t (*next_row)(void* state);
    uint64_t (*row_count)(void* state);
    uint32_t column_count;
    const mirona_column* columns; /* valid until `close` */
} mirona_cursor_def;

/* Number of positions that a host must fill. */
#define MIRONA_EXTENSION_API_POSITIONS 46

/* The table, by position. The module calls only the named positions; the others must exist. */
typedef struct mirona_extension_api {
    void (*reserved_0_1[2])(void);
    uint32_t (*register_procedure)(mirona_host host, const mirona_procedure_def* def); /* 2; 0 = registered */
    void (*reserved_3_5[3])(void);
    uint32_t (*arg_count)(mirona_call call); /* 6 */
    void (*reserved_7_9[3])(void);
    /* 10; takes the call, or the host handle during initialisation. */
    void (*report_error)(void* call_or_host, const char* text, uint64_t length);
    void (*reserved_11_14[4])(void);
    /* 15; names are NUL-terminated, values stand row after row and belong to the host afterwards, also
       when it fails; 0 = created. */
    uint32_t (*create_table_cursor)(mirona_call call, uint64_t columns, uint64_t rows,
                                    const char* const* names, const mirona_value* values, mirona_cursor* out);
    void (*reserved_16[1])(void);
    uint32_t (*create_cursor)(mirona_call call, const mirona_cursor_def* def,
                              mirona_cursor* out); /* 17; 0 = created */
    void (*reserved_18_19[2])(void);
    mirona_value (*make_blob_value)(mirona_call call, const void* bytes, uint32_t length,
                                    uint32_t zero);                         /* 20 */
    mirona_value (*make_bool_value)(mirona_call call, uint8_t value);       /* 21 */
    mirona_value (*make_date_value)(mirona_call call, uint32_t packed);     /* 22 */
    mirona_value (*make_datetime_value)(mirona_call call, uint64_t packed); /* 23 */
    mirona_value (*make_double_value)(mirona_call call, double value);      /* 24 */
    mirona_value (*make_int_value)(mirona_call call, int64_t value);        /* 25 */
    void (*reserved_26_27[2])(void);
    mirona_value (*make_text_value)(mirona_call call, const char* text, uint32_t length,
                                    uint32_t zero); /* 28 */
    void (*reserved_29[1])(void);
    mirona_value (*make_time_value)(mirona_call call, uint32_t packed); /* 30 */
    mirona_value (*make_uint_value)(mirona_call call, uint64_t value);  /* 31 */
    void (*reserved_32[1])(void);
    bool (*value_is_null)(mirona_value value);                         /* 33 */
    uint32_t (*value_type)(mirona_value value);                        /* 34; mirona_type */
    uint32_t (*array_length)(mirona_value value);                      /* 35 */
    mirona_value (*array_element)(mirona_value value, uint64_t index); /* 36; null allowed */
    void (*reserved_37_41[5])(void);
    int64_t (*value_int64)(mirona_value value); /* 42 */
    void (*reserved_43[1])(void);
    uint64_t (*value_uint64)(mirona_value value); /* 44 */
    /* 45; the text is good until the call of the procedure ends. The module sets *length to 0 before. */
    const char* (*value_text)(mirona_call call, mirona_value value, uint64_t* length);
} mirona_extension_api;

/* Packed date: day in bits 0 to 4, month in bits 5 to 8, year from bit 9 up (signed). Packed time:
   milliseconds in bits 0 to 14, second in bits 15 to 20, minute in bits 21 to 26, hour in bits 27 to 31.
   Packed date-time: the packed date in the upper and the packed time in the lower 32 bits. */

/* What a module exports. `mirona_extension_bind_api` is called first, then `mirona_extension_init`, once
   each, on the loading thread. */
void mirona_extension_bind_api(const mirona_extension_api* api);
void mirona_extension_init(mirona_host host);

#ifdef __cplusplus
}
#endif

#endif
