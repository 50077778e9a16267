#pragma once

#include <duckdb.h>
#include <gtest/gtest.h>

#include <string>

#include "extension/extension.h"
#include "nbx/mrsql/duckdb_procedure_limits.h"
#include "procedures/handlers.h"
#include "procedures/procedures.h"
#include "support/alone.h"
#include "support/fake_host.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

namespace mduckdb::test {

using nbx::mrsql::DuckDBProcedureLimits;
using nbx::mrsql::I_DuckDBProcedureLimits;

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

}  // namespace mduckdb::test
