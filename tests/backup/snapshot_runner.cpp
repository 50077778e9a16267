// Takes snapshots of a database and restores them over another one, again and again until it is killed:
//   snapshot_runner DATABASE FOLDER TARGET
// Prints a line before the first one and after each. Before each snapshot it adds a row to the table r, which
// keeps the last 20.

#include <cstdio>
#include <string>

#include "nbx/mrsql/duckdb_snapshot.h"
#include "support/test_host.h"

static void Report(const char* line) {
    std::puts(line);
    std::fflush(stdout);
}

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    const TestHost host;
    const auto database = host.Opened(argv[1]);
    auto* const snapshots = static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
        database->QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId));
    auto* const restore = static_cast<nbx::mrsql::I_DuckDBRestore*>(
        host->QueryInterface(nbx::mrsql::kDuckDBRestoreInterfaceId));
    Report("started");
    for (int i = 0;; ++i) {
        Execute(*database,
                "BEGIN; INSERT INTO r SELECT max(i) + 1, repeat('x', 100000) FROM r; "
                "DELETE FROM r WHERE i <= (SELECT max(i) FROM r) - 20; COMMIT");
        const std::string file = std::string(argv[2]) + "/snap" + std::to_string(i % 3) + ".db";
        std::remove(file.c_str());
        snapshots->Snapshot(Location(file));
        Report("snapshot");
        restore->RestoreSnapshot(Location(argv[3]), Location(file));
        Report("restored");
    }
}
