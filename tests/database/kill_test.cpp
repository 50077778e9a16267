#include <random>

#include "database_test_base.h"
#include "support/environment.h"

namespace {

using DatabaseKill = DatabaseTest;

TEST_F(DatabaseKill, WhatWasCommittedBeforeAProcessIsKilledSurvives) {
    std::mt19937 random(static_cast<unsigned>(NumberFromEnvironment("MDUCKDB_TEST_SEED", 20240917)));
    const int runs = NumberFromEnvironment("MDUCKDB_TEST_KILL_RUNS", 8);
    for (int run = 0; run < runs; ++run) {
        int committed = 0;
        {
            SecondProcess writer({COMMIT_WRITER, Path()});
            for (auto lines = 1 + random() % 60; lines > 0; --lines) {
                committed = std::stoi("0" + writer.ReadLine());
            }
            writer.Kill();
        }
        ASSERT_GT(committed, 0);
        const auto database = host.Opened(Path());
        ASSERT_FALSE(database->get_IsReadOnly());
        const int last = std::stoi(QueryText(*database, "SELECT max(i) FROM r"));
        ASSERT_GE(last, committed) << "run " << run;
        ASSERT_EQ(QueryText(*database, "SELECT count(*) FROM r"), std::to_string(last)) << "run " << run;
        // Odd runs leave the next writer a file without a log, even ones a recovered log.
        if (run % 2 == 0) {
            Execute(*database, "CHECKPOINT");
        }
    }
}

}  // namespace
