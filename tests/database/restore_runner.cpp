// Restores a database once: restore_runner FILE FOLDER [STAGE] Prints a line before it begins and one at the
// end. With a STAGE it kills itself there: `unfolded`, `opened` and `folded` before, during and after writing
// the old log into its file; `unplaced` and `placed` before and after the new file takes the place of the old
// one.

#include <duckdb.h>
#include <signal.h>

#include <cstdio>
#include <string_view>

#include "support/test_host.h"

namespace {

std::string_view gFile;
std::string_view gStage;
bool gIsFolding = false;

void Reach(std::string_view stage) {
    if (gStage == stage) {
        raise(SIGKILL);
    }
}

}  // namespace

extern "C" {
duckdb_state __real_duckdb_open_ext(const char* path, duckdb_database* out, duckdb_config config,
                                    char** error);
void __real_duckdb_close(duckdb_database* engine);
int __real_rename(const char* from, const char* to);

duckdb_state __wrap_duckdb_open_ext(const char* path, duckdb_database* out, duckdb_config config,
                                    char** error) {
    gIsFolding = path != nullptr && gFile == path;
    if (gIsFolding) {
        Reach("unfolded");
    }
    const duckdb_state state = __real_duckdb_open_ext(path, out, config, error);
    if (gIsFolding) {
        Reach("opened");
    }
    return state;
}

void __wrap_duckdb_close(duckdb_database* engine) {
    __real_duckdb_close(engine);
    if (gIsFolding) {
        Reach("folded");
    }
}

int __wrap_rename(const char* from, const char* to) {
    const bool is_placing = gFile == to;
    if (is_placing) {
        Reach("unplaced");
    }
    const int result = __real_rename(from, to);
    if (is_placing) {
        Reach("placed");
    }
    return result;
}
}

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    gFile = argv[1];
    gStage = argc > 3 ? argv[3] : "";
    const TestHost host;
    std::puts("begin");
    std::fflush(stdout);
    host->RestoreDatabase(Location(argv[1]), Location(argv[2]));
    std::puts("end");
    std::fflush(stdout);
}
