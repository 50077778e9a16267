#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/fake_host.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

/** A mixed day's work: whole rounds, after each of which nothing is open. */
class Day {
  public:
    explicit Day(uint64_t seed);

    void WorkOneRound();
    uint64_t get_Operations() const { return operations_; }

  private:
    using Database = nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>;

    void Store(nbx::mrsql::I_DuckDBDatabase& database);
    void StoreByAppender(nbx::mrsql::I_DuckDBDatabase& database);
    void AbandonCursor(nbx::mrsql::I_DuckDBDatabase& database, uint32_t location);
    void FailOnPurpose(nbx::mrsql::I_DuckDBDatabase& database);
    void InterruptQuery(nbx::mrsql::I_DuckDBDatabase& database);
    void CallProcedures();
    void BackUpAndRestore(nbx::mrsql::I_DuckDBDatabase& database);

    TempFolder folder_;
    TestHost host_;
    mduckdb::test::FakeHost procedures_;
    std::mt19937_64 random_;
    std::string file_;
    std::string parquet_;
    uint64_t rounds_ = 0;
    uint64_t operations_ = 0;
};
