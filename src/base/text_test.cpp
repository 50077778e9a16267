#include "base/text.h"

#include <gtest/gtest.h>

#include "nbx/exception.h"

namespace mduckdb {
namespace {

TEST(Path, IsRefusedWhenItsBytesWouldNameAnotherFile) {
    EXPECT_EQ("/a/\xC3\xBC \xF0\x9F\xA6\x86.db", ToPath(FromUtf8("/a/\xC3\xBC \xF0\x9F\xA6\x86.db")));
    EXPECT_EQ("", ToPath(nbx::String()));
    EXPECT_THROW(ToPath(nbx::String(u"/a\xD800.db")), nbx::xException);
    EXPECT_THROW(ToPath(nbx::String(u"/a\0b", 4)), nbx::xException);
}

}  // namespace
}  // namespace mduckdb
