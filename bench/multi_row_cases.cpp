#include <memory>
#include <variant>

#include "bare_duckdb.h"
#include "envelope.h"
#include "groups.h"
#include "module_under_test.h"
#include "workloads.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::I_DuckDBStatement;

struct Envelope {
    std::string json;
};

/** A parameter of a program without a host: a number, or UTF-8 text. */
using BareCell = std::variant<int16_t, int32_t, int64_t, double, std::string, Envelope>;

struct Fixture {
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<I_DuckDBDatabase> database;
    std::string create;
    std::string insert;
    /** The same rows on both sides. */
    nbx::smart_ptr<nbx::ValueRows> host_rows;
    std::vector<std::vector<BareCell>> bare_rows;
};

BareCell ToBareCell(const nbx::I_Value& value) {
    const auto text = [&] {
        return std::string(nbx::StFromUTF16(value.get_Text(), nbx::GetConverter_UTF8()).Take());
    };
    switch (static_cast<nbx::ValueType>(value.get_TypeCode())) {
        case nbx::ValueType::Short:
            return static_cast<int16_t>(value.get_LLong());
        case nbx::ValueType::Long:
            return static_cast<int32_t>(value.get_LLong());
        case nbx::ValueType::LLong:
            return value.get_LLong();
        case nbx::ValueType::Double:
            return value.get_Double();
        case nbx::ValueType::String:
            return text();
        case nbx::ValueType::JSON:
            return Envelope{text()};
        default:
            Die("no bare cell for a value of type " + std::to_string(value.get_TypeCode()));
    }
}

/** The workload's first rows, as a client cursor returns them. */
void TakeRows(Fixture& fixture, const Workload& workload, uint64_t count) {
    const std::string sql = "SELECT * FROM " + workload.table + " LIMIT " + std::to_string(count);
    const nbx::smart_ptr<I_DuckDBDatabase> source = OpenDatabase(workload.database);
    const nbx::smart_ptr<I_DuckDBCursor> cursor =
        source->SqlSelect(nbx::String(sql.c_str()), nbx::mrsql::kClientCursor, nullptr);
    fixture.host_rows = nbx::MakeObject<nbx::ValueRows>();
    while (cursor->NextRecord()) {
        auto host_row = nbx::MakeObject<nbx::ValueRow>();
        std::vector<BareCell>& bare_row = fixture.bare_rows.emplace_back();
        for (uint32_t column = 0; column < cursor->get_ColumnCount(); ++column) {
            nbx::smart_ptr<nbx::I_Value> value = cursor->get_Value(column);
            bare_row.push_back(ToBareCell(*value));
            host_row->Append(std::move(value));
        }
        fixture.host_rows->Append(std::move(host_row));
    }
}

void CreateTables(const Fixture& fixture) {
    fixture.bare->Run(fixture.create);
    fixture.database->SqlExecute(nbx::String(fixture.create.c_str()), nullptr);
}

void PrepareFixture(Fixture& fixture, const std::string& name, uint64_t count, const Options& options) {
    const Workload workload = GetWorkload(name, options);
    fixture.bare = std::make_unique<BareDuckDB>("");
    fixture.bare->Run("SET errors_as_json = true");
    fixture.database = OpenDatabase(":memory:");
    fixture.create = "CREATE OR REPLACE TABLE items (" + GetColumnList(workload) + ")";
    for (std::size_t i = 1; i <= workload.columns.size(); ++i) {
        fixture.insert += (i == 1 ? "INSERT INTO items VALUES ($" : ", $") + std::to_string(i);
    }
    fixture.insert += ")";
    TakeRows(fixture, workload, count);
    CreateTables(fixture);
}

struct BareBinder {
    duckdb_prepared_statement prepared;
    idx_t index;

    void operator()(int16_t number) const { duckdb_bind_int16(prepared, index, number); }
    void operator()(int32_t number) const { duckdb_bind_int32(prepared, index, number); }
    void operator()(int64_t number) const { duckdb_bind_int64(prepared, index, number); }
    void operator()(double number) const { duckdb_bind_double(prepared, index, number); }
    void operator()(const std::string& text) const {
        duckdb_bind_varchar_length(prepared, index, text.data(), text.size());
    }
    void operator()(const Envelope& envelope) const { BindEnvelope(prepared, index, envelope.json); }
};

uint64_t RunBare(const Fixture& fixture) {
    fixture.bare->Run("BEGIN");
    duckdb_prepared_statement prepared = Prepare(fixture.bare->get(), fixture.insert);
    for (const std::vector<BareCell>& row : fixture.bare_rows) {
        for (idx_t i = 0; i < row.size(); ++i) {
            std::visit(BareBinder{prepared, i + 1}, row[i]);
        }
        ExecuteAndDrop(prepared);
    }
    duckdb_destroy_prepare(&prepared);
    fixture.bare->Run("COMMIT");
    return fixture.bare_rows.size();
}

uint64_t RunModule(const Fixture& fixture) {
    fixture.database->SqlExecute(nbx::String("BEGIN"), nullptr);
    const nbx::smart_ptr<I_DuckDBStatement> statement = PrepareInModule(*fixture.database, fixture.insert);
    statement->put_ParameterRows(fixture.host_rows);
    statement->Execute();
    fixture.database->SqlExecute(nbx::String("COMMIT"), nullptr);
    return fixture.host_rows->get_Count();
}

Group MakeMultiRowGroup(const std::string& name, uint64_t full, const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    const uint64_t count = Scaled(full, options);
    const auto clean = [=] { CreateTables(*fixture); };
    Group group{"multi-row-" + name, "row", nullptr, {}};
    group.prepare = [=, &options] { PrepareFixture(*fixture, name, count, options); };
    group.cases = {{"bare", [=] { return RunBare(*fixture); }, clean},
                   {"module", [=] { return RunModule(*fixture); }, clean}};
    group.check = [=] {
        RunBare(*fixture);
        RunModule(*fixture);
        RequireSameRows("multi-row-" + name, *fixture->bare, *fixture->database, "items");
    };
    return group;
}

}  // namespace

std::vector<Group> GetMultiRowGroups(const Options& options) {
    // DuckDB itself takes several times as long for a row with casts, as in W2 and W4.
    return {MakeMultiRowGroup("W1", 100'000, options), MakeMultiRowGroup("W2", 10'000, options),
            MakeMultiRowGroup("W3", 50'000, options), MakeMultiRowGroup("W4", 5'000, options)};
}

}  // namespace bench
