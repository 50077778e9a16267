#include "mshared/test_support.h"
#include "nbx/exception.h"

namespace nbx {
namespace {

TEST(DateValue, ReturnsItsPartsAndItsText) {
    const DateContent content{2024, 1, 31};
    const ValuePtr value = TakeValue(CreateValueDate(true, &content, nullptr));
    auto& date = ViewOf<I_DateValue>(value, kDateInterfaceId);
    EXPECT_EQ(date.get_Year(), 2024);
    EXPECT_EQ(date.get_Month(), 1);
    EXPECT_EQ(date.get_Day(), 31);
    EXPECT_EQ(Narrow(value->get_Text()), "2024-01-31");
    EXPECT_EQ(value->get_LLong(), 2024);
    date.put_Date(-44, 3, 15);
    EXPECT_EQ(Narrow(value->get_Text()), "-0044-03-15");
    date.put_Date(5881580, 7, 11);
    EXPECT_EQ(Narrow(value->get_Text()), "5881580-07-11");
    date.put_Date(INT32_MIN, 1, 1);
    EXPECT_EQ(Narrow(value->get_Text()), "-2147483648-01-01");
}

TEST(DateValue, IsSetThroughItsViewAndByText) {
    const ValuePtr value = TakeValue(CreateValueDate(true, nullptr, nullptr));
    value->put_IsNull(true);
    EXPECT_EQ(value->get_Text(), String());
    ViewOf<I_DateValue>(value, kDateInterfaceId).put_Date(1999, 12, 31);
    EXPECT_FALSE(value->get_IsNull());
    value->put_Text(Wide("-0044-03-15"));
    EXPECT_EQ(ViewOf<I_DateValue>(value, kDateInterfaceId).get_Year(), -44);
}

TEST(DateValue, RejectsTextThatIsNotADate) {
    const ValuePtr value = TakeValue(CreateValueDate(true, nullptr, nullptr));
    value->put_Text(Wide("2024-01-31"));
    for (const char* const text : {"", "yesterday", "2024-13-01", "2024-01-32", "2024-01", "2024-01-31x",
                                   "2024--1-01", "99999999999-01-01"}) {
        try {
            value->put_Text(Wide(text));
            ADD_FAILURE() << "accepted " << text;
        } catch (const xException& error) {
            EXPECT_EQ(error.get_Code(), kValueContentCode);
        }
    }
    EXPECT_EQ(Narrow(value->get_Text()), "2024-01-31");
    EXPECT_THROW(value->put_LLong(20240131), xException);
}

TEST(TimeValue, ReturnsItsPartsAndItsText) {
    const TimeContent content{12, 34, 56, 789};
    const ValuePtr value = TakeValue(CreateValueTime(true, &content, nullptr));
    auto& time = ViewOf<I_TimeValue>(value, kTimeInterfaceId);
    EXPECT_EQ(time.get_Hours(), 12);
    EXPECT_EQ(time.get_Minutes(), 34);
    EXPECT_EQ(time.get_Seconds(), 56);
    EXPECT_EQ(time.get_Milliseconds(), 789);
    EXPECT_EQ(Narrow(value->get_Text()), "12:34:56.789");
    time.put_Time(1, 2, 3, 4);
    EXPECT_EQ(Narrow(value->get_Text()), "01:02:03.004");
    value->put_IsNull(true);
    EXPECT_EQ(time.get_Hours(), 0);
}

TEST(TimeValue, IsSetByText) {
    const ValuePtr value = TakeValue(CreateValueTime(true, nullptr, nullptr));
    for (const auto& [text, expected] :
         {std::pair("23:59", "23:59:00.000"), std::pair("23:59:58", "23:59:58.000"),
          std::pair("23:59:58.5", "23:59:58.500"), std::pair("1:2:3.0456", "01:02:03.045")}) {
        value->put_Text(Wide(text));
        EXPECT_EQ(Narrow(value->get_Text()), expected);
    }
    for (const char* const text :
         {"12", "12:", "25:00", "12:60", "12:00:61", "12:00:00.", "12:00:00.x", "noon"}) {
        EXPECT_THROW(value->put_Text(Wide(text)), xException) << text;
    }
}

TEST(DateTimeValue, ReturnsItsPartsAndItsText) {
    const DateTimeContent content{{2024, 1, 31}, {12, 34, 56, 789}};
    const ValuePtr value = TakeValue(CreateValueDateTime(true, &content, nullptr));
    auto& view = ViewOf<I_DateTimeValue>(value, kDateTimeInterfaceId);
    EXPECT_EQ(view.get_Year(), 2024);
    EXPECT_EQ(view.get_Month(), 1);
    EXPECT_EQ(view.get_Day(), 31);
    EXPECT_EQ(view.get_Hours(), 12);
    EXPECT_EQ(view.get_Minutes(), 34);
    EXPECT_EQ(view.get_Seconds(), 56);
    EXPECT_EQ(view.get_Milliseconds(), 789);
    EXPECT_EQ(Narrow(value->get_Text()), "2024-01-31 12:34:56.789");
    view.put_DateTime(1, 2, 3, 4, 5, 6, 7);
    EXPECT_EQ(Narrow(value->get_Text()), "0001-02-03 04:05:06.007");
    value->put_IsNull(true);
    EXPECT_EQ(view.get_Year(), 0);
    EXPECT_EQ(value->get_Text(), String());
}

TEST(DateTimeValue, IsSetByText) {
    const ValuePtr value = TakeValue(CreateValueDateTime(true, nullptr, nullptr));
    for (const auto& [text, expected] : {std::pair("2024-01-31", "2024-01-31 00:00:00.000"),
                                         std::pair("2024-01-31 12:34", "2024-01-31 12:34:00.000"),
                                         std::pair("2024-01-31T12:34:56.789", "2024-01-31 12:34:56.789")}) {
        value->put_Text(Wide(text));
        EXPECT_EQ(Narrow(value->get_Text()), expected);
    }
    for (const char* const text : {"", "now", "2024-01-31 ", "2024-01-31x12:00", "2024-01-31 12:00:00.5 "}) {
        EXPECT_THROW(value->put_Text(Wide(text)), xException) << text;
    }
}

}  // namespace
}  // namespace nbx
