#include "procedures/arguments.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/fake_host.h"

namespace mduckdb {
namespace {

using test::FakeHost;

template <class Error>
std::string RefusalOf(const std::string& limit) {
    try {
        return "accepted as " + ParseLimit(limit);
    } catch (const Error& error) {
        return error.what();
    }
}

TEST(ParseLimit, ReturnsTheDecimalDigitsOfTheNumber) {
    EXPECT_EQ("12", ParseLimit(" 12 "));
    EXPECT_EQ("5", ParseLimit("+5"));
    EXPECT_EQ("7", ParseLimit("007"));
    EXPECT_EQ("0", ParseLimit("0"));
    EXPECT_EQ("0", ParseLimit("-0"));
    EXPECT_EQ("9223372036854775807", ParseLimit("9223372036854775807"));
}

TEST(ParseLimit, RejectsWhatIsNotANumber) {
    EXPECT_EQ("limit must be an integer", RefusalOf<std::invalid_argument>("12abc"));
    EXPECT_EQ("limit must be an integer", RefusalOf<std::invalid_argument>("1.5"));
    EXPECT_EQ("limit must be an integer", RefusalOf<std::invalid_argument>("-1x"));
    EXPECT_EQ("limit must be an integer", RefusalOf<std::invalid_argument>("0x10"));
    EXPECT_EQ("invalid stoll argument", RefusalOf<std::invalid_argument>("abc"));
    EXPECT_EQ("invalid stoll argument", RefusalOf<std::invalid_argument>(""));
    EXPECT_EQ("invalid stoll argument", RefusalOf<std::invalid_argument>("   "));
    EXPECT_EQ("invalid stoll argument", RefusalOf<std::invalid_argument>("+"));
    EXPECT_EQ("limit must not be negative", RefusalOf<std::invalid_argument>("-1"));
}

TEST(ParseLimit, RefusesWhatDoesNotFitBeforeLookingAtTheRest) {
    EXPECT_EQ("stoll argument out of range", RefusalOf<std::out_of_range>("9223372036854775808"));
    EXPECT_EQ("stoll argument out of range", RefusalOf<std::out_of_range>("-9223372036854775809"));
    EXPECT_EQ("stoll argument out of range", RefusalOf<std::out_of_range>("99999999999999999999abc"));
}

TEST(Arguments, AnUnsignedLimitIsAcceptedWithoutARangeCheck) {
    FakeHost host;
    test::FakeValue* limit = host.Int(-1);
    limit->type = MIRONA_TYPE_UINT64;
    mirona_value values[] = {limit};
    host.argument_count = 1;
    EXPECT_EQ("18446744073709551615", Arguments(host.get_Call(), values).Limit(0));
}

TEST(Arguments, AMissingArgumentReadsAsNull) {
    FakeHost host;
    host.argument_count = 0;
    const Arguments arguments(host.get_Call(), nullptr);
    EXPECT_EQ(0u, arguments.get_Count());
    EXPECT_EQ("", arguments.OptionalText(0));
    EXPECT_EQ("", arguments.Limit(3));
    EXPECT_EQ("*", arguments.ColumnList(1));
    EXPECT_THROW(arguments.RequiredText(0, "parquet_count"), std::invalid_argument);
}

TEST(Arguments, ColumnListsBecomeIdentifiers) {
    FakeHost host;
    mirona_value values[] = {host.Text(" b , , a\"x "), host.Array({host.Text("x,y"), host.Null(), nullptr}),
                             host.Array({}), host.Text("*"), host.Int(7)};
    host.argument_count = 5;
    const Arguments arguments(host.get_Call(), values);
    EXPECT_EQ("\"b\", \"a\"\"x\"", arguments.ColumnList(0));
    EXPECT_EQ("\"x,y\"", arguments.ColumnList(1));
    EXPECT_EQ("*", arguments.ColumnList(2));
    EXPECT_EQ("*", arguments.ColumnList(3));
    EXPECT_EQ("\"7\"", arguments.ColumnList(4));
}

}  // namespace
}  // namespace mduckdb
