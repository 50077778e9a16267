#include <functional>
#include <memory>
#include <thread>

#include "bare_duckdb.h"
#include "groups.h"
#include "module_under_test.h"
#include "workloads.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::I_DuckDBDatabase;

/** Reads all rows, each cell by its type; returns the number of rows. */
uint64_t ReadStream(I_DuckDBDatabase& database, const nbx::String& sql) {
    const auto cursor = OpenStream(database, sql);
    const uint32_t columns = cursor->get_ColumnCount();
    uint64_t rows = 0;
    for (; cursor->NextRecord(); ++rows) {
        for (uint32_t column = 0; column < columns; ++column) {
            Consume(cursor->get_Value(column)->get_TypeCode());
        }
    }
    return rows;
}

struct Fixture {
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<I_DuckDBDatabase> database;
};

/** The first cell of a result that DuckDB streams to a C program. The result is dropped unread, as the cursor
    is on the other side. */
int32_t ReadFirstBare(const Fixture& fixture, const std::string& sql) {
    duckdb_connection connection = nullptr;
    duckdb_connect(fixture.bare->get_Engine(), &connection);
    duckdb_prepared_statement prepared = Prepare(connection, sql);
    duckdb_pending_result pending = nullptr;
    duckdb_result result;
    if (duckdb_pending_prepared_streaming(prepared, &pending) != DuckDBSuccess ||
        duckdb_execute_pending(pending, &result) != DuckDBSuccess) {
        Die("no stream");
    }
    duckdb_data_chunk chunk = duckdb_fetch_chunk(result);
    const auto* const cells =
        static_cast<const int32_t*>(duckdb_vector_get_data(duckdb_data_chunk_get_vector(chunk, 0)));
    const int32_t first = cells[0];
    duckdb_destroy_data_chunk(&chunk);
    duckdb_destroy_result(&result);
    duckdb_destroy_pending(&pending);
    duckdb_destroy_prepare(&prepared);
    duckdb_disconnect(&connection);
    return first;
}

int32_t ReadFirst(const Fixture& fixture, const nbx::String& sql) {
    const auto cursor = OpenStream(*fixture.database, sql);
    cursor->NextRecord();
    return static_cast<int32_t>(cursor->get_Value(0)->get_LLong());
}

constexpr uint64_t kFirstRows = 50;

uint64_t Repeat(const std::function<void()>& act) {
    for (uint64_t i = 0; i < kFirstRows; ++i) {
        act();
    }
    return kFirstRows;
}

/** From the query to its first row. */
Group MakeFirstRowGroup(const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    const std::string sql = GetMixedQuery(Scaled(100'000'000, options));
    const nbx::String text(sql.c_str());
    Group group{"stream-first-row", "query", nullptr, {}};
    group.prepare = [=] {
        fixture->bare = std::make_unique<BareDuckDB>("");
        fixture->database = OpenDatabase(":memory:");
    };
    group.cases = {
        {"bare", [=] { return Repeat([&] { ReadFirstBare(*fixture, sql); }); }, nullptr},
        {"module", [=] { return Repeat([&] { ReadFirst(*fixture, text); }); }, nullptr},
    };
    group.check = [=] {
        if (ReadFirstBare(*fixture, sql) != ReadFirst(*fixture, text)) {
            Die("stream-first-row: the first rows differ");
        }
    };
    return group;
}

constexpr unsigned kMostReaders = 2;

/** A database object with an engine of its own for each reader. */
struct Readers {
    nbx::smart_ptr<I_DuckDBDatabase> databases[kMostReaders];

    uint64_t Read(unsigned count, const nbx::String& sql) const {
        std::vector<std::thread> threads;
        uint64_t rows[kMostReaders] = {};
        for (unsigned i = 0; i < count; ++i) {
            threads.emplace_back([&, i] { rows[i] = ReadStream(*databases[i], sql); });
        }
        uint64_t sum = 0;
        for (unsigned i = 0; i < count; ++i) {
            threads[i].join();
            sum += rows[i];
        }
        return sum;
    }
};

/** Each thread reads a stream of its own. */
Group MakeReadersGroup(const Options& options) {
    const auto readers = std::make_shared<Readers>();
    const uint64_t rows = Scaled(2'000'000, options);
    const nbx::String sql(GetMixedQuery(rows).c_str());
    Group group{"stream-threads", "row", nullptr, {}};
    group.prepare = [=] {
        for (auto& database : readers->databases) {
            database = OpenDatabase(":memory:");
        }
    };
    group.cases = {{"one thread", [=] { return readers->Read(1, sql); }, nullptr},
                   {"two threads", [=] { return readers->Read(2, sql); }, nullptr}};
    group.check = [=] {
        if (readers->Read(1, sql) != rows || readers->Read(2, sql) != 2 * rows) {
            Die("stream-threads: rows are missing");
        }
    };
    return group;
}

/** Peaks of memory, so each case needs its own process. */
Group MakeStreamMemoryGroup(const Options& options) {
    const auto database = std::make_shared<nbx::smart_ptr<I_DuckDBDatabase>>();
    const uint64_t rows = Scaled(20'000'000, options);
    const nbx::String sql(GetMixedQuery(rows).c_str());
    const nbx::String few(GetMixedQuery(1).c_str());
    Group group{"stream-memory", "row", nullptr, {}};
    group.is_special = true;
    group.prepare = [=] { *database = OpenDatabase(":memory:"); };
    group.cases = {{"idle engine", [=] { return ReadStream(**database, few); }, nullptr},
                   {"stream", [=] { return ReadStream(**database, sql); }, nullptr}};
    return group;
}

}  // namespace

std::vector<Group> GetStreamingGroups(const Options& options) {
    return {MakeFirstRowGroup(options), MakeReadersGroup(options), MakeStreamMemoryGroup(options)};
}

}  // namespace bench
