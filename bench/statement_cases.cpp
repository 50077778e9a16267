#include <memory>

#include "groups.h"
#include "module_under_test.h"
#include "workloads.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::I_DuckDBStatement;

/** A table on both sides, in memory. */
struct Fixture {
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<I_DuckDBDatabase> database;
    nbx::smart_ptr<nbx::ValueRows> rows;
    std::string script;

    void Run(const std::string& sql) {
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

duckdb_prepared_statement Prepare(duckdb_connection connection, const char* sql) {
    duckdb_prepared_statement prepared = nullptr;
    if (duckdb_prepare(connection, sql, &prepared) != DuckDBSuccess) {
        Die(duckdb_prepare_error(prepared));
    }
    return prepared;
}

void ExecuteAndDrop(duckdb_prepared_statement prepared) {
    duckdb_result result;
    if (duckdb_execute_prepared(prepared, &result) != DuckDBSuccess) {
        Die(duckdb_result_error(&result));
    }
    duckdb_destroy_result(&result);
}

nbx::smart_ptr<I_DuckDBStatement> PrepareInModule(Fixture& fixture, const char* sql) {
    nbx::smart_ptr<I_DuckDBStatement> statement = fixture.database->CreateStatement(nbx::String(sql));
    statement->PrepareNext();
    return statement;
}

Group MakeBindGroup(const Options& options) {
    const auto fixture = MakeFixture();
    const auto count = static_cast<uint64_t>(1'000'000 * options.scale);
    static constexpr const char* kSql = "SELECT $1::BIGINT + $2::BIGINT";
    return {"typed-binds",
            "bind",
            [=] { Open(*fixture); },
            {{"bare",
              [=] {
                  duckdb_prepared_statement prepared = Prepare(fixture->bare->get(), kSql);
                  for (uint64_t i = 0; i < count; ++i) {
                      duckdb_bind_int64(prepared, 1 + (i & 1), static_cast<int64_t>(i));
                  }
                  duckdb_destroy_prepare(&prepared);
                  return count;
              },
              nullptr},
             {"module",
              [=] {
                  const nbx::smart_ptr<I_DuckDBStatement> statement = PrepareInModule(*fixture, kSql);
                  for (uint64_t i = 0; i < count; ++i) {
                      statement->BindBigInt(static_cast<uint32_t>(1 + (i & 1)), static_cast<int64_t>(i));
                  }
                  return count;
              },
              nullptr}}};
}

Group MakePointQueryGroup(const Options& options) {
    const auto fixture = MakeFixture();
    const auto count = static_cast<uint64_t>(20'000 * options.scale);
    static constexpr const char* kSql = "SELECT name FROM people WHERE id = $1";
    return {"point-query",
            "query",
            [=] {
                Open(*fixture);
                fixture->Run(
                    "CREATE TABLE people AS SELECT i AS id, 'name ' || i AS name FROM range(100000) t(i)");
                fixture->Run("CREATE UNIQUE INDEX people_id ON people(id)");
            },
            {{"bare",
              [=] {
                  duckdb_prepared_statement prepared = Prepare(fixture->bare->get(), kSql);
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
                  const nbx::smart_ptr<I_DuckDBStatement> statement = PrepareInModule(*fixture, kSql);
                  for (uint64_t i = 0; i < count; ++i) {
                      statement->BindBigInt(1, static_cast<int64_t>(i));
                      statement->Execute();
                  }
                  return count;
              },
              nullptr}}};
}

constexpr const char* kInsert = "INSERT INTO items VALUES ($1, $2, $3)";
constexpr const char* kMakeItems = "CREATE OR REPLACE TABLE items (id BIGINT, price DOUBLE, name VARCHAR)";

nbx::smart_ptr<nbx::ValueRows> MakeRows(uint64_t count) {
    auto rows = nbx::MakeObject<nbx::ValueRows>();
    rows->Reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
        const auto number = static_cast<int64_t>(i);
        const double price = static_cast<double>(i) * 0.5;
        const std::string text = "item " + std::to_string(i);
        const std::string_view name = text;
        auto row = nbx::MakeObject<nbx::ValueRow>();
        using Value = nbx::smart_ptr<nbx::I_Value>;
        row->Append(Value::Adopt(nbx::CreateValueLLong(false, &number, nullptr)));
        row->Append(Value::Adopt(nbx::CreateValueDouble(false, &price, nullptr)));
        row->Append(Value::Adopt(nbx::CreateValueString(false, &name, nullptr)));
        rows->Append(std::move(row));
    }
    return rows;
}

Group MakeMultiRowGroup(const Options& options) {
    const auto fixture = MakeFixture();
    const auto count = static_cast<uint64_t>(100'000 * options.scale);
    return {"multi-row",
            "row",
            [=] {
                Open(*fixture);
                fixture->Run(kMakeItems);
                fixture->rows = MakeRows(count);
            },
            {{"bare",
              [=] {
                  fixture->bare->Run("BEGIN");
                  duckdb_prepared_statement prepared = Prepare(fixture->bare->get(), kInsert);
                  for (uint64_t i = 0; i < count; ++i) {
                      const std::string text = "item " + std::to_string(i);
                      duckdb_clear_bindings(prepared);
                      duckdb_bind_int64(prepared, 1, static_cast<int64_t>(i));
                      duckdb_bind_double(prepared, 2, static_cast<double>(i) * 0.5);
                      duckdb_bind_varchar_length(prepared, 3, text.data(), text.size());
                      ExecuteAndDrop(prepared);
                  }
                  duckdb_destroy_prepare(&prepared);
                  fixture->bare->Run("COMMIT");
                  return count;
              },
              [=] { fixture->bare->Run(kMakeItems); }},
             {"module",
              [=] {
                  fixture->database->SqlExecute(nbx::String("BEGIN"), nullptr);
                  const nbx::smart_ptr<I_DuckDBStatement> statement = PrepareInModule(*fixture, kInsert);
                  statement->put_ParameterRows(fixture->rows);
                  statement->Execute();
                  fixture->database->SqlExecute(nbx::String("COMMIT"), nullptr);
                  return count;
              },
              [=] { fixture->database->SqlExecute(nbx::String(kMakeItems), nullptr); }}}};
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

Group MakeScriptGroup() {
    const auto fixture = MakeFixture();
    return {"script-1000",
            "statement",
            [=] {
                Open(*fixture);
                fixture->Run("CREATE TABLE log (id INTEGER)");
                for (int i = 0; i < 1000; ++i) {
                    fixture->script += "INSERT INTO log VALUES (" + std::to_string(i) + ");";
                }
            },
            {{"bare",
              [=]() -> uint64_t {
                  RunScriptBare(fixture->bare->get(), fixture->script);
                  return 1000;
              },
              nullptr},
             {"module",
              [=]() -> uint64_t {
                  fixture->database->SqlExecute(nbx::String(fixture->script.c_str()), nullptr);
                  return 1000;
              },
              nullptr}}};
}

}  // namespace

std::vector<Group> GetStatementGroups(const Options& options) {
    return {MakeBindGroup(options), MakePointQueryGroup(options), MakeMultiRowGroup(options),
            MakeScriptGroup()};
}

}  // namespace bench
