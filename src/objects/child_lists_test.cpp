#include "objects/child_lists.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <vector>

namespace mduckdb {
namespace {

/** Distinct pointers, which are never dereferenced. */
std::vector<int> Objects(std::size_t count) {
    return std::vector<int>(count);
}

double ThreadSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/** Time to remove `taken` objects from the middle of a list of `count`. */
double SecondsToLeave(std::size_t count, std::size_t taken) {
    std::vector<int> objects = Objects(count);
    ChildList<int> list;
    for (int& object : objects) {
        list.Add(&object);
    }
    const double begun = ThreadSeconds();
    for (std::size_t i = 0; i < taken; ++i) {
        EXPECT_TRUE(list.Remove(&objects[count / 2 + i]));
    }
    return ThreadSeconds() - begun;
}

TEST(ChildList, ReturnsItsObjectsFromTheLastToTheFirst) {
    std::vector<int> objects = Objects(4);
    ChildList<int> list;
    for (int& object : objects) {
        list.Add(&object);
    }
    EXPECT_TRUE(list.Remove(&objects[2]));
    EXPECT_EQ(list.TakeLast(), &objects[3]);
    EXPECT_EQ(list.TakeLast(), &objects[1]);
    EXPECT_EQ(list.TakeLast(), &objects[0]);
    EXPECT_EQ(list.TakeLast(), nullptr);
}

TEST(ChildList, RemovesNothingForAPointerThatItDoesNotHold) {
    std::vector<int> objects = Objects(2);
    ChildList<int> list;
    list.Add(&objects[0]);
    EXPECT_FALSE(list.Remove(&objects[1]));
    EXPECT_FALSE(list.Remove(nullptr));
    EXPECT_TRUE(list.Remove(&objects[0]));
    EXPECT_FALSE(list.Remove(&objects[0]));
    EXPECT_EQ(list.TakeLast(), nullptr);
}

TEST(ChildList, HoldsAnObjectAsOftenAsItWasAdded) {
    std::vector<int> objects = Objects(1);
    ChildList<int> list;
    list.Add(&objects[0]);
    list.Add(&objects[0]);
    EXPECT_TRUE(list.Remove(&objects[0]));
    EXPECT_EQ(list.TakeLast(), &objects[0]);
    EXPECT_EQ(list.TakeLast(), nullptr);
}

TEST(ChildList, StillReturnsAnObjectThatWasUnlisted) {
    std::vector<int> objects = Objects(2);
    ChildList<int> list;
    list.Add(&objects[0]);
    EXPECT_FALSE(list.Unlist(&objects[1]));
    EXPECT_TRUE(list.Unlist(&objects[0]));
    EXPECT_FALSE(list.Unlist(&objects[0]));
    EXPECT_EQ(list.TakeLast(), &objects[0]);
    list.Add(&objects[0]);
    EXPECT_TRUE(list.Unlist(&objects[0]));
    EXPECT_TRUE(list.Remove(&objects[0]));
    EXPECT_EQ(list.TakeLast(), nullptr);
}

TEST(ChildList, RemovesAnObjectInTheSameTimeHoweverManyThereAre) {
    constexpr std::size_t kTaken = 400;
    double few = 1;
    double many = 1;
    for (int run = 0; run < 5; ++run) {  // the best of five: the machine has other work
        few = std::min(few, SecondsToLeave(1000, kTaken));
        many = std::min(many, SecondsToLeave(100000, kTaken));
    }
    EXPECT_LT(many, 10 * few) << "a walk of the list takes 100 times as long";
}

}  // namespace
}  // namespace mduckdb
