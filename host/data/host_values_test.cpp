#include "data/host_values.h"

#include <gtest/gtest.h>

#include "data/datum.h"
#include "mirona/extension_api.h"

namespace mduckdb_host {
namespace {

using nbx::I_Value;
using nbx::smart_ptr;

std::string RoundTrip(const Datum& datum) {
    std::string text;
    AppendJson(text, ToDatum(ToHostValue(datum)));
    return text;
}

uint32_t ElementTypeOf(List list) {
    const auto value = ToHostValue({std::move(list)});
    auto* const array = static_cast<nbx::I_ArrayValue*>(value->QueryInterface(nbx::kArrayInterfaceId));
    return array->get_ElementTypeCode();
}

uint32_t CodeOf(nbx::ValueType type) {
    return static_cast<uint32_t>(type);
}

TEST(HostValues, ParametersRoundTripUnchanged) {
    EXPECT_EQ(RoundTrip({}), "null");
    EXPECT_EQ(RoundTrip({true}), "true");
    EXPECT_EQ(RoundTrip({INT64_MIN}), "-9223372036854775808");
    EXPECT_EQ(RoundTrip({UINT64_MAX}), "18446744073709551615");
    EXPECT_EQ(RoundTrip({0.1}), "0.1");
    EXPECT_EQ(RoundTrip({std::string("é\0x", 4)}), "\"é\\u0000x\"");
    EXPECT_EQ(RoundTrip({JsonText{"{\"a\":1}"}}), "{\"a\":1}");
    EXPECT_EQ(RoundTrip({List{{{int64_t{1}}, {}, {int64_t{3}}}}}), "[1, null, 3]");
}

TEST(HostValues, ANullIsANullPointer) {
    EXPECT_EQ(ToHostValue({}), nullptr);
}

TEST(HostValues, ANullValueOfAnyKindIsANull) {
    const auto value = smart_ptr<I_Value>::Adopt(nbx::CreateValueBoolean(true, nullptr, nullptr));
    value->put_IsNull(true);
    EXPECT_TRUE(ToDatum(value).get_IsNull());
}

TEST(HostValues, AnArrayDeclaresTheKindOfItsItems) {
    EXPECT_EQ(ElementTypeOf({{{int64_t{1}}, {}}}), CodeOf(nbx::ValueType::LLong));
    EXPECT_EQ(ElementTypeOf({{{1.5}, {int64_t{1}}, {2.5}}}), CodeOf(nbx::ValueType::Double));
    EXPECT_EQ(ElementTypeOf({{{int64_t{1}}, {1.5}}}), CodeOf(nbx::ValueType::Double));
    EXPECT_EQ(ElementTypeOf({{{true}}}), CodeOf(nbx::ValueType::Boolean));
    EXPECT_EQ(ElementTypeOf({{{int64_t{1}}, {std::string("a")}}}), CodeOf(nbx::ValueType::String));
    EXPECT_EQ(ElementTypeOf({}), CodeOf(nbx::ValueType::String));
}

TEST(HostValues, DatesTimesAndBytesAreReadThroughTheirInterfaces) {
    const nbx::DateContent date{2024, 3, 15};
    EXPECT_EQ(ToText(ToDatum(smart_ptr<I_Value>::Adopt(nbx::CreateValueDate(false, &date, nullptr)))),
              "2024-03-15");
    const nbx::TimeContent time{1, 2, 3, 4};
    EXPECT_EQ(ToText(ToDatum(smart_ptr<I_Value>::Adopt(nbx::CreateValueTime(false, &time, nullptr)))),
              "01:02:03.004");
    const nbx::DateTimeContent moment{date, time};
    EXPECT_EQ(ToText(ToDatum(smart_ptr<I_Value>::Adopt(nbx::CreateValueDateTime(false, &moment, nullptr)))),
              "2024-03-15 01:02:03.004");
    const std::string_view bytes("\x00\xab", 2);
    const uint64_t size = 2;
    EXPECT_EQ(ToText(ToDatum(smart_ptr<I_Value>::Adopt(nbx::CreateValueFixedBinary(false, &bytes, &size)))),
              "\\x00ab");
}

TEST(HostValues, ASingleKeepsItsDigits) {
    const float tenth = 0.1F;
    EXPECT_EQ(ToText(ToDatum(smart_ptr<I_Value>::Adopt(nbx::CreateValueFloat(false, &tenth, nullptr)))),
              "0.1");
    EXPECT_EQ(WidenByDigits(16777216.0F), 16777216.0);
}

TEST(HostValues, ColumnsHaveTheTypeOfTheirValues) {
    EXPECT_EQ(get_HostTypeOfColumn(1), uint32_t{MIRONA_TYPE_BOOL});
    EXPECT_EQ(get_HostTypeOfColumn(5), uint32_t{MIRONA_TYPE_INT64});
    EXPECT_EQ(get_HostTypeOfColumn(9), uint32_t{MIRONA_TYPE_UINT64});
    EXPECT_EQ(get_HostTypeOfColumn(13), uint32_t{MIRONA_TYPE_TEXT});
    EXPECT_EQ(get_HostTypeOfColumn(18), uint32_t{MIRONA_TYPE_BINARY});
    EXPECT_EQ(get_HostTypeOfColumn(19), uint32_t{MIRONA_TYPE_DOUBLE});
    EXPECT_EQ(get_HostTypeOfColumn(41), uint32_t{MIRONA_TYPE_VARIANT});
    EXPECT_EQ(get_HostTypeOfColumn(1000), uint32_t{MIRONA_TYPE_TEXT});
}

}  // namespace
}  // namespace mduckdb_host
