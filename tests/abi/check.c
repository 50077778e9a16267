#include "check.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

static const char* gTest = "?";
static int gFailures = 0;
static int gChecks = 0;

static bool note(bool holds, const char* file, int line) {
    ++gChecks;
    if (!holds) {
        ++gFailures;
        fprintf(stderr, "%s:%d: in '%s': ", file, line, gTest);
    }
    return holds;
}

bool check_that(bool holds, const char* what, const char* file, int line) {
    if (!note(holds, file, line)) {
        fprintf(stderr, "not so: %s\n", what);
    }
    return holds;
}

bool check_int(int64_t found, int64_t expected, const char* what, const char* file, int line) {
    const bool holds = note(found == expected, file, line);
    if (!holds) {
        fprintf(stderr, "%s is %" PRId64 ", not %" PRId64 "\n", what, found, expected);
    }
    return holds;
}

bool check_text(const char* found, const char* expected, const char* what, const char* file, int line) {
    const bool holds = note(found != NULL && strcmp(found, expected) == 0, file, line);
    if (!holds) {
        fprintf(stderr, "%s is '%s', not '%s'\n", what, found != NULL ? found : "(null)", expected);
    }
    return holds;
}

void check_begin(const char* test_name) {
    gTest = test_name;
}

int check_failures(void) {
    return gFailures;
}

int check_count(void) {
    return gChecks;
}
