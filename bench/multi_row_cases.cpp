#include <memory>
#include <variant>

#include "envelope.h"
#include "groups.h"
#include "item_tables.h"

namespace bench {
namespace {

struct Envelope {
    std::string json;
};

/** A parameter of a program without a host: a number, or UTF-8 text. */
using BareCell = std::variant<int16_t, int32_t, int64_t, double, std::string, Envelope>;

struct Fixture {
    ItemTables tables;
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

void PrepareFixture(Fixture& fixture, const std::string& name, uint64_t count, const Options& options) {
    const Workload workload = GetWorkload(name, options);
    fixture.tables.Open(workload);
    fixture.host_rows = TakeHostRows(workload, count);
    for (const auto& host_row : *fixture.host_rows) {
        std::vector<BareCell>& row = fixture.bare_rows.emplace_back();
        for (const auto& value : *host_row) {
            row.push_back(ToBareCell(*value));
        }
    }
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
    const BareDuckDB& bare = *fixture.tables.bare;
    bare.Run("BEGIN");
    duckdb_prepared_statement prepared = Prepare(bare.get(), fixture.tables.insert);
    for (const std::vector<BareCell>& row : fixture.bare_rows) {
        for (idx_t i = 0; i < row.size(); ++i) {
            std::visit(BareBinder{prepared, i + 1}, row[i]);
        }
        ExecuteAndDrop(prepared);
    }
    duckdb_destroy_prepare(&prepared);
    bare.Run("COMMIT");
    return fixture.bare_rows.size();
}

Group MakeMultiRowGroup(const std::string& name, uint64_t full, const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    const uint64_t count = Scaled(full, options);
    const auto clean = [=] { fixture->tables.Clear(); };
    const auto run_module = [=] { return InsertAsParameters(fixture->tables, fixture->host_rows); };
    Group group{"multi-row-" + name, "row", nullptr, {}};
    group.prepare = [=, &options] { PrepareFixture(*fixture, name, count, options); };
    group.cases = {{"bare", [=] { return RunBare(*fixture); }, clean}, {"module", run_module, clean}};
    group.check = [=] {
        RunBare(*fixture);
        run_module();
        fixture->tables.RequireSame("multi-row-" + name);
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
