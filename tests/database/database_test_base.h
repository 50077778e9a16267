#pragma once

#include <gtest/gtest.h>

#include "engines/engine_files.h"
#include "nbx/hooks.h"
#include "support/duckdb_faults.h"
#include "support/second_process.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

/** A host, a folder for files, and a check that no DuckDB handle is left open at the end. */
class DatabaseTest : public testing::Test {
  protected:
    using Database = nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>;

    void SetUp() override { duckdb_faults::Reset(); }
    void TearDown() override {
        EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
        EXPECT_EQ(mduckdb::EngineFiles::Get().get_EngineCount(), 0u);
    }
    std::string Path(const std::string& name = "test.db") const { return folder / name; }
    /** A file with the table t of the numbers 1 to 3. */
    std::string MakeFile(const std::string& name = "test.db") const {
        Execute(*host.Created(Path(name)), "CREATE TABLE t AS SELECT range + 1 AS i FROM range(3)");
        return Path(name);
    }
    std::string Refusal(const std::string& path, const std::string& message) const {
        return "xDuckDBError 72501 [" + path + "] [" + message + "]";
    }

    TempFolder folder;
    TestHost host;
};

/** A database in memory, in a host whose calls may be interrupted. */
class InterruptibleDatabaseTest : public DatabaseTest {
  protected:
    /** Runs many times as long as any test waits. */
    static inline const std::string kLongQuery = "SELECT count(*) FROM range(100000000) a, range(100000) b";

    void SetUp() override {
        DatabaseTest::SetUp();
        nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
        database = host.Created(":memory:");
    }
    void TearDown() override {
        database = nullptr;
        DatabaseTest::TearDown();
    }

    Database database;
};
