// Writes rows to a database, one transaction each, until it is killed: commit_writer FILE [ORDER] Prints the
// number of each row after its commit. The table r(i INTEGER) continues from its last row. With an ORDER it
// calls fetch_duckdb on the same file after each commit too, and prints the report after the number;
// `fetch-before` also has a cursor of it open when it first tries to open the file for writing, and ends when
// that is not refused.

#include <cstdio>
#include <cstring>
#include <string>

#include "procedures/handlers.h"
#include "support/fake_host.h"
#include "support/test_host.h"

namespace {

/** What fetch_duckdb reports about the table r of the file; "none" if it returns a cursor. */
std::string Fetch(mduckdb::test::FakeHost& caller, const std::string& file) {
    caller.reports.clear();
    caller.Call<mduckdb::FetchDuckDB>({caller.Text(file), caller.Text("r")});
    return caller.reports.empty() ? "none" : caller.reports.front();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        return 2;
    }
    const char* order = argc == 3 ? argv[2] : "";
    const TestHost host;
    mduckdb::test::FakeHost caller;
    const auto database = host.Database(argv[1]);
    if (std::strcmp(order, "fetch-before") == 0 &&
        (Fetch(caller, argv[1]) != "none" || Thrown([&] { database->Open(); }) == "none")) {
        return 1;
    }
    caller.CloseCursor();
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
        if (*order != '\0') {
            std::printf("%d %s\n", i, Fetch(caller, argv[1]).c_str());
        } else {
            std::printf("%d\n", i);
        }
        std::fflush(stdout);
    }
}
