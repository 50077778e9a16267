#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <string>

#include "mshared/test_support.h"
#include "nbx/content_in_place.h"
#include "nbx/exception.h"

namespace nbx {
namespace {

using Factory = I_Value* (*)(bool nullable, const void* content, const void* extra);

template <class T>
ValuePtr Make(Factory factory, T content) {
    return TakeValue(factory(true, &content, nullptr));
}

struct Expected {
    ValueType type;
    int64_t number;
    const char* text;
};

void Expect(const ValuePtr& value, const Expected& expected) {
    EXPECT_EQ(value->get_TypeCode(), static_cast<uint32_t>(expected.type));
    EXPECT_FALSE(value->get_IsNull());
    EXPECT_EQ(value->get_RefsCount(), 1U);
    EXPECT_EQ(value->get_LLong(), expected.number) << expected.text;
    EXPECT_EQ(value->get_Boolean(), expected.number != 0) << expected.text;
    EXPECT_EQ(Narrow(value->get_Text()), expected.text);
}

TEST(NumberValues, AreCreatedInTheirOwnWidth) {
    Expect(Make<bool>(CreateValueBoolean, true), {ValueType::Boolean, 1, "true"});
    Expect(Make<uint8_t>(CreateValueByte, 255), {ValueType::Byte, 255, "255"});
    Expect(Make<int16_t>(CreateValueShort, -32768), {ValueType::Short, -32768, "-32768"});
    Expect(Make<uint16_t>(CreateValueUShort, 65535), {ValueType::UShort, 65535, "65535"});
    Expect(Make<int32_t>(CreateValueLong, INT32_MIN), {ValueType::Long, INT32_MIN, "-2147483648"});
    Expect(Make<uint32_t>(CreateValueULong, UINT32_MAX), {ValueType::ULong, UINT32_MAX, "4294967295"});
    Expect(Make<int64_t>(CreateValueLLong, INT64_MIN), {ValueType::LLong, INT64_MIN, "-9223372036854775808"});
    Expect(Make<uint64_t>(CreateValueULLong, UINT64_MAX),
           {ValueType::ULLong, INT64_MAX, "18446744073709551615"});
    Expect(Make<float>(CreateValueFloat, 1.5F), {ValueType::Float, 1, "1.5"});
    Expect(Make<double>(CreateValueDouble, -2.25), {ValueType::Double, -2, "-2.25"});
}

template <class T>
void ExpectInPlace(std::initializer_list<ValueType> types) {
    for (const ValueType type : types) {
        const ValuePtr value = TakeValue(CreateValueOfType(static_cast<uint32_t>(type), true));
        for (const bool is_null : {false, true}) {
            value->put_Boolean(true);
            value->put_IsNull(is_null);
            const auto content = GetContentInPlace(*value);
            ASSERT_TRUE(content && content->number != nullptr) << static_cast<uint32_t>(type);
            EXPECT_EQ(*static_cast<const T*>(content->number), static_cast<T>(is_null ? 0 : 1))
                << static_cast<uint32_t>(type);
            EXPECT_EQ(content->type_code, static_cast<uint32_t>(type));
            EXPECT_EQ(content->is_null, is_null);
            EXPECT_EQ(content->text, u"");
        }
    }
}

TEST(NumberValues, ShowTheirNumberInPlaceInItsOwnWidth) {
    ExpectInPlace<bool>({ValueType::Boolean});
    ExpectInPlace<uint8_t>({ValueType::Byte, ValueType::Enum8});
    ExpectInPlace<int16_t>({ValueType::Short});
    ExpectInPlace<uint16_t>({ValueType::UShort, ValueType::Enum16});
    ExpectInPlace<int32_t>({ValueType::Long, ValueType::Medium});
    ExpectInPlace<uint32_t>({ValueType::ULong, ValueType::UMedium});
    ExpectInPlace<int64_t>({ValueType::LLong});
    ExpectInPlace<uint64_t>({ValueType::ULLong});
    ExpectInPlace<float>({ValueType::Float});
    ExpectInPlace<double>({ValueType::Double, ValueType::LDouble, ValueType::Currency});
    const int64_t large = INT64_MIN;
    const ValuePtr value = Make<int64_t>(CreateValueLLong, large);
    EXPECT_EQ(*static_cast<const int64_t*>(GetContentInPlace(*value)->number), large);
}

TEST(NumberValues, AreZeroWithoutAContent) {
    for (const Factory factory :
         {CreateValueByte, CreateValueShort, CreateValueUShort, CreateValueLong, CreateValueULong,
          CreateValueLLong, CreateValueULLong, CreateValueFloat, CreateValueDouble}) {
        const ValuePtr value = TakeValue(factory(false, nullptr, nullptr));
        EXPECT_EQ(value->get_LLong(), 0);
        EXPECT_EQ(Narrow(value->get_Text()), "0");
        EXPECT_FALSE(value->get_IsNull());
        EXPECT_FALSE(value->get_IsNullable());
    }
    EXPECT_EQ(Narrow(TakeValue(CreateValueBoolean(false, nullptr, nullptr))->get_Text()), "false");
}

TEST(NumberValues, ReadNullAsZeroAndAsTheEmptyText) {
    const ValuePtr value = Make<int32_t>(CreateValueLong, 7);
    value->put_IsNull(true);
    EXPECT_TRUE(value->get_IsNull());
    EXPECT_EQ(value->get_LLong(), 0);
    EXPECT_EQ(value->get_ULLong(), 0U);
    EXPECT_EQ(value->get_Double(), 0);
    EXPECT_FALSE(value->get_Boolean());
    EXPECT_EQ(value->get_Text(), String());
    value->put_LLong(8);
    EXPECT_FALSE(value->get_IsNull());
    EXPECT_EQ(value->get_LLong(), 8);
}

TEST(NumberValues, RefuseNullWhenTheyMayNotBeNull) {
    const ValuePtr value = TakeValue(CreateValueLong(false, nullptr, nullptr));
    value->put_LLong(3);
    try {
        value->put_IsNull(true);
        FAIL() << "no exception";
    } catch (const xException& error) {
        EXPECT_EQ(error.get_Code(), kValueNotNullableCode);
    }
    EXPECT_FALSE(value->get_IsNull());
    EXPECT_EQ(value->get_LLong(), 3);
    EXPECT_NO_THROW(value->put_IsNull(false));
}

TEST(NumberValues, StoreTheNearestNumberThatTheyCanHold) {
    const ValuePtr byte = TakeValue(CreateValueByte(false, nullptr, nullptr));
    byte->put_LLong(300);
    EXPECT_EQ(byte->get_LLong(), 255);
    byte->put_LLong(-1);
    EXPECT_EQ(byte->get_LLong(), 0);
    byte->put_Double(7.9);
    EXPECT_EQ(byte->get_LLong(), 7);
    const ValuePtr number = TakeValue(CreateValueLong(false, nullptr, nullptr));
    number->put_ULLong(std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(number->get_LLong(), INT32_MAX);
    number->put_Double(-1e300);
    EXPECT_EQ(number->get_LLong(), INT32_MIN);
    number->put_Double(std::nan(""));
    EXPECT_EQ(number->get_LLong(), 0);
    number->put_Boolean(true);
    EXPECT_EQ(number->get_LLong(), 1);
}

TEST(NumberValues, ConvertAtTheEndsOfTheirRanges) {
    EXPECT_EQ(Make<double>(CreateValueDouble, 9223372036854775808.0)->get_LLong(), INT64_MAX);
    EXPECT_EQ(Make<double>(CreateValueDouble, -9223372036854775808.0)->get_LLong(), INT64_MIN);
    EXPECT_EQ(Make<double>(CreateValueDouble, 18446744073709551616.0)->get_ULLong(), UINT64_MAX);
    EXPECT_EQ(Make<double>(CreateValueDouble, -0.5)->get_ULLong(), 0U);
    EXPECT_EQ(Make<double>(CreateValueDouble, HUGE_VAL)->get_LLong(), INT64_MAX);
    EXPECT_EQ(Make<int64_t>(CreateValueLLong, -1)->get_ULLong(), 0U);
    EXPECT_EQ(Make<uint64_t>(CreateValueULLong, UINT64_MAX)->get_ULLong(), UINT64_MAX);
    EXPECT_EQ(Make<float>(CreateValueFloat, std::numeric_limits<float>::max())->get_LLong(), INT64_MAX);
}

TEST(NumberValues, WriteFloatsWithTheFewestDigitsThatRestoreThem) {
    EXPECT_EQ(Narrow(Make<double>(CreateValueDouble, 0.1)->get_Text()), "0.1");
    EXPECT_EQ(Narrow(Make<float>(CreateValueFloat, 0.1F)->get_Text()), "0.1");
    EXPECT_EQ(Narrow(Make<double>(CreateValueDouble, 1e300)->get_Text()), "1e+300");
    EXPECT_EQ(Narrow(Make<double>(CreateValueDouble, -0.0)->get_Text()), "-0");
    EXPECT_EQ(Narrow(Make<double>(CreateValueDouble, HUGE_VAL)->get_Text()), "inf");
    EXPECT_EQ(Narrow(Make<double>(CreateValueDouble, std::nan(""))->get_Text()), "nan");
    const double tiny = std::numeric_limits<double>::denorm_min();
    const ValuePtr value = Make<double>(CreateValueDouble, tiny);
    value->put_Text(value->get_Text());
    EXPECT_EQ(value->get_Double(), tiny);
}

struct TextCase {
    const char* text;
    double number;
};

TEST(NumberValues, ReadTheNumberThatATextStartsWith) {
    const ValuePtr value = TakeValue(CreateValueDouble(false, nullptr, nullptr));
    for (const TextCase& test :
         {TextCase{"1.25e2 kg", 125}, TextCase{" -3", -3}, TextCase{"+.5", 0.5}, TextCase{"0x1F", 0},
          TextCase{"", 0}, TextCase{"information", 0}, TextCase{"nothing", 0}, TextCase{"-inf", -HUGE_VAL},
          TextCase{"1e999", HUGE_VAL}, TextCase{"1e-999", 0}, TextCase{"1,5", 1}}) {
        value->put_Text(Wide(test.text));
        EXPECT_EQ(value->get_Double(), test.number) << test.text;
    }
    value->put_Text(Wide("nan"));
    EXPECT_TRUE(std::isnan(value->get_Double()));
}

TEST(NumberValues, KeepAllDigitsOfTextsThatFit) {
    const ValuePtr value = TakeValue(CreateValueULLong(false, nullptr, nullptr));
    value->put_Text(Wide("18446744073709551615"));
    EXPECT_EQ(value->get_ULLong(), UINT64_MAX);
    value->put_Text(Wide("18446744073709551616"));
    EXPECT_EQ(value->get_ULLong(), UINT64_MAX);
    value->put_Text(Wide("-1"));
    EXPECT_EQ(value->get_ULLong(), 0U);
}

TEST(BooleanValue, ReadsBooleanNamesAndNumbers) {
    const ValuePtr value = TakeValue(CreateValueBoolean(true, nullptr, nullptr));
    for (const char* const text : {"true", "TRUE", "1", "-2", "0.5"}) {
        value->put_Text(Wide(text));
        EXPECT_TRUE(value->get_Boolean()) << text;
    }
    for (const char* const text : {"false", "0", "", "no", "truest"}) {
        value->put_Text(Wide(text));
        EXPECT_FALSE(value->get_Boolean()) << text;
    }
    value->put_Double(0.5);
    EXPECT_TRUE(value->get_Boolean());
}

TEST(NumberValues, OfferNoFurtherInterface) {
    const ValuePtr value = TakeValue(CreateValueLong(false, nullptr, nullptr));
    for (const uint32_t id : {kRawBytesInterfaceId, kDateInterfaceId, kDateTimeInterfaceId, kTimeInterfaceId,
                              kReferenceInterfaceId, kArrayInterfaceId, kJSONInterfaceId}) {
        EXPECT_EQ(value->QueryInterface(id), nullptr);
    }
}

}  // namespace
}  // namespace nbx
