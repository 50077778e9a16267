// Each call of DuckDB that the module makes for an operation fails in turn: what is returned is an error of
// the host or the exact result, no handle is left, and the same operation then works.
#include <duckdb.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <type_traits>

#include <gtest/gtest.h>

#include "engines/idle_engines.h"
#include "nbx/mrsql/duckdb_appender.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "procedures/handlers.h"
#include "support/duckdb_faults.h"
#include "support/environment.h"
#include "support/fake_host.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

struct duckdb_result_scan_data;

namespace {

using mduckdb::test::FakeHost;
using nbx::mrsql::I_DuckDBDatabase;
using Database = nbx::smart_ptr<I_DuckDBDatabase>;

struct Function {
    const char* name;
    bool can_fail;
};

/** Functions without a result cannot fail, and a null chunk is the end of the rows. */
constexpr Function kFunctions[] = {
#define CALL(type, name, parameters, arguments, failure, text) \
    {#name, !std::is_void_v<type> && !std::is_same_v<type, duckdb_data_chunk>},
#include "support/duckdb_calls.def"
#undef CALL
};

struct Operation {
    const char* name;
    /** In a folder with a.db and a.parquet, a.db closed; what it read. */
    std::function<std::string(const TestHost& host, const std::string& folder)> act;
};

std::string ReadRows(nbx::mrsql::I_DuckDBCursor& cursor) {
    std::string text;
    while (cursor.NextRecord()) {
        text += U(cursor.get_Value(0)->get_Text()) + " ";
    }
    return text;
}

std::string Select(const TestHost& host, const std::string& folder, uint32_t location) {
    const auto database = host.Opened(folder + "/a.db");
    const auto row = nbx::MakeObject<nbx::ValueRow>();
    const int64_t two = 2;
    row->Append(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueLLong(true, &two, nullptr)));
    return ReadRows(
        *database->SqlSelect(S("SELECT i, s FROM t WHERE i > $1 ORDER BY i LIMIT 5"), location, row));
}

std::string Append(const TestHost& host, const std::string& folder) {
    const auto database = host.Opened(folder + "/a.db");
    Execute(*database, "CREATE OR REPLACE TABLE new (i BIGINT)");
    nbx::mrsql::DuckDBAppenderOptions options;
    options.table = S("new");
    const auto appender = static_cast<nbx::mrsql::I_DuckDBAppenders*>(
                              database->QueryInterface(nbx::mrsql::kDuckDBAppendersInterfaceId))
                              ->CreateAppender(options);
    const int64_t numbers[] = {1, 2, 3};
    const nbx::mrsql::DuckDBColumnArray column{DUCKDB_TYPE_BIGINT, numbers};
    appender->AppendColumns(&column, 1, 3);
    appender->Close();
    return QueryText(*database, "SELECT sum(i) FROM new");
}

template <class Procedure>
std::string Call(const std::string& file, const char* more) {
    FakeHost host;
    if (host.Call<Procedure>({host.Text(file), host.Text(more)}) == nullptr) {
        throw std::logic_error(host.reports.size() == 1 && !host.reports[0].empty() ? "reported"
                                                                                    : "not reported");
    }
    std::string text;
    while (host.has_cursor && host.cursor.next_row(host.cursor.state) == MIRONA_ROW_OK) {
        text += host.Cell(0) + " ";
    }
    // A row that cannot be read is reported too.
    return host.reports.empty() ? text : throw std::logic_error("reported");
}

const std::vector<Operation>& Operations() {
    static const std::vector<Operation> operations = {
        {"create",
         [](const TestHost& host, const std::string& folder) {
             const auto database = host.Created(folder + "/new.db");
             return QueryText(*database, "SELECT 42");
         }},
        {"a script",
         [](const TestHost& host, const std::string& folder) {
             const auto database = host.Opened(folder + "/a.db");
             Execute(*database, "CREATE OR REPLACE TABLE new (i INTEGER); INSERT INTO new VALUES (1), (2)");
             return QueryText(*database, "SELECT sum(i) FROM new");
         }},
        {"a client cursor",
         [](const TestHost& host, const std::string& folder) {
             return Select(host, folder, nbx::mrsql::kClientCursor);
         }},
        {"a server cursor",
         [](const TestHost& host, const std::string& folder) {
             return Select(host, folder, nbx::mrsql::kServerCursor);
         }},
        {"an appender", Append},
        {"a backup",
         [](const TestHost& host, const std::string& folder) {
             const auto database = host.Opened(folder + "/a.db");
             std::filesystem::create_directories(folder + "/exports");
             database->Backup(Location(folder + "/exports"));
             return std::string("done");
         }},
        {"a snapshot",
         [](const TestHost& host, const std::string& folder) {
             const auto database = host.Opened(folder + "/a.db");
             std::filesystem::remove(folder + "/shot.db");
             static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
                 database->QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId))
                 ->Snapshot(Location(folder + "/shot.db"));
             return std::string("done");
         }},
        {"fetch_parquet",
         [](const TestHost&, const std::string& folder) {
             return Call<mduckdb::FetchParquet>(folder + "/a.parquet", "i");
         }},
        {"fetch_duckdb",
         [](const TestHost&, const std::string& folder) {
             return Call<mduckdb::FetchDuckDB>(folder + "/a.db", "t");
         }},
    };
    return operations;
}

