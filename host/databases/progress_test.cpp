#include "databases/progress.h"

#include <gtest/gtest.h>

namespace mduckdb_host {
namespace {

std::string BarOf(double share) {
    nbx::mrsql::DuckDBProgress progress;
    progress.is_running = true;
    progress.share = share;
    return DescribeProgress(progress);
}

TEST(ProgressBar, ShowsTheShareAsABarAndAPercentage) {
    EXPECT_EQ(BarOf(0), "░░░░░░░░░░░░░░░░░░░░ 0%");
    EXPECT_EQ(BarOf(0.319), "██████░░░░░░░░░░░░░░ 31%");
    EXPECT_EQ(BarOf(1), "████████████████████ 100%");
}

TEST(ProgressBar, IsEmptyWhileTheShareIsUnknown) {
    EXPECT_EQ(BarOf(-1), "");
}

}  // namespace
}  // namespace mduckdb_host
