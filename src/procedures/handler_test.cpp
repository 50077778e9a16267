#include "procedures/handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "procedures/handlers.h"
#include "support/fake_host.h"

namespace mduckdb {
namespace {

using test::FakeHost;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

template <class Thrown>
struct Throwing {
    static constexpr const char* kUnexpectedText = "Something else.";
    static mirona_cursor Run(mirona_call, const Arguments&) { throw Thrown("its own text"); }
};
struct ThrowingNumber {
    static constexpr const char* kUnexpectedText = "Something else.";
    static mirona_cursor Run(mirona_call, const Arguments&) { throw 42; }
};
struct Working {
    static constexpr const char* kUnexpectedText = "Something else.";
    static mirona_cursor Run(mirona_call call, const Arguments&) { return call; }
};

TEST(HandleCall, ReportsAStandardExceptionWithItsOwnText) {
    FakeHost host;
    EXPECT_EQ(nullptr, host.Call<Throwing<std::invalid_argument>>({}));
    EXPECT_EQ(nullptr, host.Call<Throwing<std::runtime_error>>({}));
    EXPECT_THAT(host.reports, ElementsAre("its own text", "its own text"));
}

TEST(HandleCall, ReportsAnythingElseWithTheProceduresText) {
    FakeHost host;
    EXPECT_EQ(nullptr, host.Call<ThrowingNumber>({}));
    EXPECT_THAT(host.reports, ElementsAre("Something else."));
}

TEST(HandleCall, ReturnsTheCursorAndReportsNothingWhenTheBodySucceeds) {
    FakeHost host;
    EXPECT_EQ(host.get_Call(), host.Call<Working>({}));
    EXPECT_THAT(host.reports, IsEmpty());
}

TEST(UnexpectedTexts, AreThoseOfTheProcedures) {
    EXPECT_STREQ("Unexpected error while reading parquet file.", FetchParquet::kUnexpectedText);
    EXPECT_STREQ("Unexpected error while reading DuckDB table or view.", FetchDuckDB::kUnexpectedText);
    EXPECT_STREQ("Unexpected error while reading parquet metadata.", ParquetMetadata::kUnexpectedText);
    EXPECT_STREQ("Unexpected error while counting parquet rows.", ParquetCount::kUnexpectedText);
    EXPECT_STREQ("Unexpected error while reading parquet schema.", ParquetSchema::kUnexpectedText);
}

}  // namespace
}  // namespace mduckdb
