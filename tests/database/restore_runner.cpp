// Restores a database once: restore_runner FILE FOLDER [STAGE [wait]] Prints a line before it begins and one
// at the end: `end`, or the error. With a STAGE it kills itself there: `imported` when the new database has
// been closed; `unfolded`, `opened` and `folded` before, during and after writing the old log into its file;
// `unlocked` before it locks the old file; `unplaced` and `placed` before and after the new file takes the
// place of the old one. With `wait` it prints the stage instead, each time, and waits for a line.

#include <duckdb.h>
#include <fcntl.h>
#include <signal.h>

#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "support/test_host.h"

namespace {

std::string_view gFile;
std::string_view gStage;
bool gIsWaiting = false;
bool gIsFolding = false;
bool gHasOpened = false;

void Print(std::string_view line) {
    std::printf("%s\n", line.data());
    std::fflush(stdout);
}

void Reach(std::string_view stage) {
    if (gStage != stage) {
        return;
    }
    if (!gIsWaiting) {
        raise(SIGKILL);
    }
    Print(stage);
    std::getchar();
}

}  // namespace

extern "C" {
duckdb_state __real_duckdb_open_ext(const char* path, duckdb_database* out, duckdb_config config,
                                    char** error);
void __real_duckdb_close(duckdb_database* engine);
int __real_rename(const char* from, const char* to);
int __real_fcntl(int descriptor, int command, ...);

duckdb_state __wrap_duckdb_open_ext(const char* path, duckdb_database* out, duckdb_config config,
                                    char** error) {
    gHasOpened = true;
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
    Reach(gIsFolding ? "folded" : "imported");
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

int __wrap_fcntl(int descriptor, int command, ...) {
    std::va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    // The first lock is the check before the new file is built.
    if (command == F_OFD_SETLK && gHasOpened) {
        Reach("unlocked");
    }
    return __real_fcntl(descriptor, command, argument);
}
}

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    gFile = argv[1];
    gStage = argc > 3 ? argv[3] : "";
    gIsWaiting = argc > 4;
    const TestHost host;
    Print("begin");
    const std::string thrown = Thrown([&] { host->RestoreDatabase(Location(argv[1]), Location(argv[2])); });
    Print(thrown == "none" ? "end" : thrown);
}
