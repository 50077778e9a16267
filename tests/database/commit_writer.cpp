// Writes rows to a database, one transaction each, until it is killed: commit_writer FILE
// Prints the number of each row after its commit. The table r(i INTEGER) goes on from where it ends.

#include <cstdio>
#include <string>

#include "support/test_host.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    const TestHost host;
    const auto database = host.Database(argv[1]);
    if (database->get_Exists()) {
        database->Open();
    } else {
        database->Create();
    }
    Execute(*database, "CREATE TABLE IF NOT EXISTS r(i INTEGER)");
    for (int i = std::stoi(QueryText(*database, "SELECT coalesce(max(i), 0) FROM r")) + 1;; ++i) {
        Execute(*database, "INSERT INTO r VALUES (" + std::to_string(i) + ")");
        if (i % 50 == 0) {
            Execute(*database, "CHECKPOINT");
        }
        std::printf("%d\n", i);
        std::fflush(stdout);
    }
}
