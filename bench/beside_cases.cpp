#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "groups.h"
#include "module_under_test.h"
#include "nbx/exception.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_progress.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBDatabase;
using Clock = std::chrono::steady_clock;
using Database = nbx::smart_ptr<I_DuckDBDatabase>;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/** A query that runs until it is interrupted. */
constexpr const char* kLongQuery = "SELECT count(*) FROM range(1000000000000) t(i) WHERE hash(i) = 1";
constexpr uint64_t kPoints = 5'000;

/** The 99th percentile of the seconds that a point query takes. */
double GetPointQueryDelay(I_DuckDBDatabase& database, uint64_t count) {
    const auto statement = PrepareInModule(database, "SELECT name FROM people WHERE id = $1");
    std::vector<double> seconds;
    for (uint64_t i = 0; i < count; ++i) {
        const auto start = Clock::now();
        statement->BindBigInt(1, static_cast<int64_t>(i * 7919 % 100'000));
        const auto cursor = statement->OpenCursor(nbx::mrsql::kServerCursor);
        if (!cursor->NextRecord()) {
            Die("point-beside: a row is missing");
        }
        Consume(cursor->get_Value(0)->get_TypeCode());
        seconds.push_back(SecondsSince(start));
    }
    const auto place = seconds.begin() + static_cast<std::ptrdiff_t>(count * 99 / 100);
    std::nth_element(seconds.begin(), place, seconds.end());
    return *place;
}

/** While another object's query runs, a streaming one: other calls hold the engine lock to their end. */
double GetPointQueryDelayBeside(I_DuckDBDatabase& database, I_DuckDBDatabase& other, uint64_t count) {
    std::atomic<bool> has_ended{false};
    std::thread runner([&] {
        try {
            OpenStream(other, nbx::String(kLongQuery));
        } catch (const nbx::xInterruptError&) {
            has_ended = true;
        }
    });
    // It runs before the first point query.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const double delay = GetPointQueryDelay(database, count);
    if (has_ended) {
        Die("point-beside: the long query ended early");
    }
    other.Interrupt();
    runner.join();
    return delay;
}

/** Prints the delays itself, because the longest matter and not the sum. */
Group MakePointBesideGroup(const Options& options) {
    const auto objects = std::make_shared<std::pair<Database, Database>>();
    const uint64_t count = Scaled(kPoints, options);
    Group group{"point-beside", "query", nullptr, {}};
    group.prepare = [=] {
        nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
        *objects = {OpenDatabase(":memory:"), OpenDatabase(":memory:")};
        for (const char* sql :
             {"CREATE TABLE people AS SELECT i AS id, 'name ' || i AS name FROM range(100000) t(i)",
              "CREATE UNIQUE INDEX people_id ON people(id)"}) {
            objects->first->SqlExecute(nbx::String(sql), nullptr);
        }
    };
    group.cases = {
        {"point queries",
         [=]() -> uint64_t {
             const double alone = GetPointQueryDelay(*objects->first, count);
             const double beside = GetPointQueryDelayBeside(*objects->first, *objects->second, count);
             std::printf(R"({"group":"point-beside","case":"p99","alone_ms":%.4f,"beside_ms":%.4f})"
                         "\n",
                         alone * 1e3, beside * 1e3);
             return 2 * count;
         },
         nullptr}};
    return group;
}

constexpr auto kAskEvery = std::chrono::milliseconds(10);

/** Runs a query of most of a second; another thread asks for its progress all the time when `is_asked`. */
uint64_t RunWatched(I_DuckDBDatabase& database, const nbx::String& sql, uint64_t rows, bool is_asked) {
    auto* const progress = static_cast<nbx::mrsql::I_DuckDBProgress*>(
        database.QueryInterface(nbx::mrsql::kDuckDBProgressInterfaceId));
    progress->put_IsTracked(is_asked);
    std::atomic<bool> has_ended{false};
    std::thread asker([&] {
        while (is_asked && !has_ended) {
            Consume(progress->get_Progress().rows);
            std::this_thread::sleep_for(kAskEvery);
        }
    });
    database.SqlExecute(sql, nullptr);
    has_ended = true;
    asker.join();
    return rows;
}

Group MakeProgressGroup(const Options& options) {
    const auto database = std::make_shared<Database>();
    const uint64_t rows = Scaled(50'000'000, options);
    const nbx::String sql(("SELECT sum(hash(i) % 7) FROM range(" + std::to_string(rows) + ") t(i)").c_str());
    Group group{"progress", "row", nullptr, {}};
    group.prepare = [=] { *database = OpenDatabase(":memory:"); };
    group.cases = {{"not asked", [=] { return RunWatched(**database, sql, rows, false); }, nullptr},
                   {"asked every 10 ms", [=] { return RunWatched(**database, sql, rows, true); }, nullptr}};
    return group;
}

}  // namespace

std::vector<Group> GetBesideGroups(const Options& options) {
    return {MakePointBesideGroup(options), MakeProgressGroup(options)};
}

}  // namespace bench
