#include <memory>
#include <string_view>
#include <utility>

#include "bare_duckdb.h"
#include "envelope.h"
#include "groups.h"
#include "module_under_test.h"
#include "workloads.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::I_DuckDBStatement;

enum class Kind { int16, int32, int64, real64, decimal, date, text };

Kind GetKind(const std::string& type) {
    static const std::vector<std::pair<std::string, Kind>> kinds{
        {"SMALLINT", Kind::int16}, {"INTEGER", Kind::int32},         {"BIGINT", Kind::int64},
        {"DOUBLE", Kind::real64},  {"DECIMAL(15,2)", Kind::decimal}, {"DATE", Kind::date},
        {"VARCHAR", Kind::text}};
    for (const auto& [name, kind] : kinds) {
        if (name == type) {
            return kind;
        }
    }
    Die("no bind for the type " + type);
}

/** The texts to bind, in the host's form and in DuckDB's. */
constexpr std::size_t kTexts = 1024;

struct Fixture {
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<I_DuckDBDatabase> database;
    /** One parameter of each column's type. */
    std::string sql;
    std::vector<Kind> kinds;
    std::vector<nbx::String> host_texts;
    std::vector<std::string> texts;
};

void FillTexts(Fixture& fixture, const std::string& workload) {
    for (std::size_t i = 0; i < kTexts; ++i) {
        const std::string number = std::to_string(i);
        fixture.texts.push_back(workload != "W3" ? "str" + number
                                : i % 3 == 0     ? "k" + number
                                : i % 3 == 1     ? "row " + number + " of a text of about forty bytes."
                                             : "Привет, " + number + " абвгдежзик日本語");
        fixture.host_texts.emplace_back(fixture.texts.back().c_str());
    }
}

void PrepareFixture(Fixture& fixture, const std::string& name, const Options& options) {
    const Workload workload = GetWorkload(name, options);
    fixture.bare = std::make_unique<BareDuckDB>("");
    fixture.bare->Run("SET errors_as_json = true");
    fixture.database = OpenDatabase(":memory:");
    fixture.sql = "SELECT ";
    for (const Column& column : workload.columns) {
        fixture.sql += (fixture.kinds.empty() ? "$" : ", $") + std::to_string(fixture.kinds.size() + 1) +
                       "::" + column.type;
        fixture.kinds.push_back(GetKind(column.type));
    }
    FillTexts(fixture, name);
}

constexpr uint8_t kWidth = 15;
constexpr uint8_t kScale = 2;
constexpr int32_t kYear = 1992;
constexpr int8_t kMonth = 5;

/** 1 to 28. */
int8_t DayOf(uint64_t i) {
    return static_cast<int8_t>(1 + i % 28);
}

enum class Texts { converted, at_hand };

template <Texts kFrom>
void BindBare(const Fixture& fixture, duckdb_prepared_statement prepared, idx_t index, Kind kind,
              uint64_t i) {
    switch (kind) {
        case Kind::int16:
            duckdb_bind_int16(prepared, index, static_cast<int16_t>(i));
            break;
        case Kind::int32:
            duckdb_bind_int32(prepared, index, static_cast<int32_t>(i));
            break;
        case Kind::int64:
            duckdb_bind_int64(prepared, index, static_cast<int64_t>(i));
            break;
        case Kind::real64:
            duckdb_bind_double(prepared, index, static_cast<double>(i));
            break;
        case Kind::decimal:
            duckdb_bind_decimal(prepared, index, duckdb_decimal{kWidth, kScale, duckdb_hugeint{i, 0}});
            break;
        case Kind::date:
            duckdb_bind_date(prepared, index, duckdb_to_date(duckdb_date_struct{kYear, kMonth, DayOf(i)}));
            break;
        case Kind::text:
            if constexpr (kFrom == Texts::at_hand) {
                const std::string& text = fixture.texts[i % kTexts];
                duckdb_bind_varchar_length(prepared, index, text.data(), text.size());
            } else {
                const nbx::StFromUTF16 text(fixture.host_texts[i % kTexts], nbx::GetConverter_UTF8());
                duckdb_bind_varchar_length(prepared, index, text.c_str(), text.get_Length());
            }
            break;
    }
}

