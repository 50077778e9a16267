/* abi_host MODULE FOLDER plain|casts|refuse: loads a built module as the server does and tests it through
   its two exports. FOLDER holds the files of make_data. With `refuse` the host registers nothing.
   abi_host MODULE FOLDER library now|lazy TEXT: the loader finds another DuckDB library than the one that the
   module is built for, and looks up the symbols at once or with the first call. The module reports TEXT. */

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "check.h"
#include "suites.h"
#include "test_host.h"

bool gCastsModule = false;

static void (*find(void* module, const char* name))(void) {
    void (*function)(void) = NULL;
    void* symbol = dlsym(module, name);
    memcpy(&function, &symbol, sizeof function);
    if (function == NULL) {
        fprintf(stderr, "%s is not exported\n", name);
    }
    return function;
}

/* Loads and starts the module. It stays loaded to the end of the process: DuckDB's threads may still run. */
static bool load(const char* path, int binding) {
    void* module = dlopen(path, binding | RTLD_LOCAL);
    if (module == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return false;
    }
    void (*bind)(const mirona_extension_api*) =
        (void (*)(const mirona_extension_api*))find(module, "mirona_extension_bind_api");
    void (*init)(mirona_host) = (void (*)(mirona_host))find(module, "mirona_extension_init");
    if (bind == NULL || init == NULL) {
        return false;
    }
    bind(test_host_api());
    init(test_host_handle());
    return true;
}

int main(int argc, char** argv) {
    const bool has_other_library = argc == 6 && strcmp(argv[3], "library") == 0;
    if ((argc != 4 && !has_other_library) || chdir(argv[2]) != 0) {
        fprintf(stderr,
                "usage: %s MODULE FOLDER plain|casts|refuse\n"
                "       %s MODULE FOLDER library now|lazy TEXT\n",
                argv[0], argv[0]);
        return 2;
    }
    const int binding = has_other_library && strcmp(argv[4], "lazy") == 0 ? RTLD_LAZY : RTLD_NOW;
    const bool refuses = strcmp(argv[3], "refuse") == 0;
    gCastsModule = strcmp(argv[3], "casts") == 0;
    gRegisterStatus = refuses ? 1 : 0;
    if (!load(argv[1], binding)) {
        return 2;
    }
    if (has_other_library) {
        test_other_library(argv[5]);
    } else if (refuses) {
        test_refused_registration();
    } else {
        test_registration();
        test_arguments();
        test_fetch_parquet();
        test_descriptions();
        test_fetch_duckdb();
        test_cursors();
        test_bad_input();
        test_foreign_types();
    }
    check_begin("everything that was made is released");
    CHECK_INT(test_live_values(), 0);
    CHECK_INT(test_live_cursors(), 0);
    CHECK_INT(gLog.unexpected_calls, 0);
    printf("%d checks, %d failed; %d values and %d cursors made, %d and %d left\n", check_count(),
           check_failures(), test_made_values(), test_made_cursors(), test_live_values(),
           test_live_cursors());
    return check_failures() == 0 ? 0 : 1;
}
