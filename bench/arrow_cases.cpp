#include <memory>

#include "bare_duckdb.h"
#include "groups.h"
#include "module_under_test.h"
#include "nbx/mrsql/duckdb_arrow.h"
#include "workloads.h"

namespace bench {
namespace {

struct Fixture {
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> database;
    std::string bare_sql;
    nbx::String sql;
};

/** Looks at each array once and releases it. Returns its cells. */
uint64_t Use(ArrowArray& array) {
    for (int64_t i = 0; i < array.n_children; ++i) {
        Consume(static_cast<uint64_t>(array.children[i]->null_count));
    }
    const int64_t cells = array.length * array.n_children;
    array.release(&array);
    return static_cast<uint64_t>(cells);
}

void Require(duckdb_error_data error) {
    if (error != nullptr) {
        Die(duckdb_error_data_message(error));
    }
}

/** DuckDB's own export, chunk by chunk. */
uint64_t RunBare(const Fixture& fixture) {
    duckdb_result result;
    if (duckdb_query(fixture.bare->get(), fixture.bare_sql.c_str(), &result) != DuckDBSuccess) {
        Die(duckdb_result_error(&result));
    }
    duckdb_arrow_options options = duckdb_result_get_arrow_options(&result);
    uint64_t cells = 0;
    while (duckdb_data_chunk chunk = duckdb_fetch_chunk(result)) {
        ArrowArray array{};
        Require(duckdb_data_chunk_to_arrow(options, chunk, &array));
        cells += Use(array);
        duckdb_destroy_data_chunk(&chunk);
    }
    duckdb_destroy_arrow_options(&options);
    duckdb_destroy_result(&result);
    return cells;
}

uint64_t ReadExported(nbx::mrsql::I_DuckDBCursor& cursor) {
    ArrowArrayStream stream{};
    static_cast<nbx::mrsql::I_DuckDBArrow*>(cursor.QueryInterface(nbx::mrsql::kDuckDBArrowInterfaceId))
        ->ExportStream(stream);
    uint64_t cells = 0;
    for (;;) {
        ArrowArray array{};
        if (stream.get_next(&stream, &array) != 0) {
            Die(stream.get_last_error(&stream));
        }
        if (array.release == nullptr) {
            break;
        }
        cells += Use(array);
    }
    stream.release(&stream);
    return cells;
}

uint64_t RunServerCursor(const Fixture& fixture) {
    return ReadExported(*fixture.database->SqlSelect(fixture.sql, nbx::mrsql::kServerCursor, nullptr));
}

uint64_t RunStreamingCursor(const Fixture& fixture) {
    return ReadExported(*OpenStream(*fixture.database, fixture.sql));
}

/** The query with its VARIANTs as texts, since DuckDB exports none. */
std::string WithoutVariants(const Workload& workload) {
    std::string list;
    for (const Column& column : workload.columns) {
        list += (list.empty() ? "SELECT " : ", ") + column.name +
                (column.type == "VARIANT" ? "::JSON AS " + column.name : "");
    }
    return list + " FROM (" + workload.sql + ")";
}

Group MakeArrowGroup(const std::string& name, const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    Group group{"arrow-" + name, "cell", nullptr, {}};
    group.prepare = [=, &options] {
        const Workload workload = GetWorkload(name, options);
        fixture->bare = std::make_unique<BareDuckDB>(workload.bare_database);
        fixture->bare->Run("SET arrow_lossless_conversion = true");
        fixture->database = OpenDatabase(workload.database);
        fixture->bare_sql = WithoutVariants(workload);
        fixture->sql = nbx::String(workload.sql.c_str());
    };
    group.cases = {{"bare", [=] { return RunBare(*fixture); }, nullptr},
                   {"module", [=] { return RunServerCursor(*fixture); }, nullptr},
                   {"streaming cursor", [=] { return RunStreamingCursor(*fixture); }, nullptr}};
    group.check = [=] {
        const uint64_t cells = RunBare(*fixture);
        if (RunServerCursor(*fixture) != cells || RunStreamingCursor(*fixture) != cells) {
            Die("arrow-" + name + ": the number of cells differs");
        }
    };
    return group;
}

}  // namespace

std::vector<Group> GetArrowGroups(const Options& options) {
    std::vector<Group> groups;
    for (const char* workload : {"W1", "W2", "W3", "W4"}) {
        groups.push_back(MakeArrowGroup(workload, options));
    }
    return groups;
}

}  // namespace bench
