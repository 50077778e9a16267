#include <cstring>
#include <string>

#include "mshared/test_support.h"
#include "nbx/exception.h"

namespace nbx {
namespace {

ValuePtr MakeBytes(std::string_view content, uint64_t declared_size) {
    return TakeValue(CreateValueFixedBinary(true, &content, &declared_size));
}

TEST(BytesValue, HoldsItsBytes) {
    const std::string bytes(
        "\x00\x01\xFF"
        "a",
        4);
    const ValuePtr value = MakeBytes(bytes, 16);
    EXPECT_EQ(value->get_TypeCode(), static_cast<uint32_t>(ValueType::FixedBinary));
    const auto& raw = ViewOf<I_RawBytes>(value, kRawBytesInterfaceId);
    EXPECT_EQ(raw.get_DeclaredSize(), 16U);
    ASSERT_EQ(raw.get_Length(), 4U);
    EXPECT_EQ(std::memcmp(raw.get_Data(), bytes.data(), 4), 0);
    EXPECT_EQ(Narrow(value->get_Text()), "0001ff61");
}

TEST(BytesValue, CopiesNoMoreThanThereIs) {
    const ValuePtr value = MakeBytes("abc", 3);
    const auto& raw = ViewOf<I_RawBytes>(value, kRawBytesInterfaceId);
    char buffer[6] = "-----";
    raw.CopyTo(buffer, 2);
    EXPECT_STREQ(buffer, "ab---");
    raw.CopyTo(buffer, 100);
    EXPECT_STREQ(buffer, "abc--");
    raw.CopyTo(nullptr, 0);
}

TEST(BytesValue, MayBeEmptyAndNull) {
    const ValuePtr value = TakeValue(CreateValueFixedBinary(true, nullptr, nullptr));
    auto& raw = ViewOf<I_RawBytes>(value, kRawBytesInterfaceId);
    EXPECT_EQ(raw.get_DeclaredSize(), 0U);
    EXPECT_EQ(raw.get_Length(), 0U);
    raw.put_Bytes("xyz", 3);
    EXPECT_EQ(raw.get_Length(), 3U);
    value->put_IsNull(true);
    EXPECT_EQ(raw.get_Length(), 0U);
    raw.put_Bytes(nullptr, 0);
    EXPECT_FALSE(value->get_IsNull());
    EXPECT_EQ(raw.get_Length(), 0U);
}

TEST(BytesValue, IsSetByHexadecimalText) {
    const ValuePtr value = MakeBytes("abc", 3);
    value->put_Text(Wide("00fFA1"));
    EXPECT_EQ(Narrow(value->get_Text()), "00ffa1");
    EXPECT_THROW(value->put_Text(Wide("0")), xException);
    EXPECT_THROW(value->put_Text(Wide("0g")), xException);
    EXPECT_EQ(Narrow(value->get_Text()), "00ffa1");
}

}  // namespace
}  // namespace nbx