class EveryDuckDBCall : public testing::Test {
  protected:
    EveryDuckDBCall() {
        const auto database = host_.Created(Path("a.db"));
        Execute(*database, "CREATE TABLE t AS SELECT range AS i, 'text' AS s FROM range(20); COPY t TO '" +
                               Path("a.parquet") + "'");
        database->Close();
    }

    std::string Path(const char* name) const { return folder_ / name; }

    /** The result, or "thrown: " and the exception. */
    std::string Act(const Operation& operation) {
        std::string result;
        const std::string thrown =
            Thrown([&] { result = operation.act(host_, folder_.get_Path().string()); });
        mduckdb::IdleEngines::CloseAll();
        return thrown == "none" ? result : "thrown: " + thrown;
    }

    void FailOne(const Operation& operation, const std::string& whole, const Function& function, uint64_t n) {
        SCOPED_TRACE(std::string(operation.name) + ": " + function.name + ", call " + std::to_string(n));
        duckdb_faults::Reset();
        duckdb_faults::FailCall(function.name, n);
        const std::string result = Act(operation);
        ++cases_;
        failures_ += result != whole ? 1U : 0U;
        // What an opening without a configuration throws is part of the contract.
        const bool is_error = result.starts_with("thrown: x") || result == "thrown: std: reported" ||
                              result == "thrown: std: Failed to create DuckDB config";
        EXPECT_TRUE(result == whole || is_error) << result;
        EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
        duckdb_faults::Reset();
        EXPECT_EQ(Act(operation), whole) << "after " << result;
    }

    TempFolder folder_;
    TestHost host_;
    uint64_t cases_ = 0;
    uint64_t failures_ = 0;
};

TEST_F(EveryDuckDBCall, ThatFailsIsReportedAndLeavesNoHandle) {
    // In the short form at most two calls of a function.
    const bool is_whole = NumberFromEnvironment("MDUCKDB_TEST_EVERY_CALL", 0) != 0;
    for (const Operation& operation : Operations()) {
        Act(operation);
        duckdb_faults::Reset();
        const std::string whole = Act(operation);
        EXPECT_FALSE(whole.starts_with("thrown")) << operation.name << " " << whole;
        std::vector<uint64_t> counts;
        for (const Function& function : kFunctions) {
            counts.push_back(duckdb_faults::CountCalls(function.name));
        }
        for (std::size_t i = 0; i < counts.size(); ++i) {
            const uint64_t step = is_whole ? 1 : std::max<uint64_t>(counts[i] - 1, 1);
            for (uint64_t n = 1; n <= counts[i] && kFunctions[i].can_fail; n += step) {
                FailOne(operation, whole, kFunctions[i], n);
            }
        }
    }
    std::cout << cases_ << " failing calls, " << failures_ << " of them reported as an error\n";
    EXPECT_GT(failures_, 0U);
}

}  // namespace
