// Compares the error texts and column names of a call with those that DuckDB returns when the same query runs
// in two steps: first for the columns, then for the rows.
#include <duckdb.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/holders.h"
#include "base/text.h"
#include "procedures/handlers.h"
#include "procedures/query_runner.h"
#include "procedures/sql_text.h"
#include "support/fake_host.h"
#include "support/temp_folder.h"

namespace mduckdb::test {
namespace {

class ErrorTextTest : public ::testing::Test {
  protected:
    ErrorTextTest() {
        duckdb_open(nullptr, &database_);
        duckdb_connect(database_, &connection_);
        Ask("COPY (SELECT i::INTEGER AS i, CASE WHEN i = 2500 THEN 'x' ELSE i::VARCHAR END AS t, "
            "[i] AS l, i AS \"order\" FROM range(3000) s(i)) TO '" +
            file_ + "' (FORMAT parquet)");
    }
    ~ErrorTextTest() override {
        duckdb_disconnect(&connection_);
        duckdb_close(&database_);
    }

    /** DuckDB's error text, or nothing. */
    std::string Ask(const std::string& sql) {
        columns_.clear();
        ResultHolder result;
        if (duckdb_query(connection_, sql.c_str(), result.Receive()) != DuckDBSuccess) {
            return duckdb_result_error(result.get());
        }
        for (idx_t i = 0; i < duckdb_column_count(result.get()); ++i) {
            columns_.emplace_back(duckdb_column_name(result.get(), i));
        }
        return "";
    }
    /** The first error of the two steps, or nothing. */
    std::string AskInTwoSteps(const std::string& base, const std::string& limit) {
        const std::string error = Ask("SELECT * FROM (" + base + ") AS parquet_source LIMIT 0");
        if (!error.empty()) {
            return error;
        }
        const std::vector<std::string> names = columns_;
        std::vector<std::string> items;
        for (const std::string& name : names) {
            items.push_back(QuoteIdentifier(name));
        }
        const std::string run = Ask("SELECT " + JoinList(items) + " FROM (" + base + ") AS parquet_source" +
                                    (limit.empty() ? "" : " LIMIT " + limit));
        columns_ = names;
        return run;
    }
    std::string Fetch(const std::string& columns, const std::string& where, const std::string& limit) {
        host_.reports.clear();
        host_.Call<FetchParquet>({host_.Text(file_), host_.Text(columns), host_.Text(where),
                                  limit.empty() ? host_.Null() : host_.Text(limit)});
        return host_.reports.empty() ? "" : host_.reports[0];
    }
    std::string BaseOf(const std::string& select_list, const std::string& where) const {
        return "SELECT " + select_list + " FROM " + ReadParquetCall(file_) + WhereClause(where);
    }

    TempFolder folder_;
    std::string file_ = folder_ / "a.parquet";
    duckdb_database database_ = nullptr;
    duckdb_connection connection_ = nullptr;
    std::vector<std::string> columns_;
    FakeHost host_;
};

TEST_F(ErrorTextTest, IsDuckDBsForTextsThatCannotBeParsedOrBound) {
    for (const std::string where :
         {"i >", "nope = 1", "i = 1 AND (", "i = 'x", "nofunction(i) = 1", "sum(i) > 1",
          "i IN (SELECT nope FROM range(3))", "i = 1 /* open", "t + l = 1", "i = 1 -- and then",
          "EXISTS (SELECT * FROM no_such_table)", "i = ?", "i = $1", "i =\n1\nAND\nnope"}) {
        const std::string expected = AskInTwoSteps(BaseOf("*", where), "");
        EXPECT_NE(expected, "") << where;
        EXPECT_EQ(expected, Fetch("*", where, "")) << where;
    }
}

TEST_F(ErrorTextTest, IsDuckDBsForMissingColumns) {
    for (const std::string column : {"nope", "I\"", "order by"}) {
        const std::string expected = AskInTwoSteps(BaseOf(QuoteIdentifier(column), ""), "");
        EXPECT_NE(expected, "") << column;
        EXPECT_EQ(expected, Fetch(column, "", "")) << column;
    }
}

TEST_F(ErrorTextTest, IsDuckDBsForRowsThatFail) {
    for (const std::string where :
         {"t::INTEGER = 1", "CAST(t AS DATE) IS NULL", "error('at run time') IS NULL",
          "i = 1 OR 1 + t::INTEGER >= 0\nOR i::TINYINT = 1", "i::TINYINT + t::TINYINT = 1",
          "(SELECT unnest([1, 2])) = i"}) {
        const std::string expected = AskInTwoSteps(BaseOf("*", where), "");
        EXPECT_NE(expected, "") << where;
        EXPECT_EQ(expected, Fetch("*", where, "")) << where;
        EXPECT_EQ(AskInTwoSteps(BaseOf("\"order\", \"i\"", where), "7000"), Fetch("order,i", where, "7000"));
    }
}

TEST_F(ErrorTextTest, IsDuckDBsForLimitsThatItRefusesButForTheQuotation) {
    const std::string expected = AskInTwoSteps(BaseOf("*", ""), "18446744073709551615");
    FakeValue* limit = host_.Make(MIRONA_TYPE_UINT64, "18446744073709551615");
    limit->number = -1;
    host_.Call<FetchParquet>({host_.Text(file_), host_.Null(), host_.Null(), limit});
    ASSERT_EQ(1u, host_.reports.size());
    const std::string message = expected.substr(0, expected.find("\n\nLINE"));
    EXPECT_NE("", message);
    EXPECT_EQ(message, host_.reports[0].substr(0, host_.reports[0].find("\n\nLINE")));
}

TEST_F(ErrorTextTest, IsDuckDBsForFilesThatCannotBeRead) {
    for (const std::string name : {"missing.parquet", "*.csv"}) {
        host_.reports.clear();
        host_.Call<FetchParquet>({host_.Text(folder_ / name)});
        const std::string base = "SELECT * FROM " + ReadParquetCall(folder_ / name);
        EXPECT_THAT(host_.reports, ::testing::ElementsAre(AskInTwoSteps(base, "")));
        host_.reports.clear();
        host_.Call<ParquetSchema>({host_.Text(folder_ / name)});
        EXPECT_THAT(host_.reports, ::testing::ElementsAre(Ask(base + " LIMIT 0")));
    }
}

TEST_F(ErrorTextTest, LeavesTheNamesOfColumnsAsDuckDBReturnsThem) {
    for (const std::string list : {"i,i", "i,order,i,I", "*", "t,\"order\""}) {
        std::vector<std::string> items;
        if (list == "*") {
            items.emplace_back("*");
        } else if (list == "i,i") {
            items = {"\"i\"", "\"i\""};
        } else if (list == "i,order,i,I") {
            items = {"\"i\"", "\"order\"", "\"i\"", "\"I\""};
        } else {
            items = {"\"t\"", "\"\"\"order\"\"\""};
        }
        const std::string expected = AskInTwoSteps(BaseOf(JoinList(items), ""), "");
        EXPECT_EQ(expected, Fetch(list, "", "")) << list;
        if (!expected.empty()) {
            continue;
        }
        ASSERT_EQ(columns_.size(), host_.cursor.column_count);
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            EXPECT_EQ(columns_[i],
                      std::string(host_.cursor.columns[i].name, host_.cursor.columns[i].name_length));
        }
    }
}

}  // namespace
}  // namespace mduckdb::test
