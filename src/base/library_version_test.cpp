#include "base/library_version.h"

#include <duckdb.h>
#include <gtest/gtest.h>

namespace mduckdb {
namespace {

TEST(LibraryVersion, TheTestsRunOnTheLibraryThatTheyAreBuiltFor) {
    EXPECT_EQ(CheckLibraryVersion(), "");
    EXPECT_EQ("v" + std::string(get_BuiltVersion()), duckdb_library_version());
}

TEST(LibraryVersion, TheLeadingLetterMakesNoDifference) {
    EXPECT_EQ(DescribeVersionMismatch("1.5.6", "v1.5.6"), "");
    EXPECT_EQ(DescribeVersionMismatch("1.5.6", "1.5.6"), "");
}

TEST(LibraryVersion, EveryOtherVersionIsAMismatchThatNamesBoth) {
    for (const char* other : {"v1.5.5", "v1.5.60", "v1.5.6-dev12", "v2.0.0", "v1.5"}) {
        const std::string text = DescribeVersionMismatch("1.5.6", other);
        EXPECT_NE(text.find("1.5.6 "), std::string::npos) << text;
        EXPECT_NE(text.find(" " + std::string(other + 1) + "."), std::string::npos) << text;
    }
}

TEST(LibraryVersion, ALibraryWithoutAVersionIsAMismatch) {
    EXPECT_NE(DescribeVersionMismatch("1.5.6", "").find("unknown"), std::string::npos);
}

}  // namespace
}  // namespace mduckdb
