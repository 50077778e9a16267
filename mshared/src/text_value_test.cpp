#include <string>

#include "mshared/test_support.h"
#include "nbx/content_in_place.h"

namespace nbx {
namespace {

ValuePtr MakeText(std::string_view content, bool nullable = true) {
    return TakeValue(CreateValueString(nullable, &content, nullptr));
}

TEST(TextValue, KeepsTheTextOfAnyLength) {
    for (const std::size_t length : {0U, 1U, 7U, 8U, 20U, 40U, 100U, 600U, 100'000U}) {
        const std::string text(length, 'x');
        const ValuePtr value = MakeText(text);
        EXPECT_EQ(value->get_TypeCode(), static_cast<uint32_t>(ValueType::String));
        EXPECT_EQ(Narrow(value->get_Text()), text);
    }
    const std::string special("a\0\xE2\x82\xAC\xF0\x9F\x98\x80", 9);
    EXPECT_EQ(Narrow(MakeText(special)->get_Text()), special);
    EXPECT_EQ(MakeText("\xFF")->get_Text().get_View(), u"\uFFFD");
}

TEST(TextValue, StoresTextsOfEveryLengthInTurn) {
    const ValuePtr value = MakeText("first");
    for (std::size_t length = 0; length < 200; ++length) {
        const std::string text(length, 'y');
        value->put_Text(Wide(text));
        ASSERT_EQ(Narrow(value->get_Text()), text);
        ASSERT_EQ(Narrow(MakeText(text)->get_Text()), text);
    }
    value->put_IsNull(true);
    EXPECT_EQ(value->get_Text(), String());
    value->put_IsNull(false);
    EXPECT_EQ(value->get_Text(), String());
}

std::u16string_view TextInPlace(const ValuePtr& value) {
    const auto content = GetContentInPlace(*value);
    EXPECT_TRUE(content && content->number == nullptr && content->type_code == value->get_TypeCode() &&
                content->is_null == value->get_IsNull());
    return content ? content->text : u"no content";
}

TEST(TextValue, ShowsItsTextInPlace) {
    for (const char* text :
         {"", "short", "a text that is longer than a few characters", "\xC3\xA4\xC3\xB6"}) {
        const ValuePtr value = MakeText(text);
        EXPECT_EQ(TextInPlace(value), value->get_Text().get_View());
    }
    const ValuePtr value = MakeText("first");
    value->put_Text(Wide("another, longer text"));
    EXPECT_EQ(TextInPlace(value), u"another, longer text");
    value->put_IsNull(true);
    EXPECT_EQ(TextInPlace(value), u"");
}

TEST(TextValue, ValuesWithInterfacesShowNoContentInPlace) {
    for (const ValueType type : {ValueType::JSON, ValueType::VarBinary, ValueType::Date, ValueType::Time,
                                 ValueType::DateTime, ValueType::Reference, ValueType::Array}) {
        const ValuePtr value = TakeValue(CreateValueOfType(static_cast<uint32_t>(type), true));
        EXPECT_FALSE(GetContentInPlace(*value)) << static_cast<uint32_t>(type);
    }
}

TEST(TextValue, ReadsAsTheNumberThatItStartsWith) {
    const ValuePtr value = MakeText("-12.75 metres");
    EXPECT_EQ(value->get_LLong(), -12);
    EXPECT_EQ(value->get_ULLong(), 0U);
    EXPECT_EQ(value->get_Double(), -12.75);
    EXPECT_TRUE(value->get_Boolean());
    EXPECT_FALSE(MakeText("metres")->get_Boolean());
}

TEST(TextValue, StoresNumbersAsTheirDigits) {
    const ValuePtr value = MakeText("");
    value->put_LLong(-5);
    EXPECT_EQ(Narrow(value->get_Text()), "-5");
    value->put_ULLong(18446744073709551615U);
    EXPECT_EQ(Narrow(value->get_Text()), "18446744073709551615");
    value->put_Double(0.25);
    EXPECT_EQ(Narrow(value->get_Text()), "0.25");
    value->put_Boolean(true);
    EXPECT_EQ(Narrow(value->get_Text()), "true");
    value->put_Text(Wide("a text that replaces the former one by a longer one"));
    EXPECT_EQ(Narrow(value->get_Text()), "a text that replaces the former one by a longer one");
}

TEST(TextValue, IsEmptyWhileItIsNull) {
    const ValuePtr value = MakeText("something");
    value->put_IsNull(true);
    EXPECT_TRUE(value->get_IsNull());
    EXPECT_EQ(value->get_Text(), String());
    value->put_Text(Wide("again"));
    EXPECT_FALSE(value->get_IsNull());
    EXPECT_EQ(Narrow(value->get_Text()), "again");
}

TEST(CreateValueOfType, CreatesAValueForEveryCodeThatReportsItsCode) {
    for (uint32_t code = 0; code <= 50; ++code) {
        const ValuePtr value = TakeValue(CreateValueOfType(code, true));
        EXPECT_EQ(value->get_TypeCode(), code);
        EXPECT_TRUE(value->get_IsNullable()) << code;
        EXPECT_FALSE(value->get_Boolean()) << code;
        EXPECT_EQ(value->get_RefsCount(), 1U) << code;
    }
}

TEST(CreateValueOfType, CreatesTextWhereTheHostHasNoKind) {
    for (const uint32_t code : {0U, 1U, 19U, 20U, 24U, 26U, 32U, 35U, 37U, 40U, 50U}) {
        const ValuePtr value = TakeValue(CreateValueOfType(code, false));
        value->put_Text(Wide("any text"));
        EXPECT_EQ(Narrow(value->get_Text()), "any text") << code;
    }
}

struct InterfaceOfType {
    ValueType type;
    uint32_t interface_id;
};

TEST(CreateValueOfType, ReturnsTheInterfaceOfTheType) {
    for (const InterfaceOfType& test : {InterfaceOfType{ValueType::Date, kDateInterfaceId},
                                        InterfaceOfType{ValueType::Time, kTimeInterfaceId},
                                        InterfaceOfType{ValueType::DateTime, kDateTimeInterfaceId},
                                        InterfaceOfType{ValueType::FixedBinary, kRawBytesInterfaceId},
                                        InterfaceOfType{ValueType::VarBinary, kRawBytesInterfaceId},
                                        InterfaceOfType{ValueType::Blob, kRawBytesInterfaceId},
                                        InterfaceOfType{ValueType::Picture, kRawBytesInterfaceId},
                                        InterfaceOfType{ValueType::JSON, kJSONInterfaceId},
                                        InterfaceOfType{ValueType::Array, kArrayInterfaceId},
                                        InterfaceOfType{ValueType::Reference, kReferenceInterfaceId}}) {
        const ValuePtr value = TakeValue(CreateValueOfType(static_cast<uint32_t>(test.type), true));
        for (uint32_t id = 2200; id < 2220; ++id) {
            EXPECT_EQ(value->QueryInterface(id) != nullptr, id == test.interface_id)
                << value->get_TypeCode() << " " << id;
        }
    }
}

}  // namespace
}  // namespace nbx
