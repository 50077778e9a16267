#include "nbx/unknown.h"

#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

namespace nbx {
namespace {

/** Counts its instances. */
class Probe : public Counted<I_Unknown> {
  public:
    explicit Probe(int& alive) : alive_(alive) { ++alive_; }
    ~Probe() override { --alive_; }
    void* QueryInterface(uint32_t /*interface_id*/) override { return nullptr; }

  private:
    int& alive_;
};

TEST(RefCount, ReturnsTheNewCount) {
    RefCount count;
    EXPECT_EQ(count.Increment(), 1U);
    EXPECT_EQ(count.Increment(), 2U);
    EXPECT_EQ(count.Decrement(), 1U);
    EXPECT_EQ(count.get_Value(), 1U);
    EXPECT_EQ(count.Decrement(), 0U);
}

TEST(SmartPtr, HoldsAReferenceForAsLongAsItLives) {
    int alive = 0;
    {
        const smart_ptr<Probe> first = MakeObject<Probe>(alive);
        EXPECT_EQ(first->get_RefsCount(), 1U);
        {
            const smart_ptr<Probe> second = first;
            EXPECT_EQ(first->get_RefsCount(), 2U);
            EXPECT_TRUE(first == second);
        }
        EXPECT_EQ(first->get_RefsCount(), 1U);
    }
    EXPECT_EQ(alive, 0);
}

TEST(SmartPtr, MovesWithoutCounting) {
    int alive = 0;
    smart_ptr<Probe> first = MakeObject<Probe>(alive);
    smart_ptr<Probe> second = std::move(first);
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): null is promised
    EXPECT_EQ(second->get_RefsCount(), 1U);
    smart_ptr<I_Unknown> base = std::move(second);
    EXPECT_EQ(base->get_RefsCount(), 1U);
    base = nullptr;
    EXPECT_EQ(alive, 0);
}

TEST(SmartPtr, SurvivesItsAssignmentToItself) {
    int alive = 0;
    smart_ptr<Probe> pointer = MakeObject<Probe>(alive);
    const smart_ptr<Probe>& same = pointer;
    pointer = same;
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(pointer->get_RefsCount(), 1U);
}

TEST(SmartPtr, AdoptsAndReleasesReferences) {
    int alive = 0;
    auto* const object = new Probe(alive);
    object->AddRef();
    smart_ptr<Probe> pointer = smart_ptr<Probe>::Adopt(object);
    EXPECT_EQ(object->get_RefsCount(), 1U);
    EXPECT_EQ(pointer.detach(), object);
    EXPECT_TRUE(pointer == nullptr);
    EXPECT_EQ(object->Release(), 0U);
    EXPECT_EQ(alive, 0);
}

TEST(SmartPtr, IsCountedFromManyThreads) {
    int alive = 0;
    smart_ptr<Probe> shared = MakeObject<Probe>(alive);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([mine = shared] {
            for (int round = 0; round < 5000; ++round) {
                const smart_ptr<Probe> copy = mine;
                EXPECT_GE(copy->get_RefsCount(), 2U);
            }
        });
    }
    // The last thread to end destroys the object.
    shared.reset();
    for (std::thread& thread : threads) {
        thread.join();
    }
    threads.clear();
    EXPECT_EQ(alive, 0);
}

/** Has its own way to be destroyed. */
class ReusedProbe final : public Counted<I_Unknown> {
  public:
    explicit ReusedProbe(int& destroyed) : Counted(1), destroyed_(destroyed) {}
    uint32_t Release() override {
        return ReleaseWith([this] { ++destroyed_; });
    }
    void* QueryInterface(uint32_t /*interface_id*/) override { return nullptr; }

  private:
    int& destroyed_;
};

TEST(Counted, LetsAClassDecideHowItsObjectsAreDestroyed) {
    int destroyed = 0;
    ReusedProbe probe(destroyed);
    EXPECT_EQ(probe.AddRef(), 2U);
    EXPECT_EQ(probe.Release(), 1U);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(probe.Release(), 0U);
    EXPECT_EQ(destroyed, 1);
}

struct First {
    virtual ~First() = default;
    int first = 1;
};
struct Second {
    virtual ~Second() = default;
    int second = 2;
};
struct Both : First, Second {};

TEST(InterfaceTable, FindsTheInterfaceInTheObject) {
    static constexpr InterfaceItem kTable[] = {
        {10, CastToInterface<Both, First>}, {20, CastToInterface<Both, Second>}, {0, nullptr}};
    Both object;
    EXPECT_EQ(InterfaceTableQueryInterface(&object, kTable, 10), static_cast<First*>(&object));
    EXPECT_EQ(InterfaceTableQueryInterface(&object, kTable, 20), static_cast<Second*>(&object));
    EXPECT_EQ(InterfaceTableQueryInterface(&object, kTable, 30), nullptr);
    EXPECT_EQ(InterfaceTableQueryInterface(&object, kTable, 0), nullptr);
}

}  // namespace
}  // namespace nbx
