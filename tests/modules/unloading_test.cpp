// A module keeps the engine of its last call, and a thread, for some seconds. Neither may hold up `dlclose`
// or the exit, or run code that is gone.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "loaded_module.h"

namespace {

bool HasIdleThread() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::any_of(begin(tasks), end(tasks), [](const std::filesystem::path& task) {
        std::string name;
        std::ifstream(task / "comm") >> name;
        return name == "mduckdb-idle";
    });
}

/** Each test runs in a process of its own, which says by its status how far it came. */
class UnloadingTest : public testing::Test {
  protected:
    UnloadingTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    /** Leaves an idle engine behind. */
    static void CallOnce(const LoadedModule& module) {
        const LoadedModule::Outcome outcome = module.Call("parquet_count", {PARQUET_FILE}, 10);
        if (outcome.rows != 1 || !outcome.errors.empty() || !HasIdleThread()) {
            _exit(2);
        }
    }
};

TEST_F(UnloadingTest, LeavesTheCodeInPlaceAndASecondLoadWorks) {
    const auto run = [] {
        alarm(60);
        for (int round = 0; round < 3; ++round) {
            LoadedModule module(MODULE);
            CallOnce(module);
            module.Unload();
            if (dlopen(MODULE, RTLD_NOW | RTLD_NOLOAD) == nullptr) {
                _exit(3);
            }
        }
        std::exit(7);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

TEST_F(UnloadingTest, IsNotNeededBeforeTheProcessExits) {
    const auto run = [] {
        alarm(60);
        static LoadedModule module(MODULE);
        CallOnce(module);
        std::exit(7);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

}  // namespace
