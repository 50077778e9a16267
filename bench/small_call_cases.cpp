#include <functional>
#include <memory>
#include <thread>

#include "bare_duckdb.h"
#include "baselines.h"
#include "groups.h"
#include "host_table.h"
#include "module_under_test.h"
#include "workloads.h"

namespace bench {
namespace {

constexpr uint64_t kCalls = 200;
constexpr unsigned kThreads = 8;
constexpr unsigned kRunsInRound = 3;

/** A call of a procedure on a small file, and its query. */
struct SmallCall {
    std::string procedure;
    std::vector<std::string> arguments;
    std::string sql;
    /** The engine of the bare side, which stays open. */
    std::unique_ptr<BareDuckDB> engine;
};

/** Connects, runs the query, reads its chunks, disconnects. */
uint64_t QueryBare(const SmallCall& call) {
    duckdb_connection connection = nullptr;
    duckdb_connect(call.engine->get_Engine(), &connection);
    const uint64_t cells = Drain(connection, call.sql);
    duckdb_disconnect(&connection);
    return cells;
}

uint64_t CallModule(const SmallCall& call) {
    mirona_cursor_def cursor{};
    CallProcedure(GetProcedure(call.procedure), call.arguments, cursor);
    uint64_t cells = 0;
    while (cursor.next_row(cursor.state) == MIRONA_ROW_OK) {
        cells += cursor.column_count;
    }
    cursor.close(cursor.state);
    return cells;
}

uint64_t Repeat(uint64_t count, const std::function<void()>& act) {
    for (uint64_t i = 0; i < count; ++i) {
        act();
    }
    return count;
}

/** The count, divided among the threads. */
uint64_t RepeatInThreads(uint64_t count, const std::function<void()>& act) {
    std::vector<std::thread> threads;
    const uint64_t share = (count + kThreads - 1) / kThreads;
    for (unsigned i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] { Repeat(share, act); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return share * kThreads;
}

void MakeSmallFile(const std::string& file) {
    BareDuckDB("").Run("COPY (SELECT i, 'text ' || i AS t, i / 3 AS d FROM range(300) r(i)) TO '" + file +
                       "' (FORMAT parquet)");
}

Group MakeGroup(const std::string& name, const SmallCall& prototype, const Options& options) {
    const auto call = std::make_shared<SmallCall>();
    call->procedure = prototype.procedure;
    call->arguments = prototype.arguments;
    call->sql = prototype.sql;
    const uint64_t count = Scaled(kCalls, options);
    const auto bare = [call] { Consume(QueryBare(*call)); };
    const auto module = [call] { Consume(CallModule(*call)); };
    Group group{name, "call", nullptr, {}};
    group.prepare = [call] {
        MakeSmallFile(call->arguments.front());
        call->engine = std::make_unique<BareDuckDB>("", BareDuckDB::Access::writing, 0);
    };
    group.cases = {
        {"bare", [=] { return Repeat(count, bare); }, nullptr, kRunsInRound},
        {"procedure", [=] { return Repeat(count, module); }, nullptr, kRunsInRound},
        {"bare, 8 threads", [=] { return RepeatInThreads(count, bare); }, nullptr, kRunsInRound},
        {"procedure, 8 threads", [=] { return RepeatInThreads(count, module); }, nullptr, kRunsInRound},
    };
    group.check = [call, name] {
        if (QueryBare(*call) != CallModule(*call)) {
            Die(name + ": the numbers of cells differ");
        }
    };
    return group;
}

}  // namespace

std::vector<Group> GetSmallCallGroups(const Options& options) {
    const std::string file = options.folder + "/small.parquet";
    const std::string source = " FROM read_parquet('" + file + "')";
    std::vector<Group> groups;
    groups.push_back(MakeGroup(
        "small-count", {"parquet_count", {file}, "SELECT count(*) AS count" + source, nullptr}, options));
    groups.push_back(MakeGroup(
        "small-fetch", {"fetch_parquet", {file, "", "", "3"}, "SELECT *" + source + " LIMIT 3", nullptr},
        options));
    return groups;
}

}  // namespace bench
