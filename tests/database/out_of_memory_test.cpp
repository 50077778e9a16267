// A separate program, because it replaces the allocation functions of the whole process. The n-th allocation
// of the module's own code fails: the code in this program, not the libraries that it uses.
#include <cstdlib>
#include <functional>
#include <new>

#include <gtest/gtest.h>

#include "nbx/mrsql/registry.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

extern "C" const char __executable_start;  // NOLINT(bugprone-reserved-identifier): the linker's
extern "C" const char etext;

namespace {

/** Allocations of this thread until one fails; none fails while it is negative. */
thread_local long until_failure = -1;

/** Whether the address is in this program's own code, by the limits that the linker names. */
bool IsOwnCode(const void* address) {
    return address >= &__executable_start && address < &etext;
}

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-no-malloc): what they stand for
__attribute__((noinline)) void* operator new(std::size_t size) {
    if (until_failure >= 0 && IsOwnCode(__builtin_return_address(0)) && until_failure-- == 0) {
        throw std::bad_alloc();
    }
    void* memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}
// Not inline: GCC would report the call of free() as a mistake.
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace {

class DatabaseOutOfMemory : public testing::Test {
  protected:
    std::string Path() const { return folder / "test.db"; }
    void MakeFile() const {
        Execute(*host.Created(Path()), "CREATE TABLE t AS SELECT range + 1 AS i FROM range(3)");
    }
    /** Runs `operation` with its first, second, third ... allocation failing until none is left to fail;
       `check` receives whether it threw, each time. Returns how many failed. */
    static long FailEach(const std::function<void()>& operation, const std::function<void(bool)>& check) {
        for (long n = 0;; ++n) {
            bool has_thrown = false;
            until_failure = n;
            try {
                operation();
            } catch (...) {
                has_thrown = true;
            }
            const bool has_failed = until_failure < 0;
            until_failure = -1;
            check(has_thrown);
            if (!has_failed || testing::Test::HasFailure()) {
                return n;
            }
        }
    }

    TempFolder folder;
    TestHost host;
};

TEST_F(DatabaseOutOfMemory, AnOpeningThatFailsCountsNoUserAndLeavesTheObjectUsable) {
    MakeFile();
    const auto database = host.Database(Path());
    const long failures = FailEach([&] { database->Open(); },
                                   [&](bool has_thrown) {
                                       EXPECT_EQ(database->get_IsOpen(), !has_thrown);
                                       EXPECT_EQ(database->get_ConnectionCount(), has_thrown ? 0u : 1u);
                                       database->Open();
                                       EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), "3");
                                       database->Close();
                                       EXPECT_EQ(database->get_ConnectionCount(), 0u);
                                   });
    EXPECT_GT(failures, 0);
}

TEST_F(DatabaseOutOfMemory, AnOpeningThatJoinsOthersCountsNoUserWhenItFails) {
    MakeFile();
    const auto first = host.Opened(Path());
    const auto second = host.Database(Path());
    FailEach([&] { second->Open(); },
             [&](bool has_thrown) {
                 EXPECT_EQ(first->get_ConnectionCount(), has_thrown ? 1u : 2u);
                 second->Close();
                 EXPECT_EQ(QueryText(*first, "SELECT count(*) FROM t"), "3");
             });
}

TEST_F(DatabaseOutOfMemory, ARowIsStoredExactlyWhenTheExecutionWithParametersSucceeds) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE TABLE t (i INTEGER)");
    const auto row = nbx::MakeObject<nbx::ValueRow>();
    const int32_t seven = 7;
    row->Append(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueLong(true, &seven, nullptr)));
    const nbx::String sql = S("INSERT INTO t VALUES (?)");
    int stored = 0;
    FailEach([&] { EXPECT_EQ(database->SqlExecute(sql, row), 1); },
             [&](bool has_thrown) {
                 stored += has_thrown ? 0 : 1;
                 EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), std::to_string(stored));
             });
}

TEST_F(DatabaseOutOfMemory, ARowIsStoredExactlyWhenTheExecutionOfAScriptSucceeds) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE TABLE t (i INTEGER)");
    const nbx::String sql = S("INSERT INTO t VALUES (7)");
    int stored = 0;
    FailEach([&] { EXPECT_EQ(database->SqlExecute(sql, nullptr), 1); },
             [&](bool has_thrown) {
                 stored += has_thrown ? 0 : 1;
                 EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), std::to_string(stored));
             });
}

TEST_F(DatabaseOutOfMemory, ARunThatReportsNeverThrowsAndReportsWhatIsStored) {
    const auto database = host.Created(Path());
    Execute(*database, "CREATE TABLE t (i INTEGER)");
    int stored = 0;
    const auto statement = database->CreateStatement(S("INSERT INTO t VALUES (7)"));
    nbx::mrsql::DuckDBExecutionResult outcome;
    FailEach([&] { outcome = statement->TryExecuteAll(); },
             [&](bool has_thrown) {
                 EXPECT_FALSE(has_thrown);
                 stored += static_cast<int>(outcome.statements_executed);
                 EXPECT_EQ(outcome.error_code == 0, outcome.statements_executed == 1);
                 EXPECT_EQ(QueryText(*database, "SELECT count(*) FROM t"), std::to_string(stored));
             });
}

}  // namespace
