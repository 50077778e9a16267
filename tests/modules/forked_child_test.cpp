// A host may fork, on purpose or by a library that it uses. The child has copies of the objects, but neither
// DuckDB's threads nor a right to the files, to which the parent still writes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>

#include "loaded_module.h"
#include "nbx/location.h"
#include "support/forked_child.h"
#include "support/temp_folder.h"

// The allocator of a sanitizer may be locked by another thread at the fork, and stays so in the child.
#ifndef MDUCKDB_TEST_IS_SANITIZED

namespace {

using DatabasePtr = nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>;
using StatementPtr = nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement>;
using nbx::FromUtf8;

std::string ReadFile(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool Throws(const std::function<void()>& act) {
    try {
        act();
    } catch (const std::exception&) {
        return true;
    }
    return false;
}

/** A database with a committed row that is only in the log. */
struct ForkingHost {
    const TempFolder folder;
    const LoadedModule module{MODULE};
    DatabasePtr database = Make("a.db");
    StatementPtr statement;

    ForkingHost() {
        database->Create();
        database->SqlExecute(FromUtf8("CREATE TABLE t (i INTEGER); INSERT INTO t VALUES (1)"), nullptr);
        statement = database->CreateStatement(FromUtf8("INSERT INTO t VALUES (2)"));
        statement->PrepareNext();
    }
    DatabasePtr Make(const std::string& name) const {
        return module->CreateDatabase(Location(folder / name));
    }
    std::string ReadFiles() const { return ReadFile(folder / "a.db") + ReadFile(folder / "a.db.wal"); }
};

/** Never destroyed by the parent, which ends with `_exit`. */
ForkingHost* gHost = nullptr;

/** Each test runs in a process of its own, which forks. 7 says that the child has ended with 0 and changed
    nothing, and that the parent can still write. */
void ForkAndCompare(int (*act)()) {
    alarm(60);
    gHost = new ForkingHost;
    const std::string before = gHost->ReadFiles();
    if (const int status = RunInForkedChild(act)) {
        _exit(status);
    }
    if (gHost->ReadFiles() != before || before.find("DUCK") == std::string::npos) {
        _exit(3);
    }
    gHost->database->SqlExecute(FromUtf8("INSERT INTO t VALUES (3)"), nullptr);
    gHost->database->Close();
    _exit(gHost->ReadFiles() != before ? 7 : 4);
}

class ForkedChildTest : public testing::Test {
  protected:
    ForkedChildTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

TEST_F(ForkedChildTest, MayReleaseWhatItHasInherited) {
    const auto run = [] {
        ForkAndCompare([] {
            gHost->statement = nullptr;
            gHost->database = nullptr;
            return 0;
        });
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

TEST_F(ForkedChildTest, MayCloseAndExit) {
    const auto run = [] {
        ForkAndCompare([] {
            gHost->database->Close();
            return 0;
        });
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

TEST_F(ForkedChildTest, CanRunNothingOnTheDatabaseOfItsParent) {
    const auto run = [] {
        ForkAndCompare([] {
            const bool is_refused =
                Throws([] { gHost->database->SqlExecute(FromUtf8("INSERT INTO t VALUES (4)"), nullptr); }) &&
                Throws([] { gHost->statement->ExecuteNext(); }) &&
                Throws([] { gHost->Make("a.db")->Open(); });
            return is_refused ? 0 : 5;
        });
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

TEST_F(ForkedChildTest, MayOpenOtherDatabases) {
    const auto run = [] {
        ForkAndCompare([] {
            const DatabasePtr other = gHost->Make("b.db");
            other->Create();
            other->SqlExecute(FromUtf8("CREATE TABLE t AS SELECT 1 AS i"), nullptr);
            other->Close();
            return ReadFile(gHost->folder / "b.db").empty() ? 6 : 0;
        });
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

}  // namespace

#endif
