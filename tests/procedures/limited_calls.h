#pragma once

#include <duckdb.h>
#include <gtest/gtest.h>

#include <string>

#include "base/holders.h"
#include "extension/extension.h"
#include "nbx/mrsql/duckdb_procedure_limits.h"
#include "procedures/handlers.h"
#include "procedures/procedures.h"
#include "support/fake_host.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

namespace mduckdb::testing {

using nbx::mrsql::DuckDBProcedureLimits;
using nbx::mrsql::I_DuckDBProcedureLimits;

/** Runs SQL with DuckDB alone, in memory or on a file. */
inline void RunAlone(const char* file, const std::string& sql) {
    duckdb_database database = nullptr;
    duckdb_connection connection = nullptr;
    ASSERT_EQ(DuckDBSuccess, duckdb_open(file, &database));
    ASSERT_EQ(DuckDBSuccess, duckdb_connect(database, &connection));
    {
        ResultHolder result;
        EXPECT_EQ(DuckDBSuccess, duckdb_query(connection, sql.c_str(), result.Receive()))
            << sql << duckdb_result_error(result.get());
    }
    duckdb_disconnect(&connection);
    duckdb_close(&database);
}

inline nbx::smart_ptr<nbx::I_Location> LocationOf(const std::string& path) {
    return Location(path);
}

/** A host that sets limits for the procedures, and takes them back at the end. */
class LimitedCalls : public ::testing::Test {
  protected:
    LimitedCalls() { RegisterProcedures(&host_); }
    ~LimitedCalls() override {
        host_.CloseCursor();
        limits_->put_Limits({});
    }
    void Put(const DuckDBProcedureLimits& limits) { limits_->put_Limits(limits); }
    /** With a folder for spilling. */
    void LimitMemory(std::uint32_t megabytes) {
        DuckDBProcedureLimits limits;
        limits.memory_mb = megabytes;
        limits.threads = 2;
        limits.temp_directory = LocationOf(spill_.get_Path().string());
        Put(limits);
    }
    void LimitTime(std::uint32_t milliseconds) {
        DuckDBProcedureLimits limits;
        limits.time_ms = milliseconds;
        Put(limits);
    }
    /** What the call reports; empty when it gives a cursor. */
    template <class Procedure>
    std::string ReportOf(std::vector<FakeValue*> arguments) {
        host_.reports.clear();
        const bool has_cursor = host_.Call<Procedure>(std::move(arguments)) != nullptr;
        EXPECT_EQ(has_cursor ? 0u : 1u, host_.reports.size());
        return has_cursor ? "" : host_.reports.at(0);
    }
    bool NextRow() { return host_.cursor.next_row(host_.cursor.state) == MIRONA_ROW_OK; }
    bool GoToRow(std::int64_t row) {
        return host_.cursor.go_to_row(host_.cursor.state, row) == MIRONA_ROW_OK;
    }

    FakeHost host_;
    TempFolder folder_;
    TempFolder spill_;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> extension_ = MakeExtension();
    I_DuckDBProcedureLimits* limits_ = static_cast<I_DuckDBProcedureLimits*>(
        extension_->QueryInterface(nbx::mrsql::kDuckDBProcedureLimitsInterfaceId));
};

}  // namespace mduckdb::testing