void BindByModule(const Fixture& fixture, I_DuckDBStatement& statement, uint32_t index, Kind kind,
                  uint64_t i) {
    switch (kind) {
        case Kind::int16:
            statement.BindSmallInt(index, static_cast<int16_t>(i));
            break;
        case Kind::int32:
            statement.BindInteger(index, static_cast<int32_t>(i));
            break;
        case Kind::int64:
            statement.BindBigInt(index, static_cast<int64_t>(i));
            break;
        case Kind::real64:
            statement.BindDouble(index, static_cast<double>(i));
            break;
        case Kind::decimal:
            statement.BindDecimal(index, kWidth, kScale, i, 0);
            break;
        case Kind::date:
            statement.BindDate(index, kYear, kMonth, DayOf(i));
            break;
        case Kind::text:
            statement.BindVarchar(index, fixture.host_texts[i % kTexts]);
            break;
    }
}

template <Texts kFrom>
void BindAllBare(const Fixture& fixture, duckdb_prepared_statement prepared, uint64_t count) {
    const std::size_t columns = fixture.kinds.size();
    std::size_t column = 0;
    for (uint64_t i = 0; i < count; ++i) {
        BindBare<kFrom>(fixture, prepared, column + 1, fixture.kinds[column], i);
        column = column + 1 == columns ? 0 : column + 1;
    }
}

void BindAllByModule(const Fixture& fixture, I_DuckDBStatement& statement, uint64_t count) {
    const std::size_t columns = fixture.kinds.size();
    std::size_t column = 0;
    for (uint64_t i = 0; i < count; ++i) {
        BindByModule(fixture, statement, static_cast<uint32_t>(column + 1), fixture.kinds[column], i);
        column = column + 1 == columns ? 0 : column + 1;
    }
}

template <Texts kFrom>
uint64_t RunBare(const Fixture& fixture, uint64_t count) {
    duckdb_prepared_statement prepared = Prepare(fixture.bare->get(), fixture.sql);
    BindAllBare<kFrom>(fixture, prepared, count);
    duckdb_destroy_prepare(&prepared);
    return count;
}

uint64_t RunModule(const Fixture& fixture, uint64_t count) {
    BindAllByModule(fixture, *PrepareInModule(*fixture.database, fixture.sql), count);
    return count;
}

/** Both sides store the values of their last binds; the rows must be equal. */
void CheckBinds(const Fixture& fixture, const std::string& name, const Options& options) {
    const Workload workload = GetWorkload(name, options);
    const std::string create = "CREATE OR REPLACE TABLE bound (" + GetColumnList(workload) + ")";
    const std::string insert = "INSERT INTO bound " + fixture.sql;
    const uint64_t count = 3 * fixture.kinds.size();
    fixture.bare->Run(create);
    for (const bool at_hand : {false, true}) {
        duckdb_prepared_statement prepared = Prepare(fixture.bare->get(), insert);
        at_hand ? BindAllBare<Texts::at_hand>(fixture, prepared, count)
                : BindAllBare<Texts::converted>(fixture, prepared, count);
        ExecuteAndDrop(prepared);
        duckdb_destroy_prepare(&prepared);
    }
    fixture.database->SqlExecute(nbx::String(create.c_str()), nullptr);
    const nbx::smart_ptr<I_DuckDBStatement> statement = PrepareInModule(*fixture.database, insert);
    BindAllByModule(fixture, *statement, count);
    statement->Execute();
    statement->Execute();
    RequireSameRows("binds-" + name, *fixture.bare, *fixture.database, "bound");
}

Group MakeBindGroup(const std::string& name, const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    const uint64_t count = Scaled(1'000'000, options);
    Group group{"binds-" + name, "bind", nullptr, {}};
    group.prepare = [=, &options] { PrepareFixture(*fixture, name, options); };
    group.cases = {{"bare", [=] { return RunBare<Texts::converted>(*fixture, count); }, nullptr},
                   {"module", [=] { return RunModule(*fixture, count); }, nullptr},
                   {"bare, text at hand", [=] { return RunBare<Texts::at_hand>(*fixture, count); }, nullptr}};
    group.check = [=, &options] { CheckBinds(*fixture, name, options); };
    return group;
}

