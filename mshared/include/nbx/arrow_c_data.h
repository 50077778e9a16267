#pragma once

#include <stdint.h>

/* The records of Apache Arrow's C data interface and C stream interface, whose layout never changes. Any
   other header that declares them may be included as well: each has the guards of the interfaces. */

#ifdef __cplusplus
extern "C" {
#endif

#ifndef ARROW_C_DATA_INTERFACE
#define ARROW_C_DATA_INTERFACE

#define ARROW_FLAG_DICTIONARY_ORDERED 1
#define ARROW_FLAG_NULLABLE 2
#define ARROW_FLAG_MAP_KEYS_SORTED 4

/* The type and the name of a column, with its children. */
struct ArrowSchema {
    const char* format;
    const char* name;
    const char* metadata;
    int64_t flags;
    int64_t n_children;
    struct ArrowSchema** children;
    struct ArrowSchema* dictionary;
    /* Null once the record is released. */
    void (*release)(struct ArrowSchema*);
    void* private_data;
};

/* The values of a column, with its children. */
struct ArrowArray {
    int64_t length;
    int64_t null_count;
    int64_t offset;
    int64_t n_buffers;
    int64_t n_children;
    const void** buffers;
    struct ArrowArray** children;
    struct ArrowArray* dictionary;
    /* Null once the record is released. */
    void (*release)(struct ArrowArray*);
    void* private_data;
};

#endif

#ifndef ARROW_C_STREAM_INTERFACE
#define ARROW_C_STREAM_INTERFACE

/* Arrays of one type, one after the other. */
struct ArrowArrayStream {
    /* Both return 0 or an error number of errno.h. */
    int (*get_schema)(struct ArrowArrayStream*, struct ArrowSchema* out);
    /* At the end of the rows `out` is a released array. */
    int (*get_next)(struct ArrowArrayStream*, struct ArrowArray* out);
    /* UTF-8, about the last call if it has failed, and valid until the next call. */
    const char* (*get_last_error)(struct ArrowArrayStream*);
    /* Null once the record is released. */
    void (*release)(struct ArrowArrayStream*);
    void* private_data;
};

#endif

#ifdef __cplusplus
}
#endif
