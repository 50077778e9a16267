#include "base/host_values.h"

#include <gtest/gtest.h>

namespace mduckdb {
namespace {

TEST(MakeStringValue, CreatesATextThatMayNotBeNull) {
    const auto value = MakeStringValue("h\xC3\xA9llo \xF0\x9F\xA6\x86");
    EXPECT_EQ(value->get_TypeCode(), static_cast<uint32_t>(nbx::ValueType::String));
    EXPECT_FALSE(value->get_IsNullable());
    EXPECT_EQ(value->get_Text(), nbx::String(u"h\u00e9llo \U0001F986", 8));
}

TEST(MakeStringValue, ReplacesInvalidUTF8WithTheReplacementCharacter) {
    EXPECT_EQ(MakeStringValue("a\xFF")->get_Text(), nbx::String(u"a\uFFFD", 2));
}

}  // namespace
}  // namespace mduckdb
