// The timer's thread must end before its code is unloaded.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "support/thread_count.h"

namespace {

TEST(UnloadingTest, JoinsTheThreadOfTheDeadlines) {
    const std::size_t before = CountThreads();
    for (int round = 0; round < 3; ++round) {
        void* const library = dlopen(DEADLINE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, library) << dlerror();
        const auto run = reinterpret_cast<bool (*)()>(dlsym(library, "run_deadline"));
        ASSERT_NE(nullptr, run);
        EXPECT_TRUE(run());
        EXPECT_EQ(before + 1, CountThreads());
        ASSERT_EQ(0, dlclose(library));
        EXPECT_EQ(nullptr, dlopen(DEADLINE_LIBRARY, RTLD_NOW | RTLD_NOLOAD)) << "it is still loaded";
        EXPECT_EQ(before, CountThreadsAfterJoin(before));
    }
}

}  // namespace
