// Backs a database up into a folder again and again until it is killed: backup_runner FILE FOLDER
// Before the first backup it adds a row to the table t, which stays in the log, and prints a line.

#include <cstdio>
#include <string>

#include "support/test_host.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const TestHost host;
    const auto database = host.Opened(argv[1]);
    Execute(*database, "INSERT INTO t VALUES (-1, 'late', 'late')");
    std::puts("committed");
    std::fflush(stdout);
    for (;;) {
        database->Backup(Location(argv[2]));
    }
}
