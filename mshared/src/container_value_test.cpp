#include <cmath>
#include <string>

#include "mshared/test_support.h"
#include "nbx/exception.h"

namespace nbx {
namespace {

ValuePtr MakeLong(int32_t content) {
    return TakeValue(CreateValueLong(true, &content, nullptr));
}

ValuePtr MakeText(std::string_view content) {
    return TakeValue(CreateValueString(true, &content, nullptr));
}

TEST(ReferenceValue, ActsAsItsInnerValue) {
    const ValuePtr inner = MakeLong(5);
    const ValuePtr value = TakeValue(CreateValueReference(inner));
    EXPECT_EQ(value->get_TypeCode(), static_cast<uint32_t>(ValueType::Reference));
    EXPECT_EQ(value->get_LLong(), 5);
    EXPECT_EQ(value->get_ULLong(), 5U);
    EXPECT_EQ(value->get_Double(), 5);
    EXPECT_TRUE(value->get_Boolean());
    EXPECT_EQ(Narrow(value->get_Text()), "5");
    value->put_LLong(6);
    EXPECT_EQ(inner->get_LLong(), 6);
    inner->put_IsNull(true);
    EXPECT_TRUE(value->get_IsNull());
    EXPECT_TRUE(ViewOf<I_ReferenceValue>(value, kReferenceInterfaceId).get_Inner() == inner);
}

TEST(ReferenceValue, IsNullWithoutAnInnerValueAndCreatesOneWhenSet) {
    const ValuePtr value = TakeValue(CreateValueReference(nullptr));
    auto& reference = ViewOf<I_ReferenceValue>(value, kReferenceInterfaceId);
    EXPECT_TRUE(value->get_IsNull());
    EXPECT_EQ(value->get_Text(), String());
    EXPECT_EQ(value->get_LLong(), 0);
    value->put_Double(1.5);
    ASSERT_TRUE(reference.get_Inner());
    EXPECT_EQ(reference.get_Inner()->get_TypeCode(), static_cast<uint32_t>(ValueType::Double));
    value->put_IsNull(true);
    EXPECT_FALSE(reference.get_Inner());
    value->put_Text(Wide("text"));
    EXPECT_EQ(Narrow(value->get_Text()), "text");
    reference.put_Inner(MakeLong(1));
    EXPECT_EQ(value->get_LLong(), 1);
}

TEST(ArrayValue, HoldsItsElements) {
    const ValuePtr value = TakeValue(CreateValueArray(static_cast<uint32_t>(ValueType::Long)));
    auto& array = ViewOf<I_ArrayValue>(value, kArrayInterfaceId);
    EXPECT_EQ(array.get_ElementTypeCode(), static_cast<uint32_t>(ValueType::Long));
    EXPECT_EQ(array.get_Count(), 0U);
    EXPECT_EQ(Narrow(value->get_Text()), "[]");
    const ValuePtr element = MakeLong(1);
    array.Append(element);
    array.Append(nullptr);
    ASSERT_EQ(array.get_Count(), 2U);
    EXPECT_TRUE(array.get_Element(0) == element);
    EXPECT_FALSE(array.get_Element(1));
    value->put_IsNull(true);
    EXPECT_EQ(array.get_Count(), 0U);
    EXPECT_EQ(element->get_RefsCount(), 1U);
}

TEST(ArrayValue, ReadsAsJson) {
    const ValuePtr inner = TakeValue(CreateValueArray(static_cast<uint32_t>(ValueType::Double)));
    const double infinite = HUGE_VAL;
    ViewOf<I_ArrayValue>(inner, kArrayInterfaceId)
        .Append(TakeValue(CreateValueDouble(false, &infinite, nullptr)));
    const ValuePtr value = TakeValue(CreateValueArray(static_cast<uint32_t>(ValueType::String)));
    auto& array = ViewOf<I_ArrayValue>(value, kArrayInterfaceId);
    array.Append(MakeLong(-1));
    array.Append(MakeText("say \"hi\"\n"));
    array.Append(nullptr);
    array.Append(inner);
    array.Append(TakeValue(CreateValueReference(MakeLong(2))));
    EXPECT_EQ(Narrow(value->get_Text()), R"([-1,"say \"hi\"\u000a",null,["inf"],2])");
}

TEST(ArrayValue, RefusesText) {
    const ValuePtr value = TakeValue(CreateValueArray(static_cast<uint32_t>(ValueType::Long)));
    EXPECT_THROW(value->put_Text(Wide("[1]")), xException);
    EXPECT_THROW(value->put_LLong(1), xException);
}

}  // namespace
}  // namespace nbx
