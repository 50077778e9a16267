#include "base/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace mduckdb {
namespace {

TEST(ListDescriptors, NamesWhatIsOpenAndNotTheFolderThatItReads) {
    const int opened = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int closed = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(closed, 0);
    close(closed);
    const std::vector<int> listed = ListDescriptors();
    EXPECT_EQ(std::count(listed.begin(), listed.end(), opened), 1);
    EXPECT_EQ(std::count(listed.begin(), listed.end(), closed), 0);  // the number that the folder gets
    EXPECT_TRUE(
        std::none_of(listed.begin(), listed.end(), [](int each) { return fcntl(each, F_GETFD) < 0; }));
    close(opened);
}

}  // namespace
}  // namespace mduckdb
