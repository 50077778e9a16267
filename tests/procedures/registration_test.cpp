#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "nbx/mrsql/registry.h"
#include "support/fake_host.h"

namespace mduckdb::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Registration, RegistersTheProceduresInOrderAndInstallsTheExtension) {
    FakeHost host;
    nbx::mrsql::SetDuckDBExtension({});
    mirona_extension_bind_api(&host.get_Api());
    mirona_extension_init(host.get_Call());
    EXPECT_THAT(host.registered, ElementsAre("fetch_parquet", "parquet_schema", "parquet_metadata",
                                             "parquet_count", "fetch_duckdb"));
    EXPECT_THAT(host.reports, IsEmpty());
    EXPECT_TRUE(nbx::mrsql::GetDuckDBExtension());
    nbx::mrsql::SetDuckDBExtension({});
}

TEST(Registration, ReportsEachRefusalInOrderAfterTheExtensionIsInstalled) {
    FakeHost host;
    host.register_status = 1;
    nbx::mrsql::SetDuckDBExtension({});
    mirona_extension_init(host.get_Call());
    EXPECT_THAT(
        host.reports,
        ElementsAre("Cannot register fetch_parquet procedure.", "Cannot register parquet_schema procedure.",
                    "Cannot register parquet_metadata procedure.", "Cannot register parquet_count procedure.",
                    "Cannot register fetch_duckdb procedure."));
    EXPECT_TRUE(host.had_extension_at_report);
    nbx::mrsql::SetDuckDBExtension({});
}

}  // namespace
}  // namespace mduckdb::test
