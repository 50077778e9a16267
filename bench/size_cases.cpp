#include <algorithm>
#include <memory>

#include "bare_duckdb.h"
#include "baselines.h"
#include "cursor_reading.h"
#include "groups.h"
#include "workloads.h"

namespace bench {
namespace {

struct Fixture {
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> database;
};

/** Reads at least this many rows in one run, so that a small result is timed as well as a large one. */
constexpr uint64_t kRowsInRun = 2'000'000;
/** A result of one row consists of fixed costs, some hundred microseconds. */
constexpr uint64_t kQueriesInRun = 2'000;

/** More repetitions of the shorter runs, so that together they take about as long as the longest. */
unsigned RunsInRound(uint64_t rows) {
    return rows <= 1'000'000 ? 5 : rows <= 10'000'000 ? 3 : 1;
}

/** Rows of the results; one row is the fixed cost of a query. */
constexpr uint64_t kSizes[] = {1, 10'000, 100'000, 1'000'000, 10'000'000, 100'000'000};

template <class ReadOnce>
uint64_t Repeat(uint64_t count, ReadOnce read_once) {
    uint64_t cells = 0;
    for (uint64_t i = 0; i < count; ++i) {
        cells += read_once();
    }
    return cells;
}

void PrepareFixture(Fixture& fixture) {
    fixture.bare = std::make_unique<BareDuckDB>("");
    fixture.database = OpenDatabase(":memory:");
}

Group MakeSizeGroup(const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    Group group{"sizes", "cell", nullptr, {}};
    group.is_special = true;
    group.prepare = [fixture] { PrepareFixture(*fixture); };
    for (const uint64_t full : kSizes) {
        const uint64_t rows = full == 1 ? 1 : Scaled(full, options);
        const uint64_t repeats =
            full == 1 ? Scaled(kQueriesInRun, options) : std::max<uint64_t>(1, kRowsInRun / full);
        const std::string sql = GetMixedQuery(rows);
        const std::string suffix = " " + std::to_string(rows);
        const auto add = [&](const char* name, const auto& read_once) {
            group.cases.push_back(
                {name + suffix, [=] { return Repeat(repeats, read_once); }, nullptr, RunsInRound(full)});
        };
        add("drain", [=] { return Drain(fixture->bare->get(), sql); });
        add("vectors", [=] { return VectorLoop(fixture->bare->get(), sql); });
        add("server cursor", [=, text = nbx::String(sql.c_str())] {
            return ReadThroughServerCursor(*fixture->database, text);
        });
    }
    return group;
}

/** Measures peaks of memory, so each case needs its own process. */
Group MakeMemoryGroup(const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    const std::string mixed = GetMixedQuery(Scaled(50'000'000, options));
    const nbx::String numbers(GetNumberQuery(Scaled(2'000'000, options)).c_str());
    Group group{"memory", "cell", nullptr, {}};
    group.is_special = true;
    group.prepare = [fixture] { PrepareFixture(*fixture); };
    group.cases = {
        {"drain", [=] { return Drain(fixture->bare->get(), mixed); }, nullptr},
        {"server cursor",
         [=, text = nbx::String(mixed.c_str())] { return ReadThroughServerCursor(*fixture->database, text); },
         nullptr},
        {"client cursor, numbers",
         [=]() -> uint64_t {
             const nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> cursor =
                 fixture->database->SqlSelect(numbers, nbx::mrsql::kClientCursor, nullptr);
             return uint64_t{cursor->get_RecordCount()} * cursor->get_ColumnCount();
         },
         nullptr}};
    return group;
}

}  // namespace

std::vector<Group> GetSizeGroups(const Options& options) {
    return {MakeSizeGroup(options), MakeMemoryGroup(options)};
}

}  // namespace bench
