#include "duckdb_internals/written_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

#include "base/holders.h"
#include "support/temp_folder.h"
#include "support/test_engine.h"

namespace mduckdb {
namespace {

bool IsOpen(const std::string& path) {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::any_of(begin(descriptors), end(descriptors), [&](const auto& descriptor) {
        std::error_code is_gone;
        return std::filesystem::read_symlink(descriptor, is_gone) == path;
    });
}

TEST(WrittenFiles, AreExpectedOfSomeStatements) {
    const TestEngine engine;
    for (const auto& [sql, writes] : {std::pair("COPY (SELECT 1) TO 'a.csv'", true),
                                      std::pair("SELECT 1", false), std::pair("no statement", false)}) {
        PreparedHolder prepared;
        duckdb_prepare(engine.get(), sql, prepared.Receive());
        EXPECT_EQ(WritesFiles(prepared.get()), writes) << sql;
    }
    EXPECT_FALSE(WritesFiles(nullptr));
}

TEST(WrittenFiles, AreClosedWhenTheRunHasFailed) {
    const TempFolder folder;
    const std::string path = std::filesystem::canonical(folder.get_Path()) / "rows.csv";
    const TestEngine engine;
    PreparedHolder prepared;
    const std::string sql =
        "COPY (SELECT CASE WHEN i = 500000 THEN error('full') ELSE i::VARCHAR END "
        "FROM range(600000) r(i)) TO '" +
        path + "' (USE_TMP_FILE false)";
    ASSERT_EQ(duckdb_prepare(engine.get(), sql.c_str(), prepared.Receive()), DuckDBSuccess);
    PendingHolder pending;
    ASSERT_EQ(duckdb_pending_prepared(prepared.get(), pending.Receive()), DuckDBSuccess);
    ResultHolder result;
    EXPECT_EQ(duckdb_execute_pending(pending.get(), result.Receive()), DuckDBError);
    pending.Reset();
    const bool is_closed = CloseUnfinishedFiles(engine.get(), prepared.get());
    EXPECT_EQ(is_closed, std::string_view(duckdb_library_version()).starts_with("v1."));
    EXPECT_NE(is_closed, IsOpen(path));
    // The statement can run again.
    EXPECT_EQ(duckdb_execute_prepared(prepared.get(), result.Receive()), DuckDBError);
    EXPECT_NE(std::string(duckdb_result_error(result.get())).find("full"), std::string::npos);
}

}  // namespace
}  // namespace mduckdb
