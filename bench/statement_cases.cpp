#include <memory>
#include <string_view>

#include "bare_duckdb.h"
#include "groups.h"
#include "module_under_test.h"
#include "same_values.h"
#include "stock_value.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::I_DuckDBStatement;

/** A table on both sides, in memory. */
struct Fixture {
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<I_DuckDBDatabase> database;
    std::string script;

    void Run(const std::string& sql) const {
        bare->Run(sql);
        database->SqlExecute(nbx::String(sql.c_str()), nullptr);
    }
};

std::shared_ptr<Fixture> MakeFixture() {
    return std::make_shared<Fixture>();
}

void Open(Fixture& fixture) {
    fixture.bare = std::make_unique<BareDuckDB>("");
    fixture.bare->Run("SET errors_as_json = true");
    fixture.database = OpenDatabase(":memory:");
}

constexpr const char* kPointQuery = "SELECT name FROM people WHERE id = $1";

void PreparePeople(Fixture& fixture) {
    Open(fixture);
    fixture.Run("CREATE TABLE people AS SELECT i AS id, 'name ' || i AS name FROM range(100000) t(i)");
    fixture.Run("CREATE UNIQUE INDEX people_id ON people(id)");
}

Group MakePointQueryGroup(const Options& options) {
    const auto fixture = MakeFixture();
    const uint64_t count = Scaled(10'000, options);
    return {"point-query",
            "query",
            [=] { PreparePeople(*fixture); },
            {{"bare",
              [=] {
                  duckdb_prepared_statement prepared = Prepare(fixture->bare->get(), kPointQuery);
                  for (uint64_t i = 0; i < count; ++i) {
                      duckdb_bind_int64(prepared, 1, static_cast<int64_t>(i));
                      ExecuteAndDrop(prepared);
                  }
                  duckdb_destroy_prepare(&prepared);
                  return count;
              },
              nullptr},
             {"module",
              [=] {
                  const auto statement = PrepareInModule(*fixture->database, kPointQuery);
                  for (uint64_t i = 0; i < count; ++i) {
                      statement->BindBigInt(1, static_cast<int64_t>(i));
                      statement->Execute();
                  }
                  return count;
              },
              nullptr}}};
}

/** The name that the query returns, as a value. */
template <class Deliver>
void ReadNameBare(duckdb_prepared_statement prepared, Deliver deliver) {
    duckdb_result result;
    if (duckdb_execute_prepared(prepared, &result) != DuckDBSuccess) {
        Die(duckdb_result_error(&result));
    }
    duckdb_data_chunk chunk = duckdb_fetch_chunk(result);
    duckdb_value value = GetStockValue(chunk, 0, 0);
    char* text = duckdb_get_varchar(value);
    const std::string_view content = text;
    deliver(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueString(false, &content, nullptr)));
    duckdb_free(text);
    duckdb_destroy_value(&value);
    duckdb_destroy_data_chunk(&chunk);
    duckdb_destroy_result(&result);
}

template <class Deliver>
void ReadName(I_DuckDBStatement& statement, Deliver deliver) {
    const auto cursor = statement.OpenCursor(nbx::mrsql::kServerCursor);
    cursor->NextRecord();
    deliver(cursor->get_Value(0));
}

template <class Deliver>
uint64_t ReadNamesBare(const Fixture& fixture, uint64_t count, Deliver deliver) {
    duckdb_prepared_statement prepared = Prepare(fixture.bare->get(), kPointQuery);
    for (uint64_t i = 0; i < count; ++i) {
        duckdb_bind_int64(prepared, 1, static_cast<int64_t>(i));
        ReadNameBare(prepared, deliver);
    }
    duckdb_destroy_prepare(&prepared);
    return count;
}

template <class Deliver>
uint64_t ReadNames(const Fixture& fixture, uint64_t count, Deliver deliver) {
    const auto statement = PrepareInModule(*fixture.database, kPointQuery);
    for (uint64_t i = 0; i < count; ++i) {
        statement->BindBigInt(1, static_cast<int64_t>(i));
        ReadName(*statement, deliver);
    }
    return count;
}

/** The point query with its one cell read. */
Group MakePointReadGroup(const Options& options) {
    const auto fixture = MakeFixture();
    const uint64_t count = Scaled(5'000, options);
    const auto look = [](const nbx::smart_ptr<nbx::I_Value>& value) { Consume(value->get_TypeCode()); };
    Group group{"point-read", "query", nullptr, {}};
    group.prepare = [=] { PreparePeople(*fixture); };
    group.cases = {{"bare", [=] { return ReadNamesBare(*fixture, count, look); }, nullptr},
                   {"module", [=] { return ReadNames(*fixture, count, look); }, nullptr}};
    group.check = [=] {
        KeptValues expected;
        KeptValues actual;
        ReadNamesBare(*fixture, 100, [&](const auto& value) { expected.KeepReference(value.get()); });
        ReadNames(*fixture, 100, [&](const auto& value) { actual.KeepReference(value.get()); });
        RequireSame("point-read", expected, actual);
    };
    return group;
}

void RunScriptBare(duckdb_connection connection, const std::string& script) {
    duckdb_extracted_statements statements = nullptr;
    const idx_t count = duckdb_extract_statements(connection, script.c_str(), &statements);
    for (idx_t i = 0; i < count; ++i) {
        duckdb_prepared_statement prepared = nullptr;
        duckdb_prepare_extracted_statement(connection, statements, i, &prepared);
        ExecuteAndDrop(prepared);
        duckdb_destroy_prepare(&prepared);
    }
    duckdb_destroy_extracted(&statements);
}

constexpr uint64_t kStatements = 1000;
constexpr const char* kMakeLog = "CREATE OR REPLACE TABLE log (id INTEGER)";

Group MakeScriptGroup(const Options& options) {
    const auto fixture = MakeFixture();
    const uint64_t repeats = Scaled(5, options);
    const auto clean = [=] { fixture->Run(kMakeLog); };
    Group group{"script-1000", "statement", nullptr, {}};
    group.prepare = [=] {
        Open(*fixture);
        fixture->Run(kMakeLog);
        for (uint64_t i = 0; i < kStatements; ++i) {
            fixture->script += "INSERT INTO log VALUES (" + std::to_string(i) + ");";
        }
    };
    const auto run_bare = [=] {
        for (uint64_t i = 0; i < repeats; ++i) {
            RunScriptBare(fixture->bare->get(), fixture->script);
        }
        return kStatements * repeats;
    };
    const auto run_module = [=] {
        const nbx::String script(fixture->script.c_str());
        for (uint64_t i = 0; i < repeats; ++i) {
            fixture->database->SqlExecute(script, nullptr);
        }
        return kStatements * repeats;
    };
    group.cases = {{"bare", run_bare, clean}, {"module", run_module, clean}};
    group.check = [=] {
        run_bare();
        run_module();
        RequireSameRows("script-1000", *fixture->bare, *fixture->database, "log");
    };
    return group;
}

}  // namespace

std::vector<Group> GetStatementGroups(const Options& options) {
    return {MakePointQueryGroup(options), MakePointReadGroup(options), MakeScriptGroup(options)};
}

}  // namespace bench