/** Envelopes as host values and as JSON text. */
struct Envelopes {
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<I_DuckDBDatabase> database;
    std::vector<std::string> texts;
    std::vector<nbx::smart_ptr<nbx::I_Value>> host_values;
};

std::string MakeEnvelope(std::size_t i) {
    const std::string number = std::to_string(i);
    const auto envelope = [](const std::string& type, const std::string& value) {
        return R"({"duckdb_variant":true,"variant_type":")" + type + R"(","value":")" + value + "\"}";
    };
    switch (i % 4) {
        case 0:
            return envelope("INT64", number);
        case 1:
            return envelope("VARCHAR", "text " + number);
        case 2:
            return envelope("ARRAY", "[" + number + ", 7]");
        default:
            return envelope("DOUBLE", number + ".5");
    }
}

constexpr const char* kVariantSql = "SELECT $1::VARIANT";

void PrepareEnvelopes(Envelopes& envelopes) {
    envelopes.bare = std::make_unique<BareDuckDB>("");
    envelopes.bare->Run("SET errors_as_json = true");
    envelopes.database = OpenDatabase(":memory:");
    for (std::size_t i = 0; i < kTexts; ++i) {
        envelopes.texts.push_back(MakeEnvelope(i));
        const std::string_view text = envelopes.texts.back();
        envelopes.host_values.push_back(
            nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueJSON(false, &text, nullptr)));
    }
}

void CheckEnvelopes(const Envelopes& envelopes) {
    envelopes.bare->Run("CREATE OR REPLACE TABLE bound (v VARIANT)");
    envelopes.database->SqlExecute(nbx::String("CREATE OR REPLACE TABLE bound (v VARIANT)"), nullptr);
    const std::string insert = std::string("INSERT INTO bound ") + kVariantSql;
    duckdb_prepared_statement prepared = Prepare(envelopes.bare->get(), insert);
    const nbx::smart_ptr<I_DuckDBStatement> statement = PrepareInModule(*envelopes.database, insert);
    for (std::size_t i = 0; i < kTexts; ++i) {
        BindEnvelope(prepared, 1, envelopes.texts[i]);
        ExecuteAndDrop(prepared);
        statement->BindValue(1, envelopes.host_values[i]);
        statement->Execute();
    }
    duckdb_destroy_prepare(&prepared);
    RequireSameRows("binds-W4", *envelopes.bare, *envelopes.database, "bound");
}

Group MakeEnvelopeGroup(const Options& options) {
    const auto envelopes = std::make_shared<Envelopes>();
    const uint64_t count = Scaled(200'000, options);
    Group group{"binds-W4", "bind", nullptr, {}};
    group.prepare = [=] { PrepareEnvelopes(*envelopes); };
    group.cases = {{"bare",
                    [=] {
                        duckdb_prepared_statement prepared = Prepare(envelopes->bare->get(), kVariantSql);
                        for (uint64_t i = 0; i < count; ++i) {
                            BindEnvelope(prepared, 1, envelopes->texts[i % kTexts]);
                        }
                        duckdb_destroy_prepare(&prepared);
                        return count;
                    },
                    nullptr},
                   {"module",
                    [=] {
                        const nbx::smart_ptr<I_DuckDBStatement> statement =
                            PrepareInModule(*envelopes->database, kVariantSql);
                        for (uint64_t i = 0; i < count; ++i) {
                            statement->BindValue(1, envelopes->host_values[i % kTexts]);
                        }
                        return count;
                    },
                    nullptr}};
    group.check = [=] { CheckEnvelopes(*envelopes); };
    return group;
}

}  // namespace

std::vector<Group> GetBindGroups(const Options& options) {
    std::vector<Group> groups;
    for (const char* workload : {"W1", "W2", "W3"}) {
        groups.push_back(MakeBindGroup(workload, options));
    }
    groups.push_back(MakeEnvelopeGroup(options));
    return groups;
}

}  // namespace bench
