// Leads a database file through its life again and again until it is killed: life_runner FILE FOLDER
// Creates the file, appends rows to it, backs it up into the folder and drops it; prints a line at the
// beginning and after each step.

#include <cstdio>
#include <string>

#include "nbx/mrsql/duckdb_appender.h"
#include "nbx/value.h"
#include "support/test_host.h"

namespace {

constexpr int kFlushes = 3;
constexpr int kRowsOfAFlush = 100;

void Report(const std::string& step) {
    std::puts(step.c_str());
    std::fflush(stdout);
}

void AppendRow(nbx::mrsql::I_DuckDBAppender& appender, int64_t number) {
    auto row = nbx::MakeObject<nbx::ValueRow>();
    row->Append(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueLLong(true, &number, nullptr)));
    appender.AppendRow(row);
}

void AppendRows(nbx::mrsql::I_DuckDBDatabase& database) {
    nbx::mrsql::DuckDBAppenderOptions options;
    options.table = S("r");
    auto* const appenders = static_cast<nbx::mrsql::I_DuckDBAppenders*>(
        database.QueryInterface(nbx::mrsql::kDuckDBAppendersInterfaceId));
    const auto appender = appenders->CreateAppender(options);
    int number = 0;
    for (int flush = 0; flush < kFlushes; ++flush) {
        for (int row = 0; row < kRowsOfAFlush; ++row) {
            AppendRow(*appender, ++number);
        }
        appender->Flush();
        Report(std::to_string(number));
    }
    appender->Close();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const TestHost host;
    Report("begin");
    for (;;) {
        const auto database = host.Created(argv[1]);
        Execute(*database, "CREATE TABLE r(i INTEGER)");
        Report("created");
        AppendRows(*database);
        database->Backup(Location(argv[2]));
        Report("backed up");
        database->Drop();
        Report("dropped");
    }
}
