#include "print/table_layout.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace mduckdb_host {
namespace {

int WidthOf(const TableLayout& layout) {
    int sum = 1 + (layout.left_out > 0 ? 4 : 0);
    for (const int width : layout.widths) {
        sum += width > 0 ? width + 3 : 0;
    }
    return sum;
}

TEST(TableLayout, LeavesNarrowTablesAlone) {
    const TableLayout layout = MakeTableLayout({5, 10}, 80);
    EXPECT_EQ(layout.widths, (std::vector<int>{5, 10}));
    EXPECT_EQ(layout.left_out, 0U);
}

TEST(TableLayout, NarrowsTheWidestColumnsFirst) {
    const TableLayout layout = MakeTableLayout({5, 100, 60}, 80);
    EXPECT_EQ(layout.widths[0], 5);
    EXPECT_EQ(layout.widths[1], layout.widths[2]);
    EXPECT_EQ(layout.left_out, 0U);
    EXPECT_LE(WidthOf(layout), 80);
    EXPECT_GE(WidthOf(layout), 78);
}

TEST(TableLayout, LeavesOutColumnsInTheMiddle) {
    const TableLayout layout = MakeTableLayout(std::vector<int>(30, 12), 80);
    EXPECT_GT(layout.left_out, 0U);
    EXPECT_GT(layout.widths.front(), 0);
    EXPECT_GT(layout.widths.back(), 0);
    EXPECT_EQ(layout.widths[15], 0);
    EXPECT_LE(WidthOf(layout), 80);
}

TEST(TableLayout, KeepsOneColumnOnTheNarrowestScreen) {
    const TableLayout layout = MakeTableLayout(std::vector<int>(5, 50), 3);
    EXPECT_EQ(layout.left_out, 4U);
    EXPECT_EQ(std::count_if(layout.widths.begin(), layout.widths.end(), [](int width) { return width > 0; }),
              1);
}

TEST(TableLayout, WithoutAScreenShowsAll) {
    const TableLayout layout = MakeTableLayout(std::vector<int>(100, 100), 0);
    EXPECT_EQ(layout.left_out, 0U);
    EXPECT_EQ(layout.widths, std::vector<int>(100, 100));
}

TEST(TableLayout, AcceptsATableWithoutColumns) {
    EXPECT_TRUE(MakeTableLayout({}, 80).widths.empty());
    EXPECT_EQ(MakeTableLayout({}, 80).left_out, 0U);
}

}  // namespace
}  // namespace mduckdb_host
