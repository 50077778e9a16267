#include "nbx/array.h"

#include "mshared/test_support.h"

namespace nbx {
namespace {

TEST(ArrayOfPtrs, KeepsItsOrder) {
    int objects[4] = {};
    const auto array = MakeObject<ArrayOfPtrs<int*>>();
    EXPECT_TRUE(array->get_IsEmpty());
    for (int& object : objects) {
        array->Append(&object);
    }
    EXPECT_TRUE(array->Remove(&objects[1]));
    EXPECT_FALSE(array->Remove(&objects[1]));
    ASSERT_EQ(array->get_Count(), 3U);
    EXPECT_EQ(array->get_Item(1), &objects[2]);
    EXPECT_EQ(array->TakeLast(), &objects[3]);
    array->RemoveAt(0);
    ASSERT_EQ(array->get_Count(), 1U);
    EXPECT_EQ(*array->begin(), &objects[2]);
}

TEST(ArrayOfSmartPtrs, HoldsAReferenceToEachItem) {
    const ValuePtr value = TakeValue(CreateValueLong(false, nullptr, nullptr));
    {
        const auto row = MakeObject<ValueRow>();
        row->Reserve(2);
        row->Append(value);
        row->Append(nullptr);
        EXPECT_EQ(value->get_RefsCount(), 2U);
        row->put_Item(0, nullptr);
        EXPECT_EQ(value->get_RefsCount(), 1U);
        row->put_Item(1, value);
        const auto rows = MakeObject<ValueRows>();
        rows->Append(row);
        EXPECT_EQ(row->get_RefsCount(), 2U);
    }
    EXPECT_EQ(value->get_RefsCount(), 1U);
}

}  // namespace
}  // namespace nbx
