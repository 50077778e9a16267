#include <gmock/gmock.h>

#include "database_test_base.h"

// fetch_duckdb on a file that an object of the same process writes to: no written row is lost, and the
// process keeps its lock on the file.

namespace {

using FetchConflict = DatabaseTest;

/** The number before the blank; the text after it is left in the line. */
int TakeNumber(std::string& line) {
    const std::size_t blank = line.find(' ');
    const int number = std::stoi(line);
    line.erase(0, blank + 1);
    return number;
}

TEST_F(FetchConflict, LosesNoCommittedRowWhenTheWriterIsKilledAndKeepsOtherWritersOut) {
    for (const char* order : {"fetch", "fetch-before"}) {
        const std::string file = Path(std::string(order) + ".db");
        Execute(*host.Created(file), "CREATE TABLE r(i INTEGER)");
        int committed = 0;
        {
            SecondProcess writer({COMMIT_WRITER, file, order});
            for (int row = 0; row < 60; ++row) {
                std::string line = writer.ReadLine();
                ASSERT_NE(line, "") << order;
                committed = TakeNumber(line);
                ASSERT_EQ(line, "none") << order;
                if (row % 20 == 0) {
                    ASSERT_THAT(TryOpenElsewhere(file, true), ::testing::HasSubstr("lock")) << order;
                    ASSERT_THAT(TryOpenElsewhere(file, false), ::testing::HasSubstr("lock")) << order;
                }
            }
            writer.Kill();
        }
        ASSERT_GE(committed, 60);
        const auto database = host.Opened(file);
        EXPECT_FALSE(database->get_IsReadOnly());
        const int last = std::stoi(QueryText(*database, "SELECT max(i) FROM r"));
        EXPECT_GE(last, committed) << order;
        EXPECT_EQ(QueryText(*database, "SELECT count(*) || ' ' || count(DISTINCT i) FROM r"),
                  std::to_string(last) + " " + std::to_string(last))
            << order;
    }
}

}  // namespace
